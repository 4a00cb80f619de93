// The records of the remote-access client: the one size of each that callers send, and their fields' text.
//
// The sizes are those of Windows 2000, which every later system takes. The toolchain's headers may have
// longer records, whose front these are.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstring>

#include <ras.h>
#include <raserror.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace standin {

inline constexpr DWORD connectionSize = 696;
inline constexpr DWORD statusSize = 288;
inline constexpr DWORD dialParamsSize = 1064;
inline constexpr DWORD entryNameSize = 532;
inline constexpr DWORD entrySize = 2088;
inline constexpr DWORD projectionSize = 48;

static_assert(sizeof(RASCONNA) >= connectionSize && offsetof(RASCONNA, szPhonebook) == 415);
static_assert(offsetof(RASCONNA, guidEntry) + sizeof(GUID) == connectionSize);
static_assert(sizeof(RASCONNSTATUSA) == statusSize);
static_assert(sizeof(RASDIALPARAMSA) == dialParamsSize && offsetof(RASDIALPARAMSA, dwCallbackId) == 1056);
static_assert(sizeof(RASENTRYNAMEA) == entryNameSize && offsetof(RASENTRYNAMEA, szPhonebookPath) == 268);
static_assert(sizeof(RASENTRYA) >= entrySize && offsetof(RASENTRYA, szDeviceName) == 989);
static_assert(offsetof(RASENTRYA, dwVpnStrategy) + sizeof(DWORD) == entrySize);
static_assert(sizeof(RASPPPIPA) == projectionSize && offsetof(RASPPPIPA, szServerIpAddress) == 24);

// Copies as much of `text` as fits; the rest of the field, its last character at least, becomes zero.
template<std::size_t size>
void fillField(char (&field)[size], std::string_view text) {
    const std::size_t length = text.copy(field, size - 1);
    std::memset(field + length, 0, size - length);
}

// The text of a field, whether or not it is terminated.
template<std::size_t size>
std::string fieldText(const char (&field)[size]) {
    return std::string(field, strnlen(field, size));
}

// What the enumerations have in common. `list` fills a vector of records, which go to the caller's buffer one
// behind the other, `size` bytes of each.
template<DWORD size, class Record, class List>
DWORD enumerate(Record* target, LPDWORD bytes, LPDWORD count, List list) {
    if (!bytes || !count)
        return ERROR_INVALID_PARAMETER;
    if (target && target->dwSize != size)
        return ERROR_INVALID_SIZE;
    std::vector<Record> records;
    if (const DWORD error = list(records); error != ERROR_SUCCESS)
        return error;
    *count = static_cast<DWORD>(records.size());
    const DWORD room = std::exchange(*bytes, *count * size);
    if (!target || room < *bytes)
        return records.empty() ? ERROR_SUCCESS : ERROR_BUFFER_TOO_SMALL;
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i].dwSize = size;
        std::memcpy(reinterpret_cast<char*>(target) + i * size, &records[i], size);
    }
    return ERROR_SUCCESS;
}

} // namespace standin
