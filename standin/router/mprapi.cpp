// The stand-in for the system's mprapi.dll: the router's port counts, running and stored.
#include "router_state.h"

#include <cstdlib>
#include <cstring>

using namespace standin;

namespace {

constexpr DWORD portLevel = 1;
constexpr DWORD knownFlags = MPR_ENABLE_RAS_ON_DEVICE | MPR_ENABLE_ROUTING_ON_DEVICE;
constexpr DWORD routerNotRunning = 903;
constexpr DWORD invalidBinding = 1702;
constexpr DWORD unknownInterface = 1717;

// Handles are the addresses of these: whatever else comes in is no handle.
char adminHandle;
char configurationHandle;

DWORD connect(HANDLE* target, char& handle, DWORD errorWithoutTarget) {
    if (!target)
        return errorWithoutTarget;
    *target = &handle;
    return ERROR_SUCCESS;
}

DWORD getPorts(Side side, DWORD level, LPBYTE* buffer) {
    if (!buffer)
        return ERROR_INVALID_PARAMETER;
    if (level != portLevel)
        return ERROR_NOT_SUPPORTED;
    const MPR_SERVER_1 ports = readPorts(side);
    *buffer = static_cast<BYTE*>(std::malloc(sizeof ports)); // NOLINT(clang-analyzer-unix.MallocSizeof)
    if (!*buffer)
        return ERROR_NOT_ENOUGH_MEMORY;
    std::memcpy(*buffer, &ports, sizeof ports);
    return ERROR_SUCCESS;
}

DWORD checkPorts(const MPR_SERVER_1& ports) {
    if (ports.dwNumPptpPorts == 0 || ((ports.dwPptpPortFlags | ports.dwL2tpPortFlags) & ~knownFlags) != 0)
        return ERROR_INVALID_PARAMETER;
    const DWORD ceiling = portCeiling();
    return ports.dwNumPptpPorts > ceiling || ports.dwNumL2tpPorts > ceiling ? ERROR_SUCCESS_REBOOT_REQUIRED
                                                                            : ERROR_SUCCESS;
}

// The running router stores what it is given, too. Ports beyond its ceiling wait for a restart, so it refuses
// them; stored they may be.
DWORD setPorts(Side side, DWORD level, const BYTE* buffer) {
    if (level != portLevel)
        return ERROR_NOT_SUPPORTED;
    if (!buffer)
        return ERROR_INVALID_PARAMETER;
    MPR_SERVER_1 ports;
    std::memcpy(&ports, buffer, sizeof ports);
    const DWORD checked = checkPorts(ports);
    if (checked != ERROR_SUCCESS && (checked != ERROR_SUCCESS_REBOOT_REQUIRED || side == Side::running))
        return checked;
    DWORD error = writePorts(Side::stored, ports);
    if (error == ERROR_SUCCESS && side == Side::running)
        error = writePorts(Side::running, ports);
    return error != ERROR_SUCCESS ? error : checked;
}

} // namespace

extern "C" {

// The system's header has names of its own. NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
BOOL WINAPI MprAdminIsServiceRunning(LPWSTR) {
    return routerRuns();
}

DWORD WINAPI MprAdminServerConnect(LPWSTR, MPR_SERVER_HANDLE* handle) {
    return handle && !routerRuns() ? unknownInterface : connect(handle, adminHandle, invalidBinding);
}

void WINAPI MprAdminServerDisconnect(MPR_SERVER_HANDLE) {}

DWORD WINAPI MprAdminServerGetInfo(MPR_SERVER_HANDLE handle, DWORD level, LPBYTE* buffer) {
    return handle == &adminHandle ? getPorts(Side::running, level, buffer) : invalidBinding;
}

DWORD WINAPI MprAdminServerSetInfo(MPR_SERVER_HANDLE handle, DWORD level, LPBYTE buffer) {
    if (handle != &adminHandle)
        return ERROR_INVALID_HANDLE;
    return routerRuns() ? setPorts(Side::running, level, buffer) : routerNotRunning;
}

DWORD WINAPI MprConfigServerConnect(LPWSTR, HANDLE* handle) {
    return connect(handle, configurationHandle, ERROR_INVALID_PARAMETER);
}

void WINAPI MprConfigServerDisconnect(HANDLE) {}

DWORD WINAPI MprConfigServerGetInfo(HANDLE handle, DWORD level, LPBYTE* buffer) {
    return handle == &configurationHandle ? getPorts(Side::stored, level, buffer) : ERROR_INVALID_PARAMETER;
}

DWORD WINAPI MprConfigServerSetInfo(MPR_SERVER_HANDLE handle, DWORD level, LPBYTE buffer) {
    return handle == &configurationHandle ? setPorts(Side::stored, level, buffer) : ERROR_INVALID_HANDLE;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
} // extern "C"
