// The exported functions that work on phonebooks: their arguments and records.
#include "standin/ras/guarded.h"
#include "standin/ras/phonebook.h"
#include "standin/ras/records.h"

#include <windows.h>

#include <algorithm>

#include <ras.h>
#include <raserror.h>

using namespace standin;

namespace {

// Whether a line of a phonebook can hold the text.
bool isPlain(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < ' '; });
}

DWORD checkEntry(const RASENTRYA* entry, DWORD bytes) {
    if (!entry || bytes < entrySize)
        return ERROR_BUFFER_INVALID;
    if (entry->dwSize != entrySize)
        return ERROR_INVALID_SIZE;
    const std::string number = fieldText(entry->szLocalPhoneNumber);
    if (number.empty() || !isPlain(number) || entry->dwFramingProtocol == 0 || entry->dwType == 0)
        return ERROR_INVALID_PARAMETER;
    return equalNames(fieldText(entry->szDeviceType), "vpn") ? ERROR_SUCCESS
                                                             : ERROR_DEVICETYPE_DOES_NOT_EXIST;
}

DWORD checkDialParams(const RASDIALPARAMSA* params) {
    if (!params)
        return ERROR_BUFFER_INVALID;
    return params->dwSize == dialParamsSize ? ERROR_SUCCESS : ERROR_INVALID_SIZE;
}

} // namespace

extern "C" {

DWORD WINAPI RasEnumEntriesA(LPCSTR reserved, LPCSTR phonebook, LPRASENTRYNAMEA names, LPDWORD bytes,
                             LPDWORD count) {
    return guarded([&]() -> DWORD {
        if (reserved)
            return ERROR_INVALID_PARAMETER;
        return enumerate<entryNameSize>(names, bytes, count,
                                        [&](auto& listed) { return listEntries(phonebook, listed); });
    });
}

DWORD WINAPI RasSetEntryPropertiesA(LPCSTR phonebook, LPCSTR name, LPRASENTRYA entry, DWORD bytes, LPBYTE,
                                    DWORD) {
    return guarded([&]() -> DWORD {
        if (!name)
            return ERROR_INVALID_PARAMETER;
        const DWORD error = checkEntry(entry, bytes);
        return error == ERROR_SUCCESS ? writeEntry(phonebook, name, *entry) : error;
    });
}

// Passwords are not stored.
DWORD WINAPI RasSetEntryDialParamsA(LPCSTR phonebook, LPRASDIALPARAMSA params, WINBOOL removesPassword) {
    return guarded([&]() -> DWORD {
        if (const DWORD error = checkDialParams(params); error != ERROR_SUCCESS)
            return error;
        const std::string user = fieldText(params->szUserName);
        if (!isPlain(user))
            return ERROR_INVALID_PARAMETER;
        if (!removesPassword)
            return ERROR_NOT_SUPPORTED;
        return writeUser(phonebook, fieldText(params->szEntryName), user);
    });
}

DWORD WINAPI RasGetEntryDialParamsA(LPCSTR phonebook, LPRASDIALPARAMSA params, LPBOOL hasPassword) {
    return guarded([&]() -> DWORD {
        if (!hasPassword)
            return ERROR_BUFFER_INVALID;
        if (const DWORD error = checkDialParams(params); error != ERROR_SUCCESS)
            return error;
        std::string user;
        const DWORD error = readUser(phonebook, fieldText(params->szEntryName), user);
        if (error != ERROR_SUCCESS)
            return error;
        *hasPassword = FALSE;
        fillField(params->szPhoneNumber, {});
        fillField(params->szCallbackNumber, {});
        fillField(params->szUserName, user);
        fillField(params->szPassword, {});
        fillField(params->szDomain, {});
        params->dwSubEntry = 1;
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI RasDeleteEntryA(LPCSTR phonebook, LPCSTR name) {
    return guarded([&] { return name ? deleteEntry(phonebook, name) : ERROR_INVALID_PARAMETER; });
}

DWORD WINAPI RasRenameEntryA(LPCSTR phonebook, LPCSTR from, LPCSTR to) {
    return guarded([&] { return from && to ? renameEntry(phonebook, from, to) : ERROR_INVALID_PARAMETER; });
}

} // extern "C"
