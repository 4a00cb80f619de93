#include "lying_system.h"
#include "tests/kit/imports.h"
#include "tests/kit/record_sizes.h"

#include <raserror.h>

namespace {

constexpr DWORD shown = 6; // records that are filled with names; the others hold junk

template<std::size_t SIZE>
bool hasEnd(const char (&field)[SIZE]) {
    return strnlen(field, SIZE) < SIZE;
}

} // namespace

LyingRas::LyingRas(Lies& lies_, VirtualClock& clock_) : lies(lies_), clock(clock_) {
    on<"RasEnumConnectionsA">([this](LPRASCONNA first, LPDWORD size, LPDWORD count) {
        return enumerateConnections(first, size, count);
    });
    on<"RasEnumEntriesA">([this](LPCSTR, LPCSTR, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
        return enumerateEntries(first, size, count);
    });
    on<"RasSetEntryPropertiesA">([this](LPCSTR, LPCSTR name, LPRASENTRYA entry, DWORD size, LPBYTE, DWORD) {
        return setProperties(name, entry, size);
    });
    on<"RasSetEntryDialParamsA">(
        [this](LPCSTR, LPRASDIALPARAMSA params, WINBOOL) { return setDialParams(params); });
    on<"RasGetEntryDialParamsA">(
        [this](LPCSTR, LPRASDIALPARAMSA params, LPBOOL) { return getDialParams(params); });
    on<"RasRenameEntryA">(
        [this](LPCSTR, LPCSTR oldName, LPCSTR newName) { return rename(oldName, newName); });
    on<"RasDeleteEntryA">([this](LPCSTR, LPCSTR name) { return remove(name); });
    on<"RasDialA">([this](LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, DWORD, LPVOID notifier,
                          LPHRASCONN conn) { return dial(params, notifier, conn); });
    on<"RasHangUpA">([this](HRASCONN conn) { return hangUp(conn); });
    on<"RasGetConnectStatusA">([this](HRASCONN, LPRASCONNSTATUSA record) { return status(record); });
    on<"RasGetProjectionInfoA">([this](HRASCONN, RASPROJECTION, LPVOID record, LPDWORD size) {
        return projection(static_cast<LPRASPPPIPA>(record), size);
    });
    on<"RasGetErrorStringA">([this](UINT, LPSTR text, DWORD room) { return errorString(text, room); });
}

DWORD LyingRas::enumerateConnections(LPRASCONNA first, LPDWORD size, LPDWORD count) {
    const DWORD room = *size / connSize;
    const DWORD code = lies.code({ERROR_BUFFER_TOO_SMALL, ERROR_INVALID_SIZE, ERROR_NOT_ENOUGH_MEMORY});
    *size = lies.number();
    *count = lies.count(room);
    char* next = reinterpret_cast<char*>(first);
    for (DWORD i = 0; i < std::min(room, shown); ++i, next += connSize) {
        auto& record = *reinterpret_cast<RASCONNA*>(next);
        Lies::smear(&record, connSize);
        const HRASCONN handle = lies.handle(); // the record's own is not aligned for a reference to it
        record.hrasconn = handle;
        const std::string name = lies.fill(record.szEntryName, entryNameField, lies.entryName());
        lies.fill(record.szPhonebook, phoneBookField, "C:\\peers\\node7\\pptp.pbk");
        if (code != 0 || i >= *count)
            continue;
        lies.connections.emplace(handle, name);
        lies.entries.insert(name);
    }
    return code;
}

DWORD LyingRas::enumerateEntries(LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
    const DWORD room = *size / entryNameSize;
    const DWORD code = lies.code({ERROR_BUFFER_TOO_SMALL, ERROR_BUFFER_TOO_SMALL, ERROR_BUFFER_TOO_SMALL,
                                  ERROR_CANNOT_OPEN_PHONEBOOK});
    *size = lies.oneIn(3) ? lies.number() : lies.below(12) * entryNameSize;
    *count = lies.count(room);
    for (DWORD i = 0; i < std::min(room, shown); ++i) {
        Lies::smear(first + i, entryNameSize);
        const std::string name = lies.fill(first[i].szEntryName, entryNameField, lies.entryName());
        lies.fill(first[i].szPhonebookPath, phoneBookField, "C:\\all\\rasphone.pbk");
        if (code == 0 && i < *count)
            lies.entries.insert(name);
    }
    return code;
}

DWORD LyingRas::setProperties(LPCSTR name, LPRASENTRYA entry, DWORD size) {
    expect(size == entrySize && entry->dwSize == entrySize, "an entry of another size is written");
    expect(hasEnd(entry->szLocalPhoneNumber), "an entry's address has no end");
    expect(lies.isWanted(name), "a foreign entry is written");
    lies.entries.insert(name);
    return lies.code({ERROR_CANNOT_FIND_PHONEBOOK_ENTRY, ERROR_ACCESS_DENIED});
}

