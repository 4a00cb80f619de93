// Sizes in bytes of the service's narrow records, as callers built for Windows 2000 know them.
#pragma once

#include <windows.h>

inline constexpr DWORD connSize = 696;
inline constexpr DWORD entryNameSize = 532;
inline constexpr DWORD entrySize = 2088;
inline constexpr DWORD dialParamsSize = 1064;
inline constexpr DWORD statusSize = 288;
inline constexpr DWORD pppIpSize = 48;
