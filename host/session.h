// A session: commands from a console, a script or standard input, one a line.
#pragma once

#include "exit_code.h"

#include <string>

class Console;

struct SessionOptions {
    std::string script = {}; // empty: the console, or standard input when that is no console
    std::string passwordFile = {};
    bool stopOnError = false;
    bool json = false; // each outcome, and no line that is run
};

// Runs the session to its end, that of its background dials included.
// The code is that of the first of its lines that failed.
ExitCode runSession(const SessionOptions& options, Console& console);
