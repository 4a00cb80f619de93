#include "scripted_ras.h"

#include "complaints.h"
#include "imports.h"
#include "record_sizes.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <raserror.h>

namespace {

// A text that fills the field is left without an end.
template<std::size_t SIZE>
void fill(char (&field)[SIZE], const std::string& text) {
    std::memset(field, 0, SIZE);
    std::memcpy(field, text.data(), std::min(text.size(), SIZE));
}

std::string path(LPCSTR phoneBook) {
    return phoneBook != nullptr ? phoneBook : "";
}

bool isPrivate(const std::string& phoneBook) {
    return phoneBook.ends_with("pptp.pbk");
}

} // namespace

ScriptedRas::Dial connects(DWORD after) {
    return {.notifications = {
                {after / 3, RASCS_OpenPort}, {after / 2, RASCS_Authenticate}, {after, RASCS_Connected}}};
}
ScriptedRas::Dial connectsButReports(DWORD statusError) {
    return {.notifications = {{300, RASCS_Connected}}, .statusError = statusError};
}
ScriptedRas::Dial connectsUnreadably(DWORD statusCode) {
    return {.notifications = {{300, RASCS_Connected}}, .statusCode = statusCode};
}
ScriptedRas::Dial connectsWithoutHandle() {
    return {.notifications = {{300, RASCS_Connected}}, .givesHandle = false, .address = ""};
}
ScriptedRas::Dial fails(DWORD error, DWORD after) {
    return {.notifications = {{after / 2, RASCS_Authenticate}, {after, RASCS_Authenticate, error}},
            .statusError = error};
}
ScriptedRas::Dial failsWithoutHandle(DWORD error) {
    return {.notifications = {{300, RASCS_OpenPort, error}}, .givesHandle = false};
}
ScriptedRas::Dial refused(DWORD code) {
    return {.code = code, .givesHandle = false};
}
ScriptedRas::Dial refusedWithHandle(DWORD code) {
    return {.code = code};
}
ScriptedRas::Dial neverEnds() {
    return {.notifications = {{300, RASCS_OpenPort}}};
}

// Each function takes its code from the script first; a code other than 0 is all there is to the call then.
#define SERVED(function, parameters, call)                                                                   \
    on<function>([this] parameters {                                                                         \
        const DWORD code = scripted(function);                                                               \
        return code != 0 ? code : call;                                                                      \
    })

ScriptedRas::ScriptedRas(VirtualClock& clock_) : clock(clock_) {
    SERVED("RasDialA",
           (LPRASDIALEXTENSIONS extensions, LPCSTR book, LPRASDIALPARAMSA params, DWORD type, LPVOID notifier,
            LPHRASCONN conn),
           extensions == nullptr && type == 2 && *conn == nullptr ? dial(book, params, notifier, conn)
                                                                  : DWORD{ERROR_INVALID_PARAMETER});
    SERVED("RasHangUpA", (HRASCONN conn), hangUp(conn));
    SERVED("RasGetConnectStatusA", (HRASCONN conn, LPRASCONNSTATUSA record), status(conn, record));
    SERVED("RasGetProjectionInfoA", (HRASCONN conn, RASPROJECTION kind, LPVOID record, LPDWORD size),
           projection(conn, kind, record, size));
    SERVED("RasEnumConnectionsA", (LPRASCONNA first, LPDWORD size, LPDWORD count),
           enumerateConnections(first, size, count));
    SERVED("RasEnumEntriesA",
           (LPCSTR reserved, LPCSTR book, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count),
           reserved == nullptr ? enumerateEntries(book, first, size, count) : DWORD{ERROR_INVALID_PARAMETER});
    SERVED("RasSetEntryPropertiesA",
           (LPCSTR book, LPCSTR name, LPRASENTRYA entry, DWORD size, LPBYTE device, DWORD deviceSize),
           device == nullptr && deviceSize == 0 ? setProperties(book, name, entry, size)
                                                : DWORD{ERROR_INVALID_PARAMETER});
    SERVED("RasSetEntryDialParamsA", (LPCSTR book, LPRASDIALPARAMSA params, WINBOOL removePassword),
           setDialParams(book, params, removePassword));
    SERVED("RasGetEntryDialParamsA", (LPCSTR book, LPRASDIALPARAMSA params, LPBOOL password),
           getDialParams(book, params, password));
    SERVED("RasRenameEntryA", (LPCSTR book, LPCSTR oldName, LPCSTR newName),
           renameEntry(book, oldName, newName));
    SERVED("RasDeleteEntryA", (LPCSTR book, LPCSTR name), deleteEntry(book, name));
    SERVED("RasGetErrorStringA", (UINT error, LPSTR text, DWORD room),
           (std::snprintf(text, room, " text of %u", error), DWORD{0}));
    on<"IsFileExist">([this](const char* file) {
        const std::scoped_lock locked(lock);
        return phoneBooks.contains(file);
    });
    on<"DeleteFileA">([this](LPCSTR file) -> WINBOOL {
        const std::scoped_lock locked(lock);
        SetLastError(ERROR_FILE_NOT_FOUND);
        return phoneBooks.erase(file) != 0;
    });
}

