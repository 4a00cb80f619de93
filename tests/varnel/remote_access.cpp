// The remote-access service: phonebooks, entries, connections, and dials that go as the play's course says.
#include "computer.h"
#include "privates.h"

#include <ranges>

#include <raserror.h>

namespace {

constexpr DWORD connSize = 696, entryNameSize = 532, entrySize = 2088, dialParamsSize = 1064,
                statusSize = 288, pppIpSize = 48;

void expectSize(DWORD size, DWORD expected) {
    expect(size == expected, "a record of another size than the service's");
}

std::string factOf(LPCSTR phoneBook, LPCSTR name) {
    return fmt::format("entry {} {}", phoneBook != nullptr ? phoneBook : "-", name); // "-": the user's own
}

// Tells the library of a connection's state, as long as there is one.
void notify(HRASCONN handle, RASCONNSTATE state, DWORD error, DWORD extended, DWORD id, LPVOID notifier) {
    Connection& connection = *theComputer().find(handle);
    if (connection.hungUp)
        return;
    connection.listed = state == RASCS_Connected && error == 0;
    const DWORD goesOn =
        error == 0 && state != RASCS_Connected && state != RASCS_Disconnected && privates::items.contains(id);
    const auto function = reinterpret_cast<RASDIALFUNC2>(notifier);
    try {
        expect(function(id, 1, handle, WM_RASDIALEVENT, state, error, extended) == goesOn,
               "the notifier gives the wrong answer to state ", std::to_string(state));
    } catch (...) {
        complain("an exception passed from the notifier into the service");
    }
}

// A course says "refused CODE" of the dial itself, or "handleless"; "silent", or "fails ERROR", "extended
// ERROR" or "disconnects" of its end, which comes "after MS"; "reports ERROR" or "unreadable CODE" of later
// status queries, "lingers N" of those that find it after its hang-up.
DWORD dial(LPRASDIALEXTENSIONS extensions, LPCSTR phoneBook, LPRASDIALPARAMSA params, DWORD type,
           LPVOID notifier, LPHRASCONN conn) {
    Computer& computer = theComputer();
    computer.passwordPlace = params->szPassword;
    expectSize(params->dwSize, dialParamsSize);
    expect(extensions == nullptr && type == 2 && *conn == nullptr, "a dial of another kind");
    computer.dials.emplace_back("connects");
    const std::string course = computer.dials.front();
    computer.dials.erase(computer.dials.begin());
    if (const DWORD code = numberAfter(course, "refused"); code != 0)
        return code;
    if (!facts().has(factOf(phoneBook, params->szEntryName)))
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    computer.apply(fmt::format("up {} = {}", params->szEntryName, phoneBook != nullptr ? phoneBook : "-"));
    Connection& connection = computer.connections.back();
    connection.listed = false;
    connection.dialled = !says(course, "handleless");
    connection.course = course;
    if (connection.dialled)
        *conn = connection.handle;
    const auto tell = [&, handle = connection.handle, id = static_cast<DWORD>(params->dwCallbackId)](
                          DWORD ms, RASCONNSTATE state, DWORD error = 0, DWORD extended = 0) {
        computer.clock.in(ms, [=] { notify(handle, state, error, extended, id, notifier); });
    };
    const DWORD after = numberAfter(course, "after", 300), error = numberAfter(course, "fails");
    tell(after / 3, RASCS_OpenPort);
    if (says(course, "silent"))
        return 0;
    tell(after / 2, RASCS_Authenticate);
    const RASCONNSTATE end = error != 0 ? RASCS_Authenticate : RASCS_Connected;
    tell(after, says(course, "disconnects") ? RASCS_Disconnected : end, error,
         numberAfter(course, "extended"));
    return 0;
}

void answerForConnections() {
    on<"RasDialA">(&dial);
    on<"RasHangUpA">([](HRASCONN conn) {
        Connection* const connection = theComputer().find(conn);
        if (connection == nullptr)
            return ERROR_INVALID_HANDLE;
        expect(!connection->hungUp || !connection->dialled, "a dialled connection is hung up twice");
        connection->listed = false;
        return std::exchange(connection->hungUp, true) ? ERROR_INVALID_HANDLE : ERROR_SUCCESS;
    });
    on<"RasGetConnectStatusA">([](HRASCONN conn, LPRASCONNSTATUSA record) -> DWORD {
        expectSize(record->dwSize, statusSize);
        Connection* const connection = theComputer().find(conn);
        if (connection == nullptr)
            return ERROR_INVALID_HANDLE;
        if (connection->hungUp)
            return countDown(connection->course, "lingers") ? 0 : ERROR_INVALID_HANDLE;
        record->dwError = answers::number(numberAfter(connection->course, "reports"));
        return numberAfter(connection->course, "unreadable");
    });
    on<"RasGetProjectionInfoA">([](HRASCONN conn, RASPROJECTION kind, LPVOID record, LPDWORD size) -> DWORD {
        auto* const pppIp = static_cast<RASPPPIPA*>(record);
        expect(kind == RASP_PppIp && *size == pppIpSize, "another projection is asked for");
        expectSize(pppIp->dwSize, pppIpSize);
        const Connection* const connection = theComputer().find(conn);
        if (connection == nullptr || connection->address == "-" || says(connection->course, "silent"))
            return ERROR_PROTOCOL_NOT_CONFIGURED;
        answers::fill(pppIp->szIpAddress, connection->address);
        return 0;
    });
    on<"RasGetErrorStringA">([](UINT error, LPSTR text, DWORD room) {
        answers::fill(text, room, fmt::format(" text of {}", error));
    });
}

// Hands a list over: how long it is, and when there is room, a record of each.
template<class Record>
DWORD handOver(auto list, DWORD recordSize, Record* first, LPDWORD size, LPDWORD count, auto write) {
    expectSize(first->dwSize, recordSize);
    const auto there = static_cast<DWORD>(std::ranges::distance(list));
    *count = answers::number(there);
    if (std::exchange(*size, there * recordSize) < there * recordSize)
        return ERROR_BUFFER_TOO_SMALL;
    for (char* place = reinterpret_cast<char*>(first); const auto& item : list)
        write(*reinterpret_cast<Record*>(std::exchange(place, place + recordSize)), item);
    return 0;
}

void answerForLists() {
    on<"RasEnumConnectionsA">([](LPRASCONNA first, LPDWORD size, LPDWORD count) {
        auto listed = theComputer().connections;
        std::erase_if(listed, [](const Connection& connection) { return !connection.listed; });
        return handOver(listed, connSize, first, size, count, &answers::show);
    });
    // Without a phonebook those of the user and of all users are listed, with their places.
    on<"RasEnumEntriesA">([](LPCSTR, LPCSTR phoneBook, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
        const auto bookOf = [](const std::string& entry) { return entry.substr(0, entry.find(' ')); };
        std::vector<std::string> entries = facts().endings("entry ");
        std::erase_if(entries, [&](const std::string& entry) {
            return phoneBook != nullptr ? bookOf(entry) != phoneBook : bookOf(entry).ends_with("pptp.pbk");
        });
        return handOver(entries, entryNameSize, first, size, count, [&](RASENTRYNAMEA& record, auto& entry) {
            record.dwSize = entryNameSize;
            answers::fill(record.szEntryName, entry.substr(entry.find(' ') + 1));
            answers::fill(record.szPhonebookPath, entry.starts_with("- ") ? "" : bookOf(entry));
        });
    });
}

// Facts keep an entry as "USER at ADDRESS", or with every number in the record that is not 0, by its place.
std::string properties(const RASENTRYA& entry) {
    if (!facts().has("whole records"))
        return entry.szLocalPhoneNumber;
    std::string all = entry.szLocalPhoneNumber;
    const auto* const numbers = reinterpret_cast<const DWORD*>(&entry);
    for (std::size_t i = 0; i < entrySize / sizeof(DWORD); ++i)
        if (numbers[i] != 0)
            all += fmt::format(" {}:{:X}", i * sizeof(DWORD), numbers[i]);
    return all;
}

void answerForEntries() {
    on<"RasSetEntryPropertiesA">([](LPCSTR phoneBook, LPCSTR name, LPRASENTRYA entry, DWORD size, auto...) {
        expectSize(size, entrySize);
        expectSize(entry->dwSize, entrySize);
        const std::string before = facts().get(factOf(phoneBook, name));
        const std::string user = before.empty() ? "nobody" : before.substr(0, before.find(' '));
        facts().set(factOf(phoneBook, name), user + " at " + properties(*entry));
    });
    on<"RasSetEntryDialParamsA">(
        [](LPCSTR phoneBook, LPRASDIALPARAMSA params, WINBOOL removePassword) -> DWORD {
            expectSize(params->dwSize, dialParamsSize);
            expect(removePassword != FALSE && params->szPassword[0] == '\0', "a password is stored");
            std::string* const entry = facts().find(factOf(phoneBook, params->szEntryName));
            if (entry == nullptr)
                return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
            *entry = params->szUserName + entry->substr(entry->find(" at "));
            return 0;
        });
    // Somebody else stored these: none of it may outlive the library's own values.
    on<"RasGetEntryDialParamsA">([](LPCSTR phoneBook, LPRASDIALPARAMSA params, LPBOOL password) -> DWORD {
        expectSize(params->dwSize, dialParamsSize);
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
    });
    on<"RasRenameEntryA">([](LPCSTR phoneBook, LPCSTR from, LPCSTR to) -> DWORD {
        const std::string entry = facts().get(factOf(phoneBook, from));
        if (facts().has(factOf(phoneBook, to)))
            return ERROR_ALREADY_EXISTS;
        if (!facts().erase(factOf(phoneBook, from)))
            return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
        facts().set(factOf(phoneBook, to), entry);
        return 0;
    });
    on<"RasDeleteEntryA">([](LPCSTR phoneBook, LPCSTR name) -> DWORD {
        return facts().erase(factOf(phoneBook, name)) ? 0 : ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    });
}

} // namespace

void answerForRemoteAccess() {
    answerForConnections();
    answerForLists();
    answerForEntries();
}
