// What init() tells a person who must correct something: several lines, in Chinese or English.
#pragma once

#include <windows.h>

#include <string>

// The port-redirect driver could not be installed.
std::wstring driverMessage(bool chinese);

// A service that remote access needs could not be enabled.
std::wstring tapiSrvMessage(bool chinese);
std::wstring rasManMessage(bool chinese);

// TCP port 1723 is taken, by process `pid` unless that is 0. A name too long for the line is cut.
std::wstring portMessage(bool chinese, DWORD pid, const std::wstring& processName);
