// The lines of a session.
#pragma once

#include <string>
#include <vector>

struct SessionLine {
    std::vector<std::string> words;
    bool inBackground = false; // the last word was a bare &
};

// False for a blank line and for a comment, which begins with #.
bool isCommand(const std::string& line);

// Blanks part the words, but for those between double quotes. A quote without its fellow throws a UsageError.
SessionLine parseLine(const std::string& line);
