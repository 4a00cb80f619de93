#include "standin/ras/connection_table.h"

#include "standin/ras/fixed_text.h"
#include "standin/ras/mutex_lock.h"
#include "standin/ras/peers.h"
#include "standin/ras/state_folder.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <raserror.h>

namespace standin {
namespace {

constexpr std::int64_t uptimeSlack = 1000; // ms by which processes may see the uptime differently

std::uint32_t serialOf(std::uint64_t number) {
    return static_cast<std::uint32_t>(number / connectionLimit);
}

std::string hexadecimal(std::uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(number));
    return text;
}

Progress progressOf(ConnectionRecord& record) {
    return std::atomic_ref(record.progress).load();
}

bool isIn(ConnectionRecord& record, Phase phase) {
    return progressOf(record).phase == phase;
}

void move(ConnectionRecord& record, Phase phase, RASCONNSTATE state) {
    std::atomic_ref(record.progress)
        .store({record.progress.serial, phase, static_cast<std::uint16_t>(state)});
}

bool needsOwner(Phase phase) {
    return phase == Phase::dialing || phase == Phase::failed;
}

// A dial without an entry is told from others by its number, which is its name.
bool isOf(const ConnectionRecord& record, const EntryFacts& entry) {
    return equalNames(fieldText(record.entryName), entry.name) &&
           equalNames(fieldText(record.phonebook), entry.phonebook);
}

void describe(ConnectionRecord& record, const EntryFacts& entry) {
    record.owner = currentProcess();
    record.references = 1;
    record.guid = entry.guid;
    fillField(record.entryName, entry.name);
    fillField(record.phonebook, entry.phonebook);
    fillField(record.number, entry.number);
    fillField(record.deviceName, entry.deviceName);
}

void breakLink(ConnectionRecord& record) {
    move(record, Phase::broken, RASCS_Disconnected);
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
        table = open(folder);
        openFolder = folder;
    }
    return table;
}

std::shared_ptr<ConnectionTable> ConnectionTable::open(const std::string& folder) {
    createFolders(folder);
    std::string lowerCase = folder;
    CharLowerBuffA(lowerCase.data(), static_cast<DWORD>(lowerCase.size()));
    std::string name = "StandinRas." + hexadecimal(hashOf(lowerCase));
    Handle mutex = owned(CreateMutexA(nullptr, FALSE, name.c_str()));
    const Handle disk =
        owned(CreateFileA((folder + "\\connections.bin").c_str(), GENERIC_READ | GENERIC_WRITE,
                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!mutex || !disk)
        return nullptr;
    const Handle mapping =
        owned(CreateFileMappingA(disk.get(), nullptr, PAGE_READWRITE, 0, sizeof(ConnectionFile), nullptr));
    if (!mapping)
        return nullptr;
    std::unique_ptr<ConnectionFile, Unmap> view(static_cast<ConnectionFile*>(
        MapViewOfFile(mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(ConnectionFile))));
    if (!view)
        return nullptr;
    return std::shared_ptr<ConnectionTable>(
        new ConnectionTable(std::move(name), std::move(mutex), std::move(view)));
}

ConnectionTable::ConnectionTable(std::string tableName, Handle tableMutex,
                                 std::unique_ptr<ConnectionFile, Unmap> view)
    : name(std::move(tableName)), mutex(std::move(tableMutex)), file(std::move(view)) {}

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
    const bool isOver = record.goneAt != 0 && now >= record.goneAt;
    if (isOver || (needsOwner(progressOf(record).phase) && !isRunning(record.owner))) {
        record.handle = 0;
        return nullptr;
    }
    if (isIn(record, Phase::connected) && record.breaksAt != 0 && now >= record.breaksAt)
        breakLink(record);
    return &record;
}

ConnectionRecord* ConnectionTable::settled(HRASCONN handle, std::int64_t now) {
    ConnectionRecord* record = settled(numberOf(handle) % connectionLimit, now);
    return record && record->handle == numberOf(handle) ? record : nullptr;
}

ConnectionRecord* ConnectionTable::dialing(HRASCONN handle, std::int64_t now) {
    ConnectionRecord* record = settled(handle, now);
    return record && isIn(*record, Phase::dialing) ? record : nullptr;
}

ConnectionRecord* ConnectionTable::findFree() {
    auto* const record = std::find_if(std::begin(file->connections), std::end(file->connections),
                                      [](const ConnectionRecord& each) { return each.handle == 0; });
    return record == std::end(file->connections) ? nullptr : record;
}

Reservation ConnectionTable::reserve(const EntryFacts& entry, unsigned ports) {
    const MutexLock lock(mutex.get());
    const std::int64_t now = begin();
    unsigned usedPorts = 0;
    for (std::size_t i = 0; i < connectionLimit; ++i) {
        ConnectionRecord* record = settled(i, now);
        if (!record)
            continue;
        usedPorts += record->hasPort;
        if (!isOf(*record, entry))
            continue;
        if (isIn(*record, Phase::dialing) || isIn(*record, Phase::hungUp))
            return {Reservation::Kind::busy, nullptr, false};
        if (isIn(*record, Phase::connected)) {
            ++record->references;
            return {Reservation::Kind::joined, handleOf(*record), true};
        }
    }
    ConnectionRecord* record = findFree();
    if (!record)
        return {Reservation::Kind::full, nullptr, false};
    const std::uint64_t number =
        ++file->lastSerial * connectionLimit + static_cast<std::uint64_t>(record - file->connections);
    *record = ConnectionRecord{};
    describe(*record, entry);
    record->progress = {serialOf(number), Phase::dialing, RASCS_OpenPort};
    record->hasPort = usedPorts < ports;
    // The handle comes last: with it the record counts.
    record->handle = number;
    return {Reservation::Kind::reserved, handleOf(*record), record->hasPort != 0};
}

