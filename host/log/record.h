// A record of the library's log, and the times in it.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace logs {

// Local time of the computer that wrote the log; nothing of it says which zone that is.
using Time = std::chrono::sys_time<std::chrono::milliseconds>;

struct Record {
    Time time;
    unsigned process;
    unsigned thread;
    int level;
    std::string_view text;
    std::string_view line; // all of it, without its end
};

// Nothing when the line is no record. The record refers to the line.
std::optional<Record> recordOf(std::string_view line);

// Whether a line begins as a record does.
bool beginsWithDate(std::string_view line);

Time now();

// "2026-11-22 23:26:49" and "2026-11-22 23:26:49.335".
std::string toSeconds(Time time);
std::string toMilliseconds(Time time);

// What a person says of a time: "10m" (ago; s, m, h or d), "23:26[:49[.335]]" (today), "2026-11-22", or both.
// Throws UsageError.
Time timeFrom(const std::string& words);

// Takes a text apart from its left to its right.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : rest(text) {}

    // Goes behind `text` if the rest begins with it.
    bool skip(std::string_view text);
    // Goes behind the next `mark`, and gives what was before it; nothing, and does not move, without one.
    std::optional<std::string_view> until(std::string_view mark);
    // A decimal number, and goes behind it.
    std::optional<unsigned> number();

    std::string_view rest;
};

} // namespace logs