DWORD ScriptedRas::scripted(const std::string& function) {
    const std::scoped_lock locked(lock);
    std::deque<DWORD>& coming = codes[function];
    if (coming.empty())
        return 0;
    const DWORD code = coming.front();
    coming.pop_front();
    return code;
}

ScriptedRas::Entry* ScriptedRas::findEntry(const std::string& phoneBook, const std::string& name) {
    const auto book = phoneBooks.find(phoneBook);
    if (book == phoneBooks.end())
        return nullptr;
    const auto entry = std::find_if(book->second.begin(), book->second.end(), [&name](const Entry& e) {
        return _stricmp(e.name.c_str(), name.c_str()) == 0;
    });
    return entry == book->second.end() ? nullptr : &*entry;
}

ScriptedRas::Connection* ScriptedRas::find(HRASCONN handle) {
    const auto found = std::find_if(connections.begin(), connections.end(),
                                    [handle](const Connection& c) { return c.handle == handle; });
    return found == connections.end() ? nullptr : &*found;
}

HRASCONN ScriptedRas::connect(const std::string& entryName, const std::string& phoneBook,
                              const std::string& address) {
    const auto handle = reinterpret_cast<HRASCONN>(++lastHandle);
    connections.push_back({entryName, phoneBook, address, handle});
    return handle;
}

DWORD ScriptedRas::dial(LPCSTR phoneBook, LPRASDIALPARAMSA params, LPVOID notifier, LPHRASCONN conn) {
    Dial script = connects();
    HRASCONN handle = nullptr;
    {
        const std::scoped_lock locked(lock);
        if (params->dwSize != dialParamsSize)
            return ERROR_INVALID_SIZE;
        if (!dials.empty()) {
            script = dials.front();
            dials.pop_front();
        }
        if (script.code != 0 && !script.givesHandle)
            return script.code;
        if (findEntry(path(phoneBook), params->szEntryName) == nullptr)
            return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
        handle = connect(params->szEntryName, path(phoneBook), script.address);
        Connection& connection = connections.back();
        connection.listed = false;
        connection.dialled = script.givesHandle;
        connection.lingers = lingers;
        connection.dial = script;
    }
    if (script.givesHandle)
        *conn = handle;
    if (script.code != 0)
        return script.code;
    const auto callbackId = static_cast<DWORD>(params->dwCallbackId);
    for (const Notification& notification : script.notifications)
        clock.in(notification.after, [=, this] { notify(handle, notification, callbackId, notifier); });
    return 0;
}

void ScriptedRas::notify(HRASCONN handle, const Notification& notification, DWORD callbackId,
                         LPVOID notifier) {
    {
        const std::scoped_lock locked(lock);
        Connection* const connection = find(handle);
        if (connection == nullptr || connection->hungUp)
            return;
        connection->listed = notification.state == RASCS_Connected && notification.error == 0;
    }
    try {
        const DWORD answer = reinterpret_cast<RASDIALFUNC2>(notifier)(
            callbackId, 1, handle, WM_RASDIALEVENT, static_cast<RASCONNSTATE>(notification.state),
            notification.error, notification.error2);
        const std::scoped_lock locked(lock);
        answers.push_back(answer);
    } catch (...) {
        complain("an exception passed from the notifier into the service");
    }
}

DWORD ScriptedRas::hangUp(HRASCONN conn) {
    const std::scoped_lock locked(lock);
    Connection* const connection = find(conn);
    if (connection == nullptr || connection->hungUp)
        return ERROR_INVALID_HANDLE;
    connection->hungUp = true;
    connection->listed = false;
    return 0;
}

DWORD ScriptedRas::status(HRASCONN conn, LPRASCONNSTATUSA record) {
    const std::scoped_lock locked(lock);
    Connection* const connection = find(conn);
    if (record->dwSize != statusSize)
        return ERROR_INVALID_SIZE;
    if (connection == nullptr || (connection->hungUp && connection->lingers == 0))
        return ERROR_INVALID_HANDLE;
    if (connection->hungUp) {
        --connection->lingers;
        return 0;
    }
    record->rasconnstate = RASCS_Connected;
    record->dwError = connection->dial.statusError;
    return connection->dial.statusCode;
}

