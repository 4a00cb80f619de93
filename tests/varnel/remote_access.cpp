// The remote-access service: phonebooks, entries, connections, and dials that go as the play's course says.
#include "computer.h"
#include "imports.h"
#include "privates.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <raserror.h>

namespace {

constexpr DWORD connSize = 696, entryNameSize = 532, entrySize = 2088, dialParamsSize = 1064,
                statusSize = 288, pppIpSize = 48;

std::string place(LPCSTR phoneBook) {
    return phoneBook != nullptr ? phoneBook : "-"; // the user's own, in facts
}

std::string factOf(LPCSTR phoneBook, const std::string& name) {
    return "entry " + place(phoneBook) + " " + name;
}

// Facts keep an entry as "USER at ADDRESS OPTIONS/ENCRYPTION/STRATEGY", or with every number in the record
// that is not 0, by its place.
std::string properties(const RASENTRYA& entry) {
    char text[64];
    std::snprintf(text, sizeof text, "%s %lX/%lu/%lu", entry.szLocalPhoneNumber, entry.dwfOptions,
                  entry.dwEncryptionType, entry.dwVpnStrategy);
    if (!theComputer().facts.has("whole records"))
        return text;
    std::string all = entry.szLocalPhoneNumber;
    const auto* const numbers = reinterpret_cast<const DWORD*>(&entry);
    for (DWORD i = 0; i < entrySize / sizeof(DWORD); ++i) {
        std::snprintf(text, sizeof text, " %lu:%lX", i * DWORD{sizeof(DWORD)}, numbers[i]);
        all += numbers[i] != 0 ? text : "";
    }
    return all;
}

void notify(HRASCONN handle, long state, DWORD error, DWORD extended, DWORD callbackId, LPVOID notifier) {
    {
        const std::scoped_lock locked(worldLock());
        Connection* const connection = theComputer().find(handle);
        if (connection == nullptr || connection->hungUp)
            return;
        connection->listed = state == RASCS_Connected && error == 0;
    }
    try {
        const bool goesOn = error == 0 && state != RASCS_Connected && state != RASCS_Disconnected &&
                            privates::items.contains(callbackId);
        if (reinterpret_cast<RASDIALFUNC2>(notifier)(callbackId, 1, handle, WM_RASDIALEVENT,
                                                     static_cast<RASCONNSTATE>(state), error,
                                                     extended) != (goesOn ? 1U : 0U))
            complain("the notifier gives the wrong answer to state " + std::to_string(state));
    } catch (...) {
        complain("an exception passed from the notifier into the service");
    }
}

DWORD dial(LPRASDIALEXTENSIONS extensions, LPCSTR phoneBook, LPRASDIALPARAMSA params, DWORD type,
           LPVOID notifier, LPHRASCONN conn) {
    Computer& computer = theComputer();
    Dial course{""};
    HRASCONN handle = nullptr;
    {
        const std::scoped_lock locked(worldLock());
        computer.passwordPlace = params->szPassword;
        if (extensions != nullptr || type != 2 || *conn != nullptr || params->dwSize != dialParamsSize)
            return ERROR_INVALID_SIZE;
        if (!computer.dials.empty()) {
            course = computer.dials.front();
            computer.dials.pop_front();
        }
        if (course.code == 0 && !computer.facts.has(factOf(phoneBook, params->szEntryName)))
            return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
        if (course.code != 0 && !course.givesHandle())
            return course.code;
        computer.apply("up " + std::string(params->szEntryName) + " = " + place(phoneBook));
        Connection& connection = computer.connections.back();
        handle = connection.handle;
        connection.listed = false;
        connection.dialled = course.givesHandle();
        connection.dial = course;
    }
    if (course.givesHandle())
        *conn = handle;
    if (course.code != 0)
        return course.code;
    const auto at = [&, id = static_cast<DWORD>(params->dwCallbackId)](DWORD ms, long state, DWORD error,
                                                                       DWORD extended) {
        computer.clock.in(ms, [=] { notify(handle, state, error, extended, id, notifier); });
    };
    at(course.after / 3, RASCS_OpenPort, 0, 0);
    if (course.is("silent"))
        return 0;
    at(course.after / 2, RASCS_Authenticate, 0, 0);
    at(course.after,
       course.is("disconnects") ? RASCS_Disconnected
       : course.error != 0      ? RASCS_Authenticate
                                : RASCS_Connected,
       course.error, course.extended);
    return 0;
}

DWORD hangUp(HRASCONN conn) {
    Connection* const connection = theComputer().find(conn);
    if (connection == nullptr || connection->hungUp) {
        if (connection != nullptr && connection->dialled)
            complain("a dialled connection is hung up twice");
        return ERROR_INVALID_HANDLE;
    }
    connection->hungUp = true;
    connection->listed = false;
    return 0;
}

DWORD status(HRASCONN conn, LPRASCONNSTATUSA record) {
    Connection* const connection = theComputer().find(conn);
    if (record->dwSize != statusSize)
        return ERROR_INVALID_SIZE;
    if (connection == nullptr || (connection->hungUp && connection->dial.lingers == 0))
        return ERROR_INVALID_HANDLE;
    if (connection->hungUp) {
        --connection->dial.lingers;
        return 0;
    }
    record->dwError = answers::number(connection->dial.statusError);
    return connection->dial.statusCode;
}

DWORD projection(HRASCONN conn, RASPROJECTION kind, LPVOID record, LPDWORD size) {
    auto* const pppIp = static_cast<RASPPPIPA*>(record);
    const Connection* const connection = theComputer().find(conn);
    if (kind != RASP_PppIp || *size != pppIpSize || pppIp->dwSize != pppIpSize)
        return ERROR_INVALID_SIZE;
    if (connection == nullptr || connection->address == "-" || connection->dial.is("silent"))
        return ERROR_PROTOCOL_NOT_CONFIGURED;
    answers::fill(pppIp->szIpAddress, connection->address);
    return 0;
}

DWORD enumerateConnections(LPRASCONNA first, LPDWORD size, LPDWORD count) {
    if (first->dwSize != connSize)
        return ERROR_INVALID_SIZE;
    const auto& all = theComputer().connections;
    const auto listed = static_cast<DWORD>(std::ranges::count_if(all, &Connection::listed));
    *count = answers::number(listed);
    if (std::exchange(*size, answers::number(listed * connSize)) < listed * connSize)
        return ERROR_BUFFER_TOO_SMALL;
    char* next = reinterpret_cast<char*>(first);
    for (const Connection& connection : all)
        if (connection.listed)
            answers::show(reinterpret_cast<RASCONNA&>(*std::exchange(next, next + connSize)), connection);
    return 0;
}

// Without a phonebook those of the user and of all users are listed, with their places.
DWORD enumerateEntries(LPCSTR phoneBook, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
    if (first->dwSize != entryNameSize)
        return ERROR_INVALID_SIZE;
    std::vector<RASENTRYNAMEA> names;
    for (const std::string& entry : theComputer().facts.endings("entry ")) {
        const std::size_t blank = entry.find(' ');
        const std::string book = entry.substr(0, blank);
        if (phoneBook != nullptr ? book != phoneBook : book.ends_with("pptp.pbk"))
            continue;
        RASENTRYNAMEA& name = names.emplace_back();
        name.dwSize = entryNameSize;
        answers::fill(name.szEntryName, entry.substr(blank + 1));
        answers::fill(name.szPhonebookPath, book == "-" ? "" : book);
    }
    const auto wanted = static_cast<DWORD>(names.size() * entryNameSize);
    *count = answers::number(static_cast<DWORD>(names.size()));
    if (std::exchange(*size, wanted) < wanted)
        return ERROR_BUFFER_TOO_SMALL;
    std::ranges::copy(names, first);
    return 0;
}

DWORD setEntry(LPCSTR phoneBook, LPCSTR name, LPRASENTRYA entry, DWORD size) {
    if (size != entrySize || entry->dwSize != entrySize)
        return ERROR_INVALID_SIZE;
    Facts& facts = theComputer().facts;
    const std::string before = facts.get(factOf(phoneBook, name));
    const std::string user = before.empty() ? "nobody" : before.substr(0, before.find(' '));
    facts.set(factOf(phoneBook, name), user + " at " + properties(*entry));
    return 0;
}

DWORD setUser(LPCSTR phoneBook, LPRASDIALPARAMSA params, WINBOOL removePassword) {
    Facts& facts = theComputer().facts;
    const std::string fact = factOf(phoneBook, params->szEntryName);
    if (params->dwSize != dialParamsSize || removePassword == FALSE || params->szPassword[0] != '\0')
        return ERROR_INVALID_SIZE;
    if (!facts.has(fact))
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    const std::string before = facts.get(fact);
    facts.set(fact, params->szUserName + before.substr(before.find(" at ")));
    return 0;
}

// Somebody else stored these: none of it may outlive the library's own values.
DWORD getUser(LPCSTR phoneBook, LPRASDIALPARAMSA params, LPBOOL password) {
    if (params->dwSize != dialParamsSize)
        return ERROR_INVALID_SIZE;
    if (!theComputer().facts.has(factOf(phoneBook, params->szEntryName)))
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
    Facts& facts = theComputer().facts;
    if (facts.has(factOf(phoneBook, newName)))
        return ERROR_ALREADY_EXISTS;
    const std::string entry = facts.get(factOf(phoneBook, oldName));
    if (!facts.erase(factOf(phoneBook, oldName)))
        return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    facts.set(factOf(phoneBook, newName), entry);
    return 0;
}

} // namespace

