// The codes of a failed dial in words.
#pragma once

#include "exit_code.h"

#include <string>

// The code and what it means: "error 691, ...".
std::string describe(unsigned long code);

// What a person can do about it; empty when there is nothing to advise.
std::string adviceOn(unsigned long code);

// Whether `code` tells of the service itself or of this dial.
ExitCode exitCodeOf(unsigned long code);