DWORD LyingRas::setDialParams(LPRASDIALPARAMSA params) {
    expect(params->dwSize == dialParamsSize && hasEnd(params->szEntryName) && hasEnd(params->szUserName),
           "dial parameters are stored without their ends or size");
    expect(lies.isWanted(params->szEntryName), "a foreign entry's user is stored");
    expect(params->szPassword[0] == '\0', "a password is stored");
    return lies.code({ERROR_CANNOT_FIND_PHONEBOOK_ENTRY});
}

DWORD LyingRas::getDialParams(LPRASDIALPARAMSA params) {
    const DWORD code = lies.code({ERROR_CANNOT_FIND_PHONEBOOK_ENTRY, ERROR_BUFFER_TOO_SMALL});
    const RASDIALPARAMSA asked = *params;
    Lies::smear(params, dialParamsSize);
    if (!lies.oneIn(3)) {
        params->dwSize = asked.dwSize;
        std::memcpy(params->szEntryName, asked.szEntryName, sizeof asked.szEntryName);
    }
    return code;
}

DWORD LyingRas::rename(LPCSTR oldName, LPCSTR newName) {
    expect(lies.isWanted(oldName) && lies.isWanted(newName), "a foreign entry is renamed");
    lies.entries.insert(newName);
    return lies.code({ERROR_ALREADY_EXISTS, ERROR_ALREADY_EXISTS, ERROR_CANNOT_FIND_PHONEBOOK_ENTRY});
}

DWORD LyingRas::remove(LPCSTR name) {
    expect(lies.isWanted(name) && lies.entries.contains(name),
           std::string("a foreign entry is deleted: ") + name);
    return lies.code({ERROR_CANNOT_FIND_PHONEBOOK_ENTRY, ERROR_ACCESS_DENIED});
}

DWORD LyingRas::dial(LPRASDIALPARAMSA params, LPVOID notifier, LPHRASCONN conn) {
    expect(params->dwSize == dialParamsSize, "dial parameters of another size");
    expect(hasEnd(params->szEntryName) && lies.isWanted(params->szEntryName), "a foreign entry is dialled");
    expect(hasEnd(params->szPhoneNumber) && hasEnd(params->szCallbackNumber) && hasEnd(params->szDomain),
           "stored dial parameters have no end");
    expect(hasEnd(params->szUserName) && lies.isWanted(params->szUserName), "another user is dialled");
    expect(hasEnd(params->szPassword) && params->szPassword == lies.password, "another password is dialled");
    const DWORD code = lies.code({ERROR_DIAL_ALREADY_IN_PROGRESS, ERROR_PORT_NOT_AVAILABLE, ERROR_FROM_DEVICE,
                                  ERROR_AUTHENTICATION_FAILURE});
    lies.codes.insert(code);
    HRASCONN const handle = lies.handle();
    if (!lies.oneIn(4)) {
        *conn = handle;
        if (handle != nullptr)
            lies.dialled.insert(handle);
    }
    static const std::vector<DWORD> states = {RASCS_OpenPort, RASCS_Authenticate, RASCS_Connected,
                                              RASCS_Disconnected};
    for (DWORD left = lies.below(4); left > 0; --left) {
        const DWORD state = lies.oneIn(5) ? lies.number() : lies.oneOf(states);
        const DWORD error = lies.code({ERROR_AUTHENTICATION_FAILURE, ERROR_DIAL_ALREADY_IN_PROGRESS});
        lies.codes.insert(error);
        clock.in(lies.oneIn(3) ? 0 : lies.below(30'000), [=, id = static_cast<DWORD>(params->dwCallbackId)] {
            reinterpret_cast<RASDIALFUNC2>(notifier)(id, 1, handle, WM_RASDIALEVENT,
                                                     static_cast<RASCONNSTATE>(state), error, 0);
        });
    }
    return code;
}

DWORD LyingRas::hangUp(HRASCONN conn) {
    expect(lies.mayHangUp(conn), "a foreign connection is hung up");
    lies.dialled.erase(conn);
    return lies.code({ERROR_INVALID_HANDLE, ERROR_NO_CONNECTION});
}

DWORD LyingRas::status(LPRASCONNSTATUSA record) {
    Lies::smear(record, statusSize);
    const DWORD code = lies.code({ERROR_INVALID_HANDLE});
    record->dwError = lies.oneIn(2) ? 0 : lies.number();
    if (code == 0)
        lies.codes.insert(record->dwError);
    else
        lies.unreadable = true;
    return code;
}

DWORD LyingRas::projection(LPRASPPPIPA record, LPDWORD size) {
    static const std::vector<std::string> addresses = {"10.7.0.2", "999.1.1.1", "1.2.3.4.5.6.7.8.9",
                                                       "0x0A.1",   "%s%n",      "-1"};
    Lies::smear(record, pppIpSize);
    lies.fill(record->szIpAddress, addressField, lies.oneOf(addresses));
    *size = lies.number();
    return lies.code({ERROR_PROTOCOL_NOT_CONFIGURED, ERROR_INVALID_HANDLE});
}

DWORD LyingRas::errorString(LPSTR text, DWORD room) {
    lies.fill(text, room, room == shortErrorField.longest + 1 ? shortErrorField : errorField,
              "the text of %s%n");
    return lies.code({ERROR_INVALID_PARAMETER});
}