Dial::Dial(const std::string& course) {
    static const std::map<std::string, DWORD Dial::*> numbers = {
        {"refused", &Dial::code},        {"fails", &Dial::error},           {"extended", &Dial::extended},
        {"reports", &Dial::statusError}, {"unreadable", &Dial::statusCode}, {"after", &Dial::after},
        {"lingers", &Dial::lingers}};
    const std::vector<std::string> said = words(course);
    for (std::size_t i = 0; i < said.size(); ++i) {
        if (const auto number = numbers.find(said[i]); number != numbers.end())
            this->*number->second = std::stoul(said.at(++i));
        else if (said[i] != "connects")
            flags.insert(said[i]);
    }
}

void answerForRemoteAccess() {
    on<"RasDialA">(&dial);
    on<"RasHangUpA">(&hangUp);
    on<"RasGetConnectStatusA">(&status);
    on<"RasGetProjectionInfoA">(&projection);
    on<"RasEnumConnectionsA">(&enumerateConnections);
    on<"RasEnumEntriesA">([](LPCSTR, LPCSTR phoneBook, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
        return enumerateEntries(phoneBook, first, size, count);
    });
    on<"RasSetEntryPropertiesA">([](LPCSTR phoneBook, LPCSTR name, LPRASENTRYA entry, DWORD size, LPBYTE,
                                    DWORD) { return setEntry(phoneBook, name, entry, size); });
    on<"RasSetEntryDialParamsA">(&setUser);
    on<"RasGetEntryDialParamsA">(&getUser);
    on<"RasRenameEntryA">(&renameEntry);
    on<"RasDeleteEntryA">([](LPCSTR phoneBook, LPCSTR name) -> DWORD {
        return theComputer().facts.erase(factOf(phoneBook, name)) ? 0 : ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
    });
    on<"RasGetErrorStringA">([](UINT error, LPSTR text, DWORD room) -> DWORD {
        answers::fill(text, room, " text of " + std::to_string(error));
        return 0;
    });
}
