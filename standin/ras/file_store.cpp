#include "standin/ras/file_store.h"

#include "standin/ras/handles.h"

namespace standin {
namespace {

constexpr std::uint64_t settlingTime = 1'000'000; // 100 ms in units of 100 ns
constexpr std::uint64_t largestFile = 16 << 20;   // bytes; no phonebook comes near

std::uint64_t joined(DWORD high, DWORD low) {
    return (std::uint64_t{high} << 32) | low;
}

DWORD writeNewFile(const std::string& path, std::string_view content) {
    const Handle file = owned(
        CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return GetLastError();
    DWORD written = 0;
    if (!WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr))
        return GetLastError();
    if (written != content.size())
        return ERROR_DISK_FULL;
    return FlushFileBuffers(file.get()) ? ERROR_SUCCESS : GetLastError();
}

} // namespace

DWORD readFile(const std::string& path, std::string& content) {
    const Handle file =
        owned(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return GetLastError();
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.get(), &size))
        return GetLastError();
    if (static_cast<std::uint64_t>(size.QuadPart) > largestFile)
        return ERROR_FILE_TOO_LARGE;
    content.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    if (!ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &read, nullptr))
        return GetLastError();
    content.resize(read);
    return ERROR_SUCCESS;
}

DWORD replaceFile(const std::string& path, std::string_view content) {
    // Not every system looks at this before it moves a file over another.
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY))
        return ERROR_ACCESS_DENIED;
    const std::string fresh = path + ".tmp";
    if (const DWORD error = writeNewFile(fresh, content); error != ERROR_SUCCESS)
        return error;
    if (MoveFileExA(fresh.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    DeleteFileA(fresh.c_str());
    return error;
}

FileStamp FileStamp::of(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data))
        return {};
    return {true, joined(data.nFileSizeHigh, data.nFileSizeLow),
            joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
}

bool FileStamp::isSettled() const {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return joined(now.dwHighDateTime, now.dwLowDateTime) >= written + settlingTime;
}

} // namespace standin
