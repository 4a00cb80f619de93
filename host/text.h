// Texts on their way between the program (UTF-8), Windows (UTF-16) and the library (the ANSI code page).
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Into the `room` bytes at `ansi`; how many it takes, or nothing when the code page lacks a character of the
// text or the room does not do.
std::optional<size_t> ansiFromWide(std::wstring_view wide, char* ansi, size_t room);

// Empty when the code page lacks a character of the text.
std::optional<std::string> toAnsi(const std::string& utf8);

std::wstring wideFromAnsi(const std::string& ansi);
std::string utf8FromAnsi(const std::string& ansi);

// The letters A to Z in lower case, as ids are compared.
std::string lowCase(std::string text);

// What Windows says of an error code of its own, without a full stop; empty when it has no text for it.
std::string systemMessage(unsigned long code);
