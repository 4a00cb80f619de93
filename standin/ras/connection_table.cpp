#include "standin/ras/connection_table.h"

#include "standin/ras/records.h"
#include "standin/ras/state_folder.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include <raserror.h>

#include <tuple>

namespace standin {
namespace {

constexpr std::int64_t uptimeSlack = 1000; // ms by which processes may see the uptime differently

// Milliseconds since the computer started, the same in every process and finer than the system's tick count.
std::int64_t uptime() {
    LARGE_INTEGER frequency{}, counter{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&counter);
    return counter.QuadPart / (frequency.QuadPart / 1000);
}

// The name that kernel objects of this folder's table begin with, in which no backslash may stand.
std::string objectName(const std::string& folder) {
    std::string name = "StandinRas." + folder;
    CharLowerBuffA(name.data(), static_cast<DWORD>(name.size()));
    std::replace(name.begin(), name.end(), '\\', '/');
    return name;
}

bool isOf(const ConnectionRecord& record, const Entry& entry) {
    return equalNames(fieldText(record.entryName), entry.name) &&
           equalNames(fieldText(record.phonebook), entry.phonebook);
}

void breakLink(ConnectionRecord& record) {
    record.phase = Phase::broken;
    record.state = RASCS_Disconnected;
    record.error = ERROR_REMOTE_DISCONNECTION;
    record.hasPort = false;
}

} // namespace

std::shared_ptr<ConnectionTable> ConnectionTable::current() {
    static std::mutex lock;
    static std::string openFolder;
    static std::shared_ptr<ConnectionTable> table;
    const std::string folder = stateFolder();
    const std::lock_guard guard(lock);
    if (!table || folder != openFolder) {
        table.reset(new ConnectionTable(folder));
        openFolder = folder;
    }
    return table->file ? table : nullptr;
}

ConnectionTable::ConnectionTable(const std::string& folder)
    : name(objectName(folder)), mutex(owned(CreateMutexA(nullptr, FALSE, name.c_str()))) {
    createFolders(folder);
    const Handle disk =
        owned(CreateFileA((folder + "\\connections.bin").c_str(), GENERIC_READ | GENERIC_WRITE,
                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!mutex || !disk)
        return;
    const Handle mapping =
        owned(CreateFileMappingA(disk.get(), nullptr, PAGE_READWRITE, 0, sizeof(ConnectionFile), nullptr));
    if (mapping)
        file.reset(static_cast<ConnectionFile*>(
            MapViewOfFile(mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(ConnectionFile))));
}

std::int64_t ConnectionTable::begin() {
    const std::int64_t now = uptime();
    if (file->layout != tableLayout || now + uptimeSlack < file->latestUptime) {
        std::memset(file.get(), 0, sizeof(ConnectionFile));
        file->layout = tableLayout;
    }
    file->latestUptime = now;
    return now;
}

ConnectionRecord* ConnectionTable::settled(std::size_t index, std::int64_t now) {
    ConnectionRecord& record = file->connections[index];
    if (record.handle == 0)
        return nullptr;
    const bool needsDialer = record.phase == Phase::dialing || record.phase == Phase::failed;
    const bool isOver = record.goneAt != 0 && now >= record.goneAt;
    if (isOver || (needsDialer && !hasDialer(record.handle))) {
        record.handle = 0;
        return nullptr;
    }
    if (record.phase == Phase::connected && record.breaksAt != 0 && now >= record.breaksAt)
        breakLink(record);
    return &record;
}

ConnectionRecord* ConnectionTable::settled(HRASCONN handle, std::int64_t now) {
    ConnectionRecord* record = settled(numberOf(handle) % connectionLimit, now);
    return record && record->handle == numberOf(handle) ? record : nullptr;
}

// As long as the process lives that dials, so does the event. This process need not ask.
bool ConnectionTable::hasDialer(std::uint64_t number) const {
    return ownDials.contains(number) ||
           owned(OpenEventA(SYNCHRONIZE, FALSE, hangUpEventName(number).c_str()));
}

Reservation ConnectionTable::reserve(const Entry& entry, unsigned ports) {
    const MutexLock lock(mutex.get());
    const std::int64_t now = begin();
    unsigned usedPorts = 0;
    std::optional<std::size_t> free;
    for (std::size_t i = 0; i < connectionLimit; ++i) {
        ConnectionRecord* record = settled(i, now);
        if (!record) {
            free = free.value_or(i);
            continue;
        }
        usedPorts += record->hasPort;
        if (!isOf(*record, entry))
            continue;
        if (record->phase == Phase::dialing || record->phase == Phase::hungUp)
            return {Reservation::Kind::busy};
        if (record->phase == Phase::connected) {
            ++record->references;
            return {Reservation::Kind::joined, handleOf(*record)};
        }
    }
    const std::uint64_t number = ++file->lastSerial * connectionLimit + free.value_or(0);
    Handle hungUp = owned(CreateEventA(nullptr, TRUE, FALSE, hangUpEventName(number).c_str()));
    if (!free || !hungUp)
        return {Reservation::Kind::full};
    ConnectionRecord& record = file->connections[*free];
    record = {};
    record.references = 1;
    record.hasPort = usedPorts < ports;
    record.guid = entry.guid;
    fillField(record.entryName, entry.name);
    fillField(record.phonebook, entry.phonebook);
    fillField(record.number, entry.number);
    // The handle comes last: with it the record counts.
    record.handle = number;
    ownDials.insert(number);
    return {Reservation::Kind::reserved, handleOf(record), record.hasPort != 0, std::move(hungUp)};
}

void ConnectionTable::release(HRASCONN handle) {
    const MutexLock lock(mutex.get());
    if (ConnectionRecord* record = settled(handle, begin()))
        record->handle = 0;
    ownDials.erase(numberOf(handle));
}

unsigned ConnectionTable::countDial(const std::string& address, const std::string& behaviour) {
    const MutexLock lock(mutex.get());
    begin();
    for (DialCount& each : file->dialCounts)
        if (equalNames(fieldText(each.address), address) && fieldText(each.behaviour) == behaviour)
            return ++each.dials;
    DialCount& fresh = file->dialCounts[file->nextDialCount++ % dialCountLimit];
    fillField(fresh.address, address);
    fillField(fresh.behaviour, behaviour);
    return fresh.dials = 1;
}

template<class Change>
bool ConnectionTable::step(HRASCONN handle, RASCONNSTATE state, Change change) {
    const MutexLock lock(mutex.get());
    const std::int64_t now = begin();
    ConnectionRecord& record = file->connections[numberOf(handle) % connectionLimit];
    if (record.handle != numberOf(handle) || record.phase != Phase::dialing)
        return false;
    record.state = state;
    change(record, now);
    return true;
}

bool ConnectionTable::enter(HRASCONN handle, RASCONNSTATE state) {
    return step(handle, state, [](ConnectionRecord&, std::int64_t) {});
}

bool ConnectionTable::project(HRASCONN handle, const std::string& clientAddress,
                              const std::string& serverAddress) {
    return step(handle, RASCS_Projected, [&](ConnectionRecord& record, std::int64_t) {
        fillField(record.clientAddress, clientAddress);
        fillField(record.serverAddress, serverAddress);
        record.isProjected = true;
    });
}

bool ConnectionTable::connect(HRASCONN handle, unsigned dropAfter, unsigned brokenLinkLinger) {
    return step(handle, RASCS_Connected, [&](ConnectionRecord& record, std::int64_t now) {
        if (dropAfter != 0) {
            record.breaksAt = now + dropAfter;
            record.goneAt = record.breaksAt + brokenLinkLinger;
        }
        record.order = ++file->lastOrder;
        record.phase = Phase::connected;
    });
}

bool ConnectionTable::fail(HRASCONN handle, RASCONNSTATE state, DWORD error, bool keepsPort) {
    return step(handle, state, [&](ConnectionRecord& record, std::int64_t) {
        record.error = error;
        if (!keepsPort)
            record.hasPort = false;
        record.phase = Phase::failed;
    });
}

DWORD ConnectionTable::hangUp(HRASCONN handle, unsigned linger) {
    const MutexLock lock(mutex.get());
    const std::int64_t now = begin();
    ConnectionRecord* record = settled(handle, now);
    if (!record)
        return ERROR_INVALID_HANDLE;
    if (record->phase == Phase::hungUp)
        return ERROR_NO_CONNECTION;
    if (record->phase == Phase::connected && --record->references > 0)
        return ERROR_SUCCESS;
    ownDials.erase(record->handle);
    record->goneAt = now + linger;
    record->phase = Phase::hungUp;
    record->state = RASCS_Disconnected;
    if (const Handle event =
            owned(OpenEventA(EVENT_MODIFY_STATE, FALSE, hangUpEventName(record->handle).c_str())))
        SetEvent(event.get());
    return ERROR_SUCCESS;
}

std::optional<ConnectionRecord> ConnectionTable::find(HRASCONN handle) {
    const MutexLock lock(mutex.get());
    ConnectionRecord* record = settled(handle, begin());
    return record ? std::optional(*record) : std::nullopt;
}

std::vector<ConnectionRecord> ConnectionTable::list(bool includesDialing) {
    std::vector<ConnectionRecord> records;
    {
        const MutexLock lock(mutex.get());
        const std::int64_t now = begin();
        for (std::size_t i = 0; i < connectionLimit; ++i) {
            ConnectionRecord* record = settled(i, now);
            if (record &&
                (record->phase == Phase::connected || (includesDialing && record->phase == Phase::dialing)))
                records.push_back(*record);
        }
    }
    std::sort(records.begin(), records.end(), [](const ConnectionRecord& a, const ConnectionRecord& b) {
        // Those being dialled have no order yet: they come last, as they were begun.
        return std::tuple(a.order == 0, a.order, a.handle) < std::tuple(b.order == 0, b.order, b.handle);
    });
    return records;
}

std::string ConnectionTable::hangUpEventName(std::uint64_t number) const {
    return name + ".hang-up." + std::to_string(number);
}

} // namespace standin
