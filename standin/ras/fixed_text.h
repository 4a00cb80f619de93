// Text in the fixed-size fields of records.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace standin {

// Copies as much of `text` as fits; the rest of the field, its last character at least, becomes zero.
template<std::size_t size>
void fillField(char (&field)[size], std::string_view text) {
    const std::size_t length = text.copy(field, size - 1);
    std::memset(field + length, 0, size - length);
}

// The text of a field, whether or not it is terminated.
template<std::size_t size>
std::string fieldText(const char (&field)[size]) {
    return std::string(field, strnlen(field, size));
}

} // namespace standin
