#include "busy_ras.h"

#include "tests/campaigns/lies.h"
#include "tests/kit/imports.h"
#include "tests/kit/record_sizes.h"

#include <future>

#include <raserror.h>

namespace {

constexpr int notifierThreads = 4;
constexpr DWORD waitPiece = 20; // ms of real time

template<std::size_t SIZE>
void fill(char (&field)[SIZE], const std::string& text) {
    field[text.copy(field, SIZE - 1)] = '\0';
}

} // namespace

BusyRas::BusyRas() {
    on<"RasDialA">([this](LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, DWORD, LPVOID notifier,
                          LPHRASCONN conn) { return dial(params, notifier, conn); });
    on<"RasHangUpA">([this](HRASCONN conn) { return hangUp(conn); });
    on<"RasGetConnectStatusA">(
        [this](HRASCONN conn, LPRASCONNSTATUSA record) { return status(conn, record); });
    on<"RasGetProjectionInfoA">([](const auto&...) { return DWORD{ERROR_PROTOCOL_NOT_CONFIGURED}; });
    on<"RasEnumConnectionsA">(
        [this](LPRASCONNA first, LPDWORD, LPDWORD count) { return enumerateConnections(first, count); });
    on<"RasEnumEntriesA">([this](LPCSTR, LPCSTR, LPRASENTRYNAMEA first, LPDWORD, LPDWORD count) {
        return enumerateEntries(first, count);
    });
    on<"RasSetEntryPropertiesA">([this](LPCSTR, LPCSTR name, const auto&...) { return rename(name, name); });
    on<"RasSetEntryDialParamsA">([](const auto&...) { return DWORD{0}; });
    on<"RasGetEntryDialParamsA">([](const auto&...) { return DWORD{0}; });
    on<"RasGetErrorStringA">([](const auto&...) { return DWORD{ERROR_INVALID_PARAMETER}; });
    on<"RasRenameEntryA">(
        [this](LPCSTR, LPCSTR oldName, LPCSTR newName) { return rename(oldName, newName); });
    on<"RasDeleteEntryA">([this](LPCSTR, LPCSTR name) { return remove(name); });
    on<"IsFileExist">([](const char*) { return true; });
    on<"DeleteFileA">([](LPCSTR) { return TRUE; });
    on<"WaitForSingleObject">([this](HANDLE object, DWORD ms) { return wait(object, ms); });
    before<"CreateEventA">([this](const auto&...) { clearingsAtRegistration = clearings; });
    for (int i = 0; i < notifierThreads; ++i)
        notifiers.emplace_back([this] { serve(); });
}

BusyRas::~BusyRas() {
    {
        const std::scoped_lock locked(queueLock);
        over = true;
    }
    queueChanged.notify_all();
    for (std::thread& notifier : notifiers)
        notifier.join();
}

void BusyRas::serve() {
    std::unique_lock locked(queueLock);
    for (;;) {
        queueChanged.wait(locked, [this] { return over || !queue.empty(); });
        if (queue.empty())
            return;
        const std::function<void()> next = std::move(queue.front());
        queue.pop_front();
        locked.unlock();
        next();
        locked.lock();
    }
}

void BusyRas::notify(DWORD callbackId, HRASCONN conn, DWORD error) {
    const auto notifier = reinterpret_cast<RASDIALFUNC2>(libraryNotifier.load());
    notifier(callbackId, 1, conn, WM_RASDIALEVENT, RASCS_OpenPort, 0, 0);
    notifier(callbackId, 1, conn, WM_RASDIALEVENT, error == 0 ? RASCS_Connected : RASCS_Authenticate, error,
             0);
}

void BusyRas::notifyLater(DWORD callbackId, HRASCONN conn, DWORD error) {
    {
        const std::scoped_lock locked(queueLock);
        queue.emplace_back([=, this] { notify(callbackId, conn, error); });
    }
    queueChanged.notify_one();
}

void BusyRas::notifyTooLate(const std::vector<DWORD>& tooLate, DWORD error) {
    for (const DWORD callbackId : tooLate)
        notifyLater(callbackId, nullptr, error);
}

HRASCONN BusyRas::connect(const std::string& entryName, DWORD callbackId) {
    const std::scoped_lock locked(lock);
    expect(callbackId != 0 && callbackIds.insert(callbackId).second, "an attempt's id is used again");
    expect(entries[current->peer].contains(entryName), "an entry is dialled that is not there: " + entryName);
    const auto conn = reinterpret_cast<HRASCONN>(++lastHandle);
    connections[conn] = {.peer = current->peer,
                         .entryName = entryName,
                         .outcome = current->outcome,
                         .lingers = current->lingers,
                         .listed = current->outcome == 0};
    return conn;
}