void ConnectionTable::release(HRASCONN handle) {
    const MutexLock lock(mutex.get());
    if (ConnectionRecord* record = settled(handle, begin()))
        record->handle = 0;
}

unsigned ConnectionTable::countDial(const std::string& address, std::uint64_t fingerprint) {
    const MutexLock lock(mutex.get());
    begin();
    for (DialCount& each : file->dialCounts)
        if (each.fingerprint == fingerprint && equalNames(fieldText(each.address), address))
            return ++each.dials;
    DialCount& fresh = file->dialCounts[file->nextDialCount++ % dialCountLimit];
    fresh.dials = 1;
    fillField(fresh.address, address);
    fresh.fingerprint = fingerprint;
    return fresh.dials;
}

bool ConnectionTable::enter(HRASCONN handle, RASCONNSTATE state) {
    ConnectionRecord& record = file->connections[numberOf(handle) % connectionLimit];
    const std::atomic_ref progress(record.progress);
    Progress known = progress.load();
    const bool isDialing = known.serial == serialOf(numberOf(handle)) && known.phase == Phase::dialing;
    return isDialing && progress.compare_exchange_strong(
                            known, {known.serial, Phase::dialing, static_cast<std::uint16_t>(state)});
}

bool ConnectionTable::project(HRASCONN handle, const std::string& clientAddress,
                              const std::string& serverAddress) {
    const MutexLock lock(mutex.get());
    ConnectionRecord* record = dialing(handle, begin());
    if (!record)
        return false;
    fillField(record->clientAddress, clientAddress);
    fillField(record->serverAddress, serverAddress);
    record->isProjected = true;
    move(*record, Phase::dialing, RASCS_Projected);
    return true;
}

bool ConnectionTable::connect(HRASCONN handle, unsigned dropAfter, unsigned brokenLinkLinger) {
    const MutexLock lock(mutex.get());
    const std::int64_t now = begin();
    ConnectionRecord* record = dialing(handle, now);
    if (!record)
        return false;
    if (dropAfter != 0) {
        record->breaksAt = now + dropAfter;
        record->goneAt = record->breaksAt + brokenLinkLinger;
    }
    record->order = ++file->lastOrder;
    move(*record, Phase::connected, RASCS_Connected);
    return true;
}

bool ConnectionTable::fail(HRASCONN handle, RASCONNSTATE state, DWORD error, bool keepsPort) {
    const MutexLock lock(mutex.get());
    ConnectionRecord* record = dialing(handle, begin());
    if (!record)
        return false;
    record->error = error;
    if (!keepsPort)
        record->hasPort = false;
    move(*record, Phase::failed, state);
    return true;
}

DWORD ConnectionTable::hangUp(HRASCONN handle, unsigned linger) {
    const MutexLock lock(mutex.get());
    const std::int64_t now = begin();
    ConnectionRecord* record = settled(handle, now);
    if (!record)
        return ERROR_INVALID_HANDLE;
    if (isIn(*record, Phase::hungUp))
        return ERROR_NO_CONNECTION;
    if (isIn(*record, Phase::connected) && --record->references > 0)
        return ERROR_SUCCESS;
    const bool isDialing = isIn(*record, Phase::dialing);
    record->goneAt = now + linger;
    move(*record, Phase::hungUp, RASCS_Disconnected);
    if (isDialing) {
        const Handle event = owned(OpenEventA(EVENT_MODIFY_STATE, FALSE, hangUpEventName(handle).c_str()));
        if (event)
            SetEvent(event.get());
    }
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
                (isIn(*record, Phase::connected) || (includesDialing && isIn(*record, Phase::dialing))))
                records.push_back(*record);
        }
    }
    std::sort(records.begin(), records.end(), [](const ConnectionRecord& a, const ConnectionRecord& b) {
        // Those being dialled have no order yet: they come last, as they were begun.
        return std::pair(a.order - 1, a.handle / connectionLimit) <
               std::pair(b.order - 1, b.handle / connectionLimit);
    });
    return records;
}

bool ConnectionTable::isConnected(const EntryFacts& entry) {
    const std::vector<ConnectionRecord> records = list(false);
    return std::any_of(records.begin(), records.end(),
                       [&](const ConnectionRecord& record) { return isOf(record, entry); });
}

std::string ConnectionTable::hangUpEventName(HRASCONN handle) const {
    return name + ".hang-up." + hexadecimal(numberOf(handle));
}

Handle ConnectionTable::createHangUpEvent(HRASCONN handle) const {
    return owned(CreateEventA(nullptr, TRUE, FALSE, hangUpEventName(handle).c_str()));
}

} // namespace standin
