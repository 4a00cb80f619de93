// Separators of a path in the ANSI code page, some of which (Chinese, Japanese) have characters of two bytes
// whose second byte may be that of a backslash.
#pragma once

#include <cstddef>
#include <string>

// The length of `path` up to and with its last backslash; 0 without one.
std::size_t lengthToLastSeparator(const std::string& path);