DWORD ScriptedRas::projection(HRASCONN conn, RASPROJECTION kind, LPVOID record, LPDWORD size) {
    const std::scoped_lock locked(lock);
    auto* const pppIp = static_cast<RASPPPIPA*>(record);
    const Connection* const connection = find(conn);
    if (kind != RASP_PppIp || *size != pppIpSize || pppIp->dwSize != pppIpSize)
        return ERROR_INVALID_SIZE;
    if (connection == nullptr)
        return ERROR_INVALID_HANDLE;
    if (connection->address.empty())
        return ERROR_PROTOCOL_NOT_CONFIGURED;
    fill(pppIp->szIpAddress, connection->address);
    return 0;
}

DWORD ScriptedRas::enumerateConnections(LPRASCONNA first, LPDWORD size, LPDWORD count) {
    const std::scoped_lock locked(lock);
    if (first->dwSize != connSize)
        return ERROR_INVALID_SIZE;
    const auto listed =
        std::count_if(connections.begin(), connections.end(), [](const Connection& c) { return c.listed; });
    const DWORD room = *size;
    *size = static_cast<DWORD>(listed) * connSize;
    *count = static_cast<DWORD>(listed);
    if (room < *size)
        return ERROR_BUFFER_TOO_SMALL;
    char* next = reinterpret_cast<char*>(first);
    for (const Connection& connection : connections) {
        if (!connection.listed)
            continue;
        auto& record = *reinterpret_cast<RASCONNA*>(next);
        record.dwSize = connSize;
        record.hrasconn = connection.handle;
        fill(record.szEntryName, connection.entryName);
        fill(record.szPhonebook, connection.phoneBook);
        next += connSize;
    }
    return 0;
}

DWORD ScriptedRas::enumerateEntries(LPCSTR phoneBook, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
    const std::scoped_lock locked(lock);
    if (first->dwSize != entryNameSize)
        return ERROR_INVALID_SIZE;
    std::vector<RASENTRYNAMEA> names;
    for (const auto& [book, entries] : phoneBooks) {
        if (phoneBook != nullptr ? book != phoneBook : isPrivate(book))
            continue;
        for (const Entry& entry : entries) {
            RASENTRYNAMEA& name = names.emplace_back();
            name.dwSize = entryNameSize;
            fill(name.szEntryName, entry.name);
            fill(name.szPhonebookPath, book);
        }
    }
    const DWORD room = *size;
    *size = static_cast<DWORD>(names.size()) * entryNameSize;
    *count = static_cast<DWORD>(names.size());
    if (room < *size)
        return ERROR_BUFFER_TOO_SMALL;
    std::copy(names.begin(), names.end(), first);
    return 0;
}

DWORD ScriptedRas::setProperties(LPCSTR phoneBook, LPCSTR name, LPRASENTRYA entry, DWORD size) {
    const std::scoped_lock locked(lock);
    if (size != entrySize || entry->dwSize != entrySize)
        return ERROR_INVALID_SIZE;
    Entry* known = findEntry(path(phoneBook), name);
    if (known == nullptr)
        known = &phoneBooks[path(phoneBook)].emplace_back(Entry{name});
    std::memcpy(&known->properties, entry, entrySize);
    return 0;
}

DWORD ScriptedRas::setDialParams(LPCSTR phoneBook, LPRASDIALPARAMSA params, WINBOOL removePassword) {
    const std::scoped_lock locked(lock);
    if (params->dwSize != dialParamsSize)
        return ERROR_INVALID_SIZE;
    Entry* const entry = findEntry(path(phoneBook), params->szEntryName);
    if (entry == nullptr)
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    entry->userName = params->szUserName;
    entry->passwordRemoved = removePassword != FALSE;
    return 0;
}

// Stands in for a record that somebody else stored: none of it may outlive the library's own values.
DWORD ScriptedRas::getDialParams(LPCSTR phoneBook, LPRASDIALPARAMSA params, LPBOOL password) {
    const std::scoped_lock locked(lock);
    if (params->dwSize != dialParamsSize)
        return ERROR_INVALID_SIZE;
    if (findEntry(path(phoneBook), params->szEntryName) == nullptr)
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    fill(params->szUserName, "somebody else");
    fill(params->szPassword, "a stored password's stand-in");
    *password = TRUE;
    return 0;
}

DWORD ScriptedRas::renameEntry(LPCSTR phoneBook, LPCSTR oldName, LPCSTR newName) {
    const std::scoped_lock locked(lock);
    if (findEntry(path(phoneBook), newName) != nullptr)
        return ERROR_ALREADY_EXISTS;
    Entry* const entry = findEntry(path(phoneBook), oldName);
    if (entry == nullptr)
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    entry->name = newName;
    return 0;
}

DWORD ScriptedRas::deleteEntry(LPCSTR phoneBook, LPCSTR name) {
    const std::scoped_lock locked(lock);
    if (findEntry(path(phoneBook), name) == nullptr)
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    std::erase_if(phoneBooks[path(phoneBook)],
                  [name](const Entry& e) { return _stricmp(e.name.c_str(), name) == 0; });
    return 0;
}
