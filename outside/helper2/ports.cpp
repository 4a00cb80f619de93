#include "outside/Helper2.h"

#include <winsock2.h>
#include <windows.h>

#include <algorithm>

#include <iphlpapi.h>

#include <memory>
#include <optional>

#include <tlhelp32.h>

#include <vector>

namespace {

using Connections = std::vector<MIB_TCPROW_OWNER_PID>;

// Nothing, and the last error, on a failure.
std::optional<Connections> tcpConnections() {
    static constexpr DWORD roomForNew = 4096; // bytes, for what is opened between two calls
    std::vector<BYTE> table;
    DWORD size = 0;
    DWORD error = NO_ERROR;
    while ((error = GetExtendedTcpTable(table.data(), &size, FALSE, AF_INET, TCP_TABLE_OWNER_PID_ALL, 0)) ==
           ERROR_INSUFFICIENT_BUFFER) {
        size += roomForNew;
        table.resize(size);
    }
    if (error != NO_ERROR) {
        SetLastError(error);
        return std::nullopt;
    }
    const auto& records = *reinterpret_cast<const MIB_TCPTABLE_OWNER_PID*>(table.data());
    return Connections(records.table, records.table + records.dwNumEntries);
}

// The low 16 bits hold it in network byte order; the others may hold anything.
unsigned short localPort(const MIB_TCPROW_OWNER_PID& connection) {
    const DWORD port = connection.dwLocalPort;
    return static_cast<unsigned short>((port & 0xFF) << 8 | (port >> 8 & 0xFF));
}

// A connection that only waits for its end belongs to no process any more.
DWORD portOwner(const Connections& connections, unsigned short port) {
    DWORD owner = 0;
    for (const auto& connection : connections) {
        if (localPort(connection) != port || connection.dwOwningPid == 0)
            continue;
        if (connection.dwState == MIB_TCP_STATE_LISTEN)
            return connection.dwOwningPid;
        owner = connection.dwOwningPid;
    }
    return owner;
}

struct CloseSnapshot {
    using pointer = HANDLE;
    void operator()(HANDLE snapshot) const noexcept { CloseHandle(snapshot); }
};

// From a snapshot, since most processes of the system may not be opened.
std::wstring imageName(DWORD processId) {
    HANDLE handle = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (handle == INVALID_HANDLE_VALUE)
        return {};
    const std::unique_ptr<HANDLE, CloseSnapshot> snapshot(handle);
    PROCESSENTRY32W process{};
    process.dwSize = sizeof process;
    for (BOOL found = Process32FirstW(handle, &process); found; found = Process32NextW(handle, &process)) {
        if (process.th32ProcessID == processId)
            return process.szExeFile;
    }
    return {};
}

} // namespace

unsigned long GetPortOccupyProcessW(unsigned short port, std::wstring& processName) {
    processName.clear();
    const auto connections = tcpConnections();
    if (!connections)
        return 0;
    const DWORD owner = portOwner(*connections, port);
    if (owner == 0)
        SetLastError(ERROR_NOT_FOUND);
    else
        processName = imageName(owner);
    if (processName.empty() && isSystemProcess(owner))
        processName = L"System";
    return owner;
}
