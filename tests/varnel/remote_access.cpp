// The remote-access service: phonebooks, entries, connections, and dials that go as the play's course says.
#include "computer.h"
#include "imports.h"
#include "privates.h"

#include <ranges>

#include <raserror.h>

namespace {

constexpr DWORD connSize = 696, entryNameSize = 532, entrySize = 2088, dialParamsSize = 1064,
                statusSize = 288, pppIpSize = 48;

std::string factOf(LPCSTR phoneBook, const std::string& name) {
    return fmt::format("entry {} {}", phoneBook != nullptr ? phoneBook : "-", name); // "-": the user's own
}

void notify(HRASCONN handle, long state, DWORD error, DWORD extended, DWORD callbackId, LPVOID notifier) {
    Connection& connection = *theComputer().find(handle);
    if (connection.hungUp)
        return;
    connection.listed = state == RASCS_Connected && error == 0;
    const bool goesOn = error == 0 && state != RASCS_Connected && state != RASCS_Disconnected &&
                        privates::items.contains(callbackId);
    try {
        if (reinterpret_cast<RASDIALFUNC2>(notifier)(callbackId, 1, handle, WM_RASDIALEVENT,
                                                     static_cast<RASCONNSTATE>(state), error,
                                                     extended) != (goesOn ? 1U : 0U))
            complain("the notifier gives the wrong answer to state " + std::to_string(state));
    } catch (...) {
        complain("an exception passed from the notifier into the service");
    }
}

// A course says "refused CODE" of the dial itself, "handleless" or, when it is refused, "handle"; "silent",
// or "fails ERROR", "extended ERROR" or "disconnects" of its end, which comes "after MS"; "reports ERROR" or
// "unreadable CODE" of later status queries, "lingers N" of those that find it after its hang-up.
DWORD dial(LPRASDIALEXTENSIONS extensions, LPCSTR phoneBook, LPRASDIALPARAMSA params, DWORD type,
           LPVOID notifier, LPHRASCONN conn) {
    Computer& computer = theComputer();
    computer.passwordPlace = params->szPassword;
    if (extensions != nullptr || type != 2 || *conn != nullptr || params->dwSize != dialParamsSize)
        return ERROR_INVALID_SIZE;
    std::string course;
    if (!computer.dials.empty()) {
        course = computer.dials.front();
        computer.dials.pop_front();
    }
    const DWORD code = numberAfter(course, "refused");
    const bool givesHandle = code == 0 ? !says(course, "handleless") : says(course, "handle");
    if (code == 0 && !facts().has(factOf(phoneBook, params->szEntryName)))
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    if (code != 0 && !givesHandle)
        return code;
    computer.apply(fmt::format("up {} = {}", params->szEntryName, phoneBook != nullptr ? phoneBook : "-"));
    Connection& connection = computer.connections.back();
    connection.listed = false;
    connection.dialled = givesHandle;
    connection.course = course;
    if (givesHandle)
        *conn = connection.handle;
    if (code != 0)
        return code;
    const auto at = [=, &computer, handle = connection.handle, id = static_cast<DWORD>(params->dwCallbackId)](
                        DWORD ms, long state, DWORD error, DWORD extended) {
        computer.clock.in(ms, [=] { notify(handle, state, error, extended, id, notifier); });
    };
    const DWORD after = numberAfter(course, "after", 300), error = numberAfter(course, "fails");
    at(after / 3, RASCS_OpenPort, 0, 0);
    if (says(course, "silent"))
        return 0;
    at(after / 2, RASCS_Authenticate, 0, 0);
    const RASCONNSTATE end = error != 0 ? RASCS_Authenticate : RASCS_Connected;
    at(after, says(course, "disconnects") ? RASCS_Disconnected : end, error, numberAfter(course, "extended"));
    return 0;
}

DWORD hangUp(HRASCONN conn) {
    Connection* const connection = theComputer().find(conn);
    if (connection != nullptr && connection->hungUp && connection->dialled)
        complain("a dialled connection is hung up twice");
    if (connection == nullptr || connection->hungUp)
        return ERROR_INVALID_HANDLE;
    connection->hungUp = true;
    connection->listed = false;
    return 0;
}

DWORD status(HRASCONN conn, LPRASCONNSTATUSA record) {
    Connection* const connection = theComputer().find(conn);
    if (record->dwSize != statusSize)
        return ERROR_INVALID_SIZE;
    if (connection == nullptr)
        return ERROR_INVALID_HANDLE;
    if (connection->hungUp)
        return countDown(connection->course, "lingers") ? 0 : ERROR_INVALID_HANDLE;
    record->dwError = answers::number(numberAfter(connection->course, "reports"));
    return numberAfter(connection->course, "unreadable");
}

DWORD projection(HRASCONN conn, RASPROJECTION kind, LPVOID record, LPDWORD size) {
    auto* const pppIp = static_cast<RASPPPIPA*>(record);
    const Connection* const connection = theComputer().find(conn);
    if (kind != RASP_PppIp || *size != pppIpSize || pppIp->dwSize != pppIpSize)
        return ERROR_INVALID_SIZE;
    if (connection == nullptr || connection->address == "-" || says(connection->course, "silent"))
        return ERROR_PROTOCOL_NOT_CONFIGURED;
    answers::fill(pppIp->szIpAddress, connection->address);
    return 0;
}

// Hands a list over: how long it is, and when there is room, a record of each.
template<class RECORD>
DWORD handOver(auto list, DWORD recordSize, RECORD* first, LPDWORD size, LPDWORD count, auto write) {
    if (first->dwSize != recordSize)
        return ERROR_INVALID_SIZE;
    const auto there = static_cast<DWORD>(std::ranges::distance(list));
    *count = answers::number(there);
    if (std::exchange(*size, there * recordSize) < there * recordSize)
        return ERROR_BUFFER_TOO_SMALL;
    for (char* place = reinterpret_cast<char*>(first); const auto& item : list)
        write(*reinterpret_cast<RECORD*>(std::exchange(place, place + recordSize)), item);
    return 0;
}

DWORD enumerateConnections(LPRASCONNA first, LPDWORD size, LPDWORD count) {
    return handOver(theComputer().connections | std::views::filter(&Connection::listed), connSize, first,
                    size, count, &answers::show);
}

// Without a phonebook those of the user and of all users are listed, with their places.
DWORD enumerateEntries(LPCSTR, LPCSTR phoneBook, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
    const auto bookOf = [](const std::string& entry) { return entry.substr(0, entry.find(' ')); };
    std::vector<std::string> entries = facts().endings("entry ");
    std::erase_if(entries, [&](const std::string& entry) {
        return phoneBook != nullptr ? bookOf(entry) != phoneBook : bookOf(entry).ends_with("pptp.pbk");
    });
    return handOver(entries, entryNameSize, first, size, count,
                    [&](RASENTRYNAMEA& record, const auto& entry) {
                        record.dwSize = entryNameSize;
                        answers::fill(record.szEntryName, entry.substr(entry.find(' ') + 1));
                        answers::fill(record.szPhonebookPath, entry.starts_with("- ") ? "" : bookOf(entry));
                    });
}

// Facts keep an entry as "USER at ADDRESS OPTIONS/ENCRYPTION/STRATEGY", or with every number in the record
// that is not 0, by its place.
DWORD setEntry(LPCSTR phoneBook, LPCSTR name, LPRASENTRYA entry, DWORD size, LPBYTE, DWORD) {
    if (size != entrySize || entry->dwSize != entrySize)
        return ERROR_INVALID_SIZE;
    const std::string before = facts().get(factOf(phoneBook, name));
    std::string now = before.empty() ? "nobody" : before.substr(0, before.find(' '));
    now += fmt::format(" at {}", entry->szLocalPhoneNumber);
    const auto* const numbers = reinterpret_cast<const DWORD*>(entry);
    for (std::size_t i = 0; facts().has("whole records") && i < entrySize / sizeof(DWORD); ++i)
        if (numbers[i] != 0)
            now += fmt::format(" {}:{:X}", i * sizeof(DWORD), numbers[i]);
    if (!facts().has("whole records"))
        now += fmt::format(" {:X}/{}/{}", entry->dwfOptions, entry->dwEncryptionType, entry->dwVpnStrategy);
    facts().set(factOf(phoneBook, name), now);
    return 0;
}

DWORD setUser(LPCSTR phoneBook, LPRASDIALPARAMSA params, WINBOOL removePassword) {
    if (params->dwSize != dialParamsSize || removePassword == FALSE || params->szPassword[0] != '\0')
        return ERROR_INVALID_SIZE;
    std::string* const entry = facts().find(factOf(phoneBook, params->szEntryName));
    if (entry == nullptr)
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    *entry = params->szUserName + entry->substr(entry->find(" at "));
    return 0;
}

// Somebody else stored these: none of it may outlive the library's own values.
DWORD getUser(LPCSTR phoneBook, LPRASDIALPARAMSA params, LPBOOL password) {
    if (params->dwSize != dialParamsSize)
        return ERROR_INVALID_SIZE;
    if (!facts().has(factOf(phoneBook, params->szEntryName)))
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    answers::fill(params->szUserName, "somebody else");
    answers::fill(params->szPassword, "a stored password's stand-in");
    answers::fill(params->szDomain, "");
    params->dwSize = answers::number(params->dwSize);
    if (answers::lie)
        answers::fill(params->szEntryName, "");
    *password = TRUE;
    return 0;
}

DWORD renameEntry(LPCSTR phoneBook, LPCSTR oldName, LPCSTR newName) {
    if (facts().has(factOf(phoneBook, newName)))
        return ERROR_ALREADY_EXISTS;
    const std::string entry = facts().get(factOf(phoneBook, oldName));
    if (!facts().erase(factOf(phoneBook, oldName)))
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    facts().set(factOf(phoneBook, newName), entry);
    return 0;
}

DWORD deleteEntry(LPCSTR phoneBook, LPCSTR name) {
    return facts().erase(factOf(phoneBook, name)) ? 0 : ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
}

DWORD errorString(UINT error, LPSTR text, DWORD room) {
    answers::fill(text, room, fmt::format(" text of {}", error));
    return 0;
}

} // namespace

void answerForRemoteAccess() {
    on<"RasDialA">(&dial);
    on<"RasHangUpA">(&hangUp);
    on<"RasGetConnectStatusA">(&status);
    on<"RasGetProjectionInfoA">(&projection);
    on<"RasEnumConnectionsA">(&enumerateConnections);
    on<"RasEnumEntriesA">(&enumerateEntries);
    on<"RasSetEntryPropertiesA">(&setEntry);
    on<"RasSetEntryDialParamsA">(&setUser);
    on<"RasGetEntryDialParamsA">(&getUser);
    on<"RasRenameEntryA">(&renameEntry);
    on<"RasDeleteEntryA">(&deleteEntry);
    on<"RasGetErrorStringA">(&errorString);
}
