// Text fields of fixed size in the system's records and buffers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

// Fills a text field; what does not fit is left out and the end is always marked. Callers refuse longer texts
// first.
template<std::size_t SIZE>
void copyToField(char (&field)[SIZE], const std::string& text) {
    const std::size_t length = std::min(text.size(), SIZE - 1);
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

// Makes the last character of a field that the system filled its end, in case the system left none.
template<std::size_t SIZE>
void endField(char (&field)[SIZE]) {
    field[SIZE - 1] = '\0';
}

// The text of a field that the system filled.
template<std::size_t SIZE>
std::string textOfField(char (&field)[SIZE]) {
    endField(field);
    return field;
}
