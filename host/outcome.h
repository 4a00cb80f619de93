// What came of a command, and the one place that tells it.
#pragma once

#include "exit_code.h"

#include <string>

class Console;

struct Outcome {
    ExitCode exit;
    std::string subject;     // the peer, or the command itself
    std::string text;        // what is so now
    unsigned long error = 0; // the code of the service or of Windows, if that is why
    std::string advice = {}; // what a person can do; that for the error when empty
};

// Whether the error tells of the service itself or of this dial.
ExitCode exitCodeOf(unsigned long code);

// The error decides the exit code.
Outcome failure(const std::string& subject, const std::string& text, unsigned long error);

// The outcome is a line of results, the advice a message.
ExitCode tell(const Outcome& outcome, Console& console);
