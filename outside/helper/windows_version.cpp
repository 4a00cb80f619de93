#include "outside/Helper.h"

#include <windows.h>

extern "C" LONG NTAPI RtlGetVersion(RTL_OSVERSIONINFOW* version);

namespace {

// From ntdll, because GetVersionEx tells a program only the newest version that its manifest names.
RTL_OSVERSIONINFOEXW windowsVersion() {
    RTL_OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
    RtlGetVersion(reinterpret_cast<RTL_OSVERSIONINFOW*>(&version));
    return version;
}

bool isVersion(const RTL_OSVERSIONINFOEXW& version, DWORD major, DWORD minor) {
    return version.dwMajorVersion == major && version.dwMinorVersion == minor;
}

} // namespace

bool IsWin2K() {
    return isVersion(windowsVersion(), 5, 0);
}

bool IsWinXP() {
    const auto version = windowsVersion();
    return isVersion(version, 5, 1) ||
           (isVersion(version, 5, 2) && version.wProductType == VER_NT_WORKSTATION);
}

bool IsWin6Plus() {
    return windowsVersion().dwMajorVersion >= 6;
}

bool GetIs64Os() {
    constexpr WORD arm64 = 12;
    SYSTEM_INFO system{};
    GetNativeSystemInfo(&system);
    const WORD processor = system.wProcessorArchitecture;
    return processor == PROCESSOR_ARCHITECTURE_AMD64 || processor == PROCESSOR_ARCHITECTURE_IA64 ||
           processor == arm64;
}

bool IsChineseOs() {
    return PRIMARYLANGID(GetSystemDefaultUILanguage()) == LANG_CHINESE;
}
