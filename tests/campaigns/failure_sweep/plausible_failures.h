// How the functions that the library calls fail in the field, and what the log tells of it.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

struct PlausibleFailure {
    std::string_view function;
    std::vector<DWORD> codes;
    // One of these is in a record of level 2 after such a failure: {} stands for the code, * for anything.
    // None: the log does not tell, or not always.
    std::vector<std::string_view> told = {};
    std::vector<DWORD> untold = {}; // codes that the library takes for part of its work
};

// That of `function`; one without memory when the table has none.
PlausibleFailure plausibleFailure(const std::string& function);

// Whether `line` tells of `code` in the way of `pattern`.
bool tells(const std::string& line, std::string_view pattern, DWORD code);
