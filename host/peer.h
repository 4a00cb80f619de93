// What a person says of a peer, checked before the library sees it. A UsageError tells what is wrong.
#pragma once

#include <string>

// The id, in its own letter case; all its characters are ASCII.
std::string checkedId(const std::string& text);

// The IPv4 address in host byte order: four decimal numbers and nothing else.
unsigned long checkedAddress(const std::string& text);
