#include "outside/Helper.h"

#include <windows.h>

#include <vector>

#include <winver.h>

unsigned long long GetFileVersion(const std::string& path) {
    DWORD unused = 0;
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), &unused);
    if (size == 0)
        return 0;
    std::vector<BYTE> record(size);
    if (!GetFileVersionInfoA(path.c_str(), 0, size, record.data()))
        return 0;
    void* found = nullptr;
    UINT length = 0;
    if (!VerQueryValueA(record.data(), "\\", &found, &length) || length < sizeof(VS_FIXEDFILEINFO))
        return 0;
    const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(found);
    if (fixed.dwSignature != VS_FFI_SIGNATURE)
        return 0;
    return static_cast<unsigned long long>(fixed.dwFileVersionMS) << 32 | fixed.dwFileVersionLS;
}
