// The remote-access service's records in their Windows 2000 layouts, which every later system still takes.
// The headers' own records may be longer, so the sizes sent are named here and never taken from sizeof.
#pragma once

#include "fields.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <ras.h>

#include <string>

inline constexpr DWORD rasEntrySize = 2088;
inline constexpr DWORD rasDialParamsSize = 1064;
inline constexpr DWORD rasEntryNameSize = 532;
inline constexpr DWORD rasConnSize = 696;
inline constexpr DWORD rasConnStatusSize = 288;
inline constexpr DWORD rasPppIpSize = 48;

static_assert(sizeof(RASENTRYA) >= rasEntrySize);
static_assert(offsetof(RASENTRYA, szLocalPhoneNumber) == 27);
static_assert(offsetof(RASENTRYA, dwfNetProtocols) == 184);
static_assert(offsetof(RASENTRYA, szDeviceType) == 972);
static_assert(offsetof(RASENTRYA, dwIdleDisconnectSeconds) == 1792);
static_assert(offsetof(RASENTRYA, dwEncryptionType) == 1800);
static_assert(offsetof(RASENTRYA, dwVpnStrategy) + sizeof(DWORD) == rasEntrySize);

static_assert(sizeof(RASDIALPARAMSA) == rasDialParamsSize);
static_assert(offsetof(RASDIALPARAMSA, szUserName) == 519);
static_assert(offsetof(RASDIALPARAMSA, szPassword) == 776);
static_assert(offsetof(RASDIALPARAMSA, dwCallbackId) == 1056);

static_assert(sizeof(RASENTRYNAMEA) == rasEntryNameSize);
static_assert(offsetof(RASENTRYNAMEA, szPhonebookPath) == 268);

static_assert(sizeof(RASCONNA) >= rasConnSize);
static_assert(offsetof(RASCONNA, hrasconn) == 4);
static_assert(offsetof(RASCONNA, szEntryName) == 12);
static_assert(offsetof(RASCONNA, szPhonebook) == 415);
static_assert(offsetof(RASCONNA, guidEntry) + sizeof(GUID) == rasConnSize);

static_assert(sizeof(RASCONNSTATUSA) == rasConnStatusSize);
static_assert(offsetof(RASCONNSTATUSA, dwError) == 8);

static_assert(sizeof(RASPPPIPA) == rasPppIpSize);
static_assert(offsetof(RASPPPIPA, szIpAddress) == 8);

// The phonebook argument of the service's functions: none for an
// empty path, which means the default phonebooks.
inline const char* phoneBookArgument(const std::string& phoneBook) {
    return phoneBook.empty() ? nullptr : phoneBook.c_str();
}
