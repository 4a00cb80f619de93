// What has stayed of the known peers after an init or a clean, which were to end their connections and,
// before Windows Vista, to remove their phonebooks.
#pragma once

#include "outcome.h"

#include <string>

class Console;

// A message for each peer of which something has stayed. The outcome is `done` when it is nothing.
Outcome whatStayed(const std::string& subject, const std::string& done, Console& console);
