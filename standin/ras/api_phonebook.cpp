// The exported functions that work on phonebooks: their arguments and records.
#include "standin/ras/connection_table.h"
#include "standin/ras/fixed_text.h"
#include "standin/ras/guarded.h"
#include "standin/ras/phonebook.h"
#include "standin/ras/record_sizes.h"

#include <windows.h>

#include <algorithm>

#include <ras.h>
#include <raserror.h>

using namespace standin;

namespace {

constexpr DWORD vistaMajorVersion = 6;

bool isVistaOrLater() {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    return GetVersionExA(&version) && version.dwMajorVersion >= vistaMajorVersion;
}

RASENTRYNAMEA entryNameOf(const EntryName& entry) {
    RASENTRYNAMEA name{};
    fillField(name.szEntryName, entry.name);
    name.dwFlags = isForAllUsers(entry.phonebook) ? REN_AllUsers : REN_User;
    fillField(name.szPhonebookPath, entry.phonebook);
    return name;
}

bool isPlain(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

// What an entry has to say, and in characters that a line of a phonebook can hold.
DWORD checkEntry(const RASENTRYA& entry) {
    const std::string deviceType = fieldText(entry.szDeviceType);
    const std::string number = fieldText(entry.szLocalPhoneNumber);
    if (deviceType.empty() || number.empty() || entry.dwFramingProtocol == 0 || entry.dwType == 0)
        return ERROR_INVALID_PARAMETER;
    for (const std::string& text : {deviceType, number, fieldText(entry.szDeviceName),
                                    fieldText(entry.szAreaCode), fieldText(entry.szCustomDialDll)})
        if (!isPlain(text))
            return ERROR_INVALID_PARAMETER;
    return equalNames(deviceType, "vpn") ? ERROR_SUCCESS : ERROR_DEVICETYPE_DOES_NOT_EXIST;
}

// The entry of the caller in the layout of the header; what the caller's generation does not know is zero.
DWORD takeEntry(const RASENTRYA* given, DWORD bytes, RASENTRYA& entry) {
    if (!given || bytes < sizeof given->dwSize)
        return ERROR_BUFFER_INVALID;
    if (!isKnownSize(entrySizes, given->dwSize))
        return ERROR_INVALID_SIZE;
    if (bytes < given->dwSize)
        return ERROR_BUFFER_INVALID;
    std::memset(&entry, 0, sizeof entry);
    std::memcpy(&entry, given, entryFront);
    return checkEntry(entry);
}

DWORD checkDialParams(const RASDIALPARAMSA* params) {
    if (!params)
        return ERROR_BUFFER_INVALID;
    return isKnownSize(dialParamsSizes, params->dwSize) ? ERROR_SUCCESS : ERROR_INVALID_SIZE;
}

// Takes over what the caller gives; empty texts leave the stored ones as they are.
void change(Credentials& stored, const RASDIALPARAMSA& params, bool removesPassword) {
    const auto replace = [](std::string& text, const std::string& given) {
        if (!given.empty())
            text = given;
    };
    const std::string user = fieldText(params.szUserName);
    replace(stored.user, user);
    replace(stored.domain, fieldText(params.szDomain));
    replace(stored.callbackNumber, fieldText(params.szCallbackNumber));
    std::string password = fieldText(params.szPassword);
    if (removesPassword)
        stored.sealedPassword.clear();
    else if (!user.empty() && password != passwordHandle)
        stored.sealedPassword = sealPassword(password);
    wipe(password);
}

DWORD deleteUnconnected(LPCSTR phonebook, const std::string& name) {
    EntryFacts entry;
    if (const DWORD error = findEntry(phonebook, name, entry); error != ERROR_SUCCESS)
        return error;
    const auto table = ConnectionTable::current();
    if (table && isVistaOrLater() && table->isConnected(entry))
        return ERROR_CANNOT_DELETE;
    return deleteEntry(phonebook, name);
}

} // namespace

extern "C" {

DWORD WINAPI RasEnumEntriesA(LPCSTR reserved, LPCSTR phonebook, LPRASENTRYNAMEA names, LPDWORD bytes,
                             LPDWORD count) {
    return guarded([&]() -> DWORD {
        if (reserved || !bytes || !count)
            return ERROR_INVALID_PARAMETER;
        if (names && !isKnownSize(entryNameSizes, names->dwSize))
            return ERROR_INVALID_SIZE;
        const DWORD size = names ? names->dwSize : entryNameSizes.back();
        std::vector<EntryName> entries;
        if (const DWORD error = listEntries(phonebook, entries); error != ERROR_SUCCESS)
            return error;
        *count = static_cast<DWORD>(entries.size());
        const DWORD room = *bytes;
        *bytes = *count * size;
        if (*count > 0 && (!names || room < *bytes))
            return ERROR_BUFFER_TOO_SMALL;
        for (std::size_t i = 0; i < entries.size(); ++i)
            handOut(reinterpret_cast<char*>(names) + i * size, entryNameOf(entries[i]), size,
                    sizeof(RASENTRYNAMEA));
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI RasSetEntryPropertiesA(LPCSTR phonebook, LPCSTR name, LPRASENTRYA given, DWORD bytes, LPBYTE,
                                    DWORD) {
    return guarded([&]() -> DWORD {
        if (!name)
            return ERROR_INVALID_PARAMETER;
        RASENTRYA entry{};
        if (const DWORD error = takeEntry(given, bytes, entry); error != ERROR_SUCCESS)
            return error;
        return isEntryName(name) ? writeEntry(phonebook, name, entry) : ERROR_INVALID_NAME;
    });
}

DWORD WINAPI RasGetEntryPropertiesA(LPCSTR phonebook, LPCSTR name, LPRASENTRYA target, LPDWORD bytes, LPBYTE,
                                    LPDWORD deviceBytes) {
    return guarded([&]() -> DWORD {
        if (!bytes)
            return ERROR_INVALID_PARAMETER;
        if (deviceBytes)
            *deviceBytes = 0;
        const bool hasSize = target && *bytes >= sizeof(DWORD);
        const DWORD size = hasSize ? target->dwSize : entrySizes.back();
        if (!isKnownSize(entrySizes, size))
            return ERROR_INVALID_SIZE;
        RASENTRYA entry = entryOf(Section{});
        if (name && *name)
            if (const DWORD error = readEntry(phonebook, name, entry); error != ERROR_SUCCESS)
                return error;
        const DWORD room = *bytes;
        *bytes = size;
        if (!target || room < size)
            return ERROR_BUFFER_TOO_SMALL;
        handOut(target, entry, size, entryFront);
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI RasSetEntryDialParamsA(LPCSTR phonebook, LPRASDIALPARAMSA params, WINBOOL removesPassword) {
    return guarded([&]() -> DWORD {
        if (const DWORD error = checkDialParams(params); error != ERROR_SUCCESS)
            return error;
        for (const std::string& text : {fieldText(params->szUserName), fieldText(params->szDomain),
                                        fieldText(params->szCallbackNumber)})
            if (!isPlain(text))
                return ERROR_INVALID_PARAMETER;
        return changeCredentials(phonebook, fieldText(params->szEntryName), [&](Credentials& stored) {
            change(stored, *params, removesPassword != FALSE);
        });
    });
}

DWORD WINAPI RasGetEntryDialParamsA(LPCSTR phonebook, LPRASDIALPARAMSA params, LPBOOL hasPassword) {
    return guarded([&]() -> DWORD {
        if (!hasPassword)
            return ERROR_BUFFER_INVALID;
        if (const DWORD error = checkDialParams(params); error != ERROR_SUCCESS)
            return error;
        Credentials stored;
        const DWORD error = readCredentials(phonebook, fieldText(params->szEntryName), stored);
        if (error != ERROR_SUCCESS)
            return error;
        *hasPassword = !stored.sealedPassword.empty();
        fillField(params->szPhoneNumber, {});
        fillField(params->szCallbackNumber, stored.callbackNumber);
        fillField(params->szUserName, stored.user);
        fillField(params->szPassword, *hasPassword ? passwordHandle : "");
        fillField(params->szDomain, stored.domain);
        params->dwSubEntry = 1;
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI RasDeleteEntryA(LPCSTR phonebook, LPCSTR name) {
    return guarded([&] { return name ? deleteUnconnected(phonebook, name) : ERROR_INVALID_PARAMETER; });
}

DWORD WINAPI RasRenameEntryA(LPCSTR phonebook, LPCSTR from, LPCSTR to) {
    return guarded([&] { return from && to ? renameEntry(phonebook, from, to) : ERROR_INVALID_PARAMETER; });
}

DWORD WINAPI RasValidateEntryNameA(LPCSTR phonebook, LPCSTR name) {
    return guarded([&] { return name ? validateEntryName(phonebook, name) : ERROR_INVALID_PARAMETER; });
}

} // extern "C"
