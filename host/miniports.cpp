#include "miniports.h"

#include "owners.h"

#include <string>

namespace {

constexpr const wchar_t* adapterClass =
    L"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}";

Key openKey(HKEY parent, const wchar_t* path) {
    HKEY key = nullptr;
    return Key(RegOpenKeyExW(parent, path, 0, KEY_READ, &key) == ERROR_SUCCESS ? key : nullptr);
}

std::optional<DWORD> readNumber(HKEY key, const wchar_t* name) {
    DWORD number = 0;
    DWORD size = sizeof number;
    DWORD type = REG_NONE;
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size) !=
            ERROR_SUCCESS ||
        type != REG_DWORD)
        return std::nullopt;
    return number;
}

std::wstring readText(HKEY key, const wchar_t* name) {
    wchar_t text[256] = L"";
    DWORD size = sizeof text - sizeof *text;
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size) != ERROR_SUCCESS)
        return {};
    return text;
}

} // namespace

std::optional<Miniport> findMiniport(const wchar_t* deviceId) {
    const Key adapters = openKey(HKEY_LOCAL_MACHINE, adapterClass);
    wchar_t subkey[256] = L"";
    DWORD length = ARRAYSIZE(subkey);
    for (DWORD i = 0; adapters && RegEnumKeyExW(adapters.get(), i, subkey, &length, nullptr, nullptr, nullptr,
                                                nullptr) == ERROR_SUCCESS;
         ++i, length = ARRAYSIZE(subkey)) {
        const Key adapter = openKey(adapters.get(), subkey);
        if (adapter && _wcsicmp(readText(adapter.get(), L"MatchingDeviceId").c_str(), deviceId) == 0)
            return Miniport{.ports = readNumber(adapter.get(), L"WanEndpoints"),
                            .mostPorts = readNumber(adapter.get(), L"MaxWanEndpoints")};
    }
    return std::nullopt;
}
