// The computer's connections as all processes share them: fixed records in a file that every process maps.
#pragma once

#include <windows.h>

#include <bit>
#include <cstddef>
#include <cstdint>

#include <ras.h>

#include <type_traits>

namespace standin {

enum class Phase : std::uint32_t {
    dialing,
    failed, // not hung up yet
    connected,
    broken, // ended by itself
    hungUp, // going down
};

struct ConnectionRecord {
    std::uint64_t handle;  // 0: the record is free
    std::uint64_t order;   // of connecting; 0 before
    std::int64_t breaksAt; // uptime in ms; 0: never
    std::int64_t goneAt;   // uptime in ms from which the handle is unknown; 0: it stays
    Phase phase;
    std::uint32_t state; // RASCONNSTATE
    std::uint32_t error;
    std::uint32_t references;
    std::uint32_t hasPort;
    std::uint32_t isProjected;
    GUID guid;
    char entryName[RAS_MaxEntryName + 1];
    char phonebook[MAX_PATH];
    char number[RAS_MaxPhoneNumber + 1];
    char clientAddress[RAS_MaxIpAddress + 1];
    char serverAddress[RAS_MaxIpAddress + 1];
};

// How often an address was dialled while its peer behaved as it does.
struct DialCount {
    char address[RAS_MaxPhoneNumber + 1];
    char behaviour[64];
    std::uint32_t dials;
};

inline HRASCONN handleOf(const ConnectionRecord& record) {
    return std::bit_cast<HRASCONN>(record.handle);
}

inline std::uint64_t numberOf(HRASCONN handle) {
    return reinterpret_cast<std::uint64_t>(handle);
}

inline constexpr std::size_t connectionLimit = 1024;
inline constexpr std::size_t dialCountLimit = 256;
inline constexpr std::uint32_t tableLayout = 0x52415303; // changes with any of these structures

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
static_assert(offsetof(ConnectionRecord, entryName) == 72 && sizeof(ConnectionRecord) == 752);
static_assert(sizeof(DialCount) == 200 && offsetof(ConnectionFile, connections) == 51232);

} // namespace standin
