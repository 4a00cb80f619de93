// The lines of a session.
#pragma once

#include <string>
#include <vector>

struct SessionLine {
    std::vector<std::string> words; // none in a blank line or a comment
    bool inBackground = false;      // the last word was a bare &
};

// Blanks part the words, but for those between double quotes. A line that begins with # is a comment.
// A quote without its fellow throws a UsageError.
SessionLine parseLine(const std::string& line);
