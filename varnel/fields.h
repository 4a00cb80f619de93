// Text fields of fixed size in the system's records and buffers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

// Fills a text field; what does not fit is left out and the end is
// always marked. Callers refuse longer texts first.
template<std::size_t Size>
void copyToField(char (&field)[Size], const std::string& text) {
    const std::size_t length = std::min(text.size(), Size - 1);
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

// Makes the last character of a field that the system filled its end, in case the system left none.
template<std::size_t Size>
void endField(char (&field)[Size]) {
    field[Size - 1] = '\0';
}

// The text of a field that the system filled. Its last character never counts: the system may leave no end.
template<std::size_t Size>
std::string textOfField(const char (&field)[Size]) {
    return {field, strnlen(field, Size - 1)};
}
