// What a person says of a peer, checked before the library sees it. A UsageError tells what is wrong.
#pragma once

#include <string>

// The id in the ANSI code page, in its own letter case.
std::string checkedId(const std::string& utf8);

// The IPv4 address in host byte order: four decimal numbers and nothing else.
unsigned long checkedAddress(const std::string& text);

// Makes the peer's folder in the working folder, which marks the peer as a known one and holds its phonebook.
// A failure throws std::filesystem::filesystem_error.
void makeFolder(const std::string& id);
