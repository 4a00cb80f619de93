#include "outside/log/settings.h"

#include <windows.h>

#include <algorithm>
#include <climits>
#include <cwchar>
#include <filesystem>
#include <optional>

#include <shlobj.h>

// The linker's name for the first byte of the module that this code is in.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace logging {
namespace {

constexpr long defaultLevel = 2;
constexpr long defaultFileKiB = 1024;
constexpr long maxFileKiB = 1024 * 1024;
constexpr long defaultFiles = 5;
constexpr long maxFiles = 100;

std::filesystem::path modulePath(HMODULE module) {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(2 * path.size());
    }
}

std::wstring environment(const wchar_t* name) {
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    value.resize(length < value.size() ? length : 0);
    return value;
}

std::wstring configured(const wchar_t* key) {
    static constexpr DWORD maxValue = 1024; // characters
    const auto file = modulePath(reinterpret_cast<HMODULE>(&__ImageBase)).replace_filename(L"Log.ini");
    std::wstring value(maxValue, L'\0');
    value.resize(GetPrivateProfileStringW(L"log", key, L"", value.data(), maxValue, file.c_str()));
    return value;
}

// The number that is all of `text`.
std::optional<long> number(const std::wstring& text) {
    wchar_t* end = nullptr;
    const long value = std::wcstol(text.c_str(), &end, 10);
    if (text.empty() || *end != L'\0')
        return std::nullopt;
    return value;
}

long configuredNumber(const wchar_t* key, long otherwise, long most) {
    return std::clamp(number(configured(key)).value_or(otherwise), 1L, most);
}

// Empty when the computer has no such folder.
std::wstring defaultPath() {
    wchar_t folder[MAX_PATH] = L"";
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder)))
        return {};
    return folder + (L"\\Tavik\\log\\" + modulePath(nullptr).stem().wstring() + L".log");
}

} // namespace

long startLevel() {
    if (const auto level = number(environment(L"TAVIK_LOG_LEVEL")))
        return *level;
    return number(configured(L"level")).value_or(defaultLevel);
}

FileSettings fileSettings() {
    std::wstring path = environment(L"TAVIK_LOG_FILE");
    if (path.empty())
        path = configured(L"file");
    if (path.empty())
        path = defaultPath();
    const long kiB = configuredNumber(L"size", defaultFileKiB, maxFileKiB);
    const long files = configuredNumber(L"files", defaultFiles, maxFiles);
    return {path, static_cast<std::size_t>(kiB) * 1024, static_cast<std::size_t>(files)};
}

} // namespace logging
