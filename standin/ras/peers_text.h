// Reading the values of peers.ini. What is wrong with a value is thrown as std::invalid_argument, in words
// for the person who wrote it.
#pragma once

#include "standin/ras/peers.h"

#include <string>
#include <string_view>

namespace standin {

inline constexpr unsigned largestTime = 24 * 3600 * 1000; // ms
inline constexpr unsigned largestCode = 99999;

[[noreturn]] void complain(const std::string& what);

std::string quoted(std::string_view text);
std::string_view trimmed(std::string_view text);

unsigned numberOf(std::string_view text, unsigned smallest, unsigned largest);
bool truthOf(std::string_view text); // yes or no
Behaviour behaviourOf(std::string_view text);

} // namespace standin
