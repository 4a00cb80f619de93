#pragma once

class Console;

// A message when records are wanted in a file that was asked for by name and cannot be opened. The log itself
// loses them without a word.
void checkLogFile(Console& console);
