// The computer's connections as all processes share them: fixed records in a file that every process maps.
#pragma once

#include "standin/ras/process.h"

#include <windows.h>

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

#include <ras.h>

#include <type_traits>

namespace standin {

enum class Phase : std::uint16_t {
    dialing,
    failed, // not hung up yet
    connected,
    broken, // ended by itself
    hungUp, // going down
};

// How far a connection has come. It changes as a whole, under the table's mutex; only the dial itself goes
// from state to state without the mutex, which the serial number keeps it from doing to a later user of the
// record.
struct alignas(8) Progress {
    std::uint32_t serial; // of the connection
    Phase phase;
    std::uint16_t state; // RASCONNSTATE

    bool operator==(const Progress&) const = default;
};

struct ConnectionRecord {
    std::uint64_t handle;  // 0: the record is free
    std::uint64_t order;   // of connecting; 0 before
    std::int64_t breaksAt; // uptime in ms; 0: never
    std::int64_t goneAt;   // uptime in ms from which the handle is unknown; 0: it stays
    Process owner;         // needed until the connection stands
    Progress progress;
    std::uint32_t error;
    std::uint32_t references;
    std::uint32_t hasPort;
    std::uint32_t isProjected;
    GUID guid;
    char entryName[RAS_MaxEntryName + 1];
    char phonebook[MAX_PATH]; // empty when no entry was dialled
    char number[RAS_MaxPhoneNumber + 1];
    char deviceName[RAS_MaxDeviceName + 1];
    char clientAddress[RAS_MaxIpAddress + 1];
    char serverAddress[RAS_MaxIpAddress + 1];
};

// How often an address was dialled.
struct DialCount {
    std::uint64_t fingerprint; // of the behaviour that counts; 0: the record is free
    std::uint32_t dials;
    char address[RAS_MaxPhoneNumber + 1];
};

inline HRASCONN handleOf(const ConnectionRecord& record) {
    return std::bit_cast<HRASCONN>(record.handle);
}

inline std::uint64_t numberOf(HRASCONN handle) {
    return reinterpret_cast<std::uint64_t>(handle);
}

inline constexpr std::size_t connectionLimit = 1024;
inline constexpr std::size_t dialCountLimit = 256;
inline constexpr std::uint32_t tableLayout = 0x52415302; // changes with any of these structures

struct ConnectionFile {
    std::uint32_t layout;
    std::uint32_t nextDialCount; // the record that gives way when all are taken
    std::int64_t latestUptime;   // of the last use; a smaller one now means that the computer was restarted
    std::uint64_t lastSerial;    // of a handle
    std::uint64_t lastOrder;
    DialCount dialCounts[dialCountLimit];
    ConnectionRecord connections[connectionLimit];
};

static_assert(std::is_trivially_copyable_v<ConnectionFile> && std::is_standard_layout_v<ConnectionFile>);
static_assert(offsetof(ConnectionRecord, owner) == 32 && offsetof(ConnectionRecord, entryName) == 88);
static_assert(std::atomic_ref<Progress>::is_always_lock_free);
static_assert(sizeof(DialCount) == 144 && sizeof(ConnectionRecord) == 896);

} // namespace standin
