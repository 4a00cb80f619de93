// Keys below HKEY_LOCAL_MACHINE, opened for reading and writing, and values of fixed-size buffers.
#pragma once

#include "owners.h"

// Opens `path`; the registry's code, with no key unless that is 0.
inline LSTATUS openMachineKey(const char* path, Owner<RegistryKey>& key) {
    HKEY opened = nullptr;
    const LSTATUS error = RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ | KEY_WRITE, &opened);
    if (error == ERROR_SUCCESS)
        key.reset(opened);
    return error;
}

// Reads value `name` into `buffer`, which is cleared first; its type is not looked at. The registry's code; a
// value that does not fit is an error (234). A text may come without an end, since the registry adds none.
template<std::size_t Size>
LSTATUS readValue(HKEY key, const char* name, char (&buffer)[Size]) {
    ZeroMemory(buffer, Size);
    DWORD size = Size;
    return RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size);
}