DWORD BusyRas::dial(LPRASDIALPARAMSA params, LPVOID notifier, LPHRASCONN conn) {
    libraryNotifier = notifier;
    ++dials;
    expect(params->szUserName == current->peer, "another peer's user is dialled");
    if (std::exchange(current->busyAtFirst, false))
        return ERROR_DIAL_ALREADY_IN_PROGRESS;
    const auto callbackId = static_cast<DWORD>(params->dwCallbackId);
    current->callbackIds.push_back(callbackId);
    HRASCONN const handle = *conn = connect(params->szEntryName, callbackId);
    const DWORD outcome = current->outcome;
    switch (current->timing) {
    case Timing::early:
        std::async(std::launch::async, [=, this] { notify(callbackId, handle, outcome); }).get();
        break;
    case Timing::twice:
        notifyLater(callbackId, handle, outcome);
        [[fallthrough]];
    case Timing::late:
    case Timing::aboutToGiveUp:
        notifyLater(callbackId, handle, outcome);
        break;
    case Timing::never:
        break;
    }
    return 0;
}

// Waits of no time are those for the phonebook's lock. The others end in a time-out only by plan, or when the
// attempt may have gone from the registry.
DWORD BusyRas::wait(HANDLE object, DWORD ms) const {
    if (ms == 0)
        return WaitForSingleObject(object, 0);
    if (current->timing == Timing::never || current->timing == Timing::aboutToGiveUp)
        return WaitForSingleObject(object, current->outcome % 3);
    DWORD state = WAIT_TIMEOUT;
    while (state == WAIT_TIMEOUT && !mayBeCleared(clearingsAtRegistration))
        state = WaitForSingleObject(object, waitPiece);
    return state;
}

DWORD BusyRas::hangUp(HRASCONN conn) {
    const std::scoped_lock locked(lock);
    const auto found = connections.find(conn);
    if (found == connections.end() || found->second.hungUp)
        return ERROR_NO_CONNECTION;
    expect(found->second.peer == current->peer, "another peer's connection is hung up");
    found->second.hungUp = true;
    found->second.listed = false;
    return 0;
}

DWORD BusyRas::status(HRASCONN conn, LPRASCONNSTATUSA record) {
    const std::scoped_lock locked(lock);
    const auto found = connections.find(conn);
    if (found == connections.end())
        return ERROR_INVALID_HANDLE;
    record->dwError = found->second.outcome;
    if (found->second.hungUp && found->second.lingers-- == 0) {
        connections.erase(found);
        return ERROR_INVALID_HANDLE;
    }
    return 0;
}

// The connections of the asking thread's peer, and one that is not its own before them.
DWORD BusyRas::enumerateConnections(LPRASCONNA first, LPDWORD count) {
    const std::scoped_lock locked(lock);
    char* next = reinterpret_cast<char*>(first);
    *count = 0;
    const auto list = [&](const auto& connection) {
        auto& record = *reinterpret_cast<RASCONNA*>(next);
        record.hrasconn = connection.first;
        fill(record.szEntryName, connection.second.entryName);
        record.szPhonebook[0] = '\0';
        next += connSize;
        ++*count;
    };
    const auto foreign = std::ranges::find_if(
        connections, [](const auto& c) { return c.second.listed && c.second.peer != current->peer; });
    if (foreign != connections.end())
        list(*foreign);
    for (const auto& connection : connections)
        if (connection.second.listed && connection.second.peer == current->peer && *count < 3)
            list(connection);
    return 0;
}

DWORD BusyRas::enumerateEntries(LPRASENTRYNAMEA first, LPDWORD count) {
    const std::scoped_lock locked(lock);
    const std::set<std::string>& names = entries[current->peer];
    *count = names.empty() ? 0 : 1;
    if (!names.empty())
        fill(first->szEntryName, *names.begin());
    return 0;
}

DWORD BusyRas::rename(const std::string& oldName, const std::string& newName) {
    const std::scoped_lock locked(lock);
    expect(serves(oldName, current->peer) && serves(newName, current->peer),
           "another peer's entry is written");
    std::set<std::string>& names = entries[current->peer];
    if (oldName != newName && names.contains(newName))
        return ERROR_ALREADY_EXISTS;
    names.erase(oldName);
    names.insert(newName);
    return 0;
}

DWORD BusyRas::remove(const std::string& name) {
    const std::scoped_lock locked(lock);
    expect(serves(name, current->peer), "another peer's entry is deleted");
    return entries[current->peer].erase(name) != 0 ? 0 : DWORD{ERROR_CANNOT_FIND_PHONEBOOK_ENTRY};
}

std::string BusyRas::connectedEntry(const std::string& peer) {
    const std::scoped_lock locked(lock);
    const auto found = std::ranges::find_if(
        connections, [&](const auto& c) { return c.second.listed && c.second.peer == peer; });
    return found == connections.end() ? std::string() : found->second.entryName;
}
