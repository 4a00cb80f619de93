// What a person asks about the computer when something does not work.
#pragma once

class Console;

// Shows one fact a line. Changes nothing.
void showStatus(Console& console);
