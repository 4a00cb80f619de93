// The sizes by which callers of different Windows generations know the records of the remote-access client.
//
// A caller says its generation by dwSize. What is common to all generations is the front of a record, so a
// record is always built in the layout of the toolchain's header and handed out in as many bytes as the
// caller knows.
#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include <ras.h>

namespace standin {

inline constexpr std::array<DWORD, 3> connectionSizes{696, 708, 724};
inline constexpr std::array<DWORD, 2> statusSizes{288, 332};
inline constexpr std::array<DWORD, 3> dialParamsSizes{1064, 1068, 1076};
inline constexpr std::array<DWORD, 2> entryNameSizes{264, 532};
inline constexpr std::array<DWORD, 2> entrySizes{2088, 2884};
inline constexpr std::array<DWORD, 3> projectionSizes{24, 40, 48};

// The bytes of each record that every generation of callers shares and that are therefore filled.
inline constexpr DWORD connectionFront = 696;
inline constexpr DWORD statusFront = 288;
inline constexpr DWORD dialParamsFront = 1064;
inline constexpr DWORD entryFront = 2088;

static_assert(sizeof(RASCONNA) == 708 && offsetof(RASCONNA, dwFlags) == connectionFront);
static_assert(offsetof(RASCONNA, szPhonebook) == 415 && offsetof(RASCONNA, guidEntry) == 680);
static_assert(sizeof(RASCONNSTATUSA) == statusFront);
static_assert(sizeof(RASDIALPARAMSA) == dialParamsFront && offsetof(RASDIALPARAMSA, dwCallbackId) == 1056);
static_assert(sizeof(RASENTRYNAMEA) == 532 && offsetof(RASENTRYNAMEA, dwFlags) == 264);
static_assert(sizeof(RASENTRYA) == 2884 && offsetof(RASENTRYA, dwfOptions2) == entryFront);
static_assert(offsetof(RASENTRYA, szDeviceName) == 989 && offsetof(RASENTRYA, dwVpnStrategy) == 2084);
static_assert(sizeof(RASPPPIPA) == 48 && offsetof(RASPPPIPA, szServerIpAddress) == 24 &&
              offsetof(RASPPPIPA, dwOptions) == 40);

template<std::size_t count>
bool isKnownSize(const std::array<DWORD, count>& sizes, DWORD size) {
    return std::find(sizes.begin(), sizes.end(), size) != sizes.end();
}

// Hands `record` out at `target` in the caller's `size`: at most `front` bytes of it, the rest zero.
template<class Record>
void handOut(void* target, Record record, DWORD size, DWORD front) {
    record.dwSize = size;
    const DWORD filled = std::min(size, front);
    std::memcpy(target, &record, filled);
    std::memset(static_cast<char*>(target) + filled, 0, size - filled);
}

} // namespace standin
