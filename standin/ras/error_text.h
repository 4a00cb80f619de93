// What the codes of remote access mean, in words.
#pragma once

#include <windows.h>

#include <string>

namespace standin {

inline constexpr DWORD lastErrorCode = 899; // the first is RASBASE, 600

// Without a line end; empty for a code that is not one of remote access.
std::string errorText(DWORD code);

} // namespace standin
