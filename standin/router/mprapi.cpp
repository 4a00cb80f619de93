// The stand-in for the system's mprapi.dll: the router's port counts, running and stored.
#include "router_state.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr DWORD portLevel = 1;
constexpr DWORD knownFlags = MPR_ENABLE_RAS_ON_DEVICE | MPR_ENABLE_ROUTING_ON_DEVICE;
constexpr DWORD routerNotRunning = 903;
constexpr DWORD invalidBinding = 1702;
constexpr DWORD unknownInterface = 1717;

// Handles are the addresses of these: whatever else comes in is no handle.
char adminHandle;
char configurationHandle;

DWORD checkPorts(DWORD level, const BYTE* buffer) {
    if (level != portLevel)
        return ERROR_NOT_SUPPORTED;
    if (buffer == nullptr)
        return ERROR_INVALID_PARAMETER;
    MPR_SERVER_1 ports;
    std::memcpy(&ports, buffer, sizeof ports);
    if (ports.dwNumPptpPorts == 0 || ((ports.dwPptpPortFlags | ports.dwL2tpPortFlags) & ~knownFlags) != 0)
        return ERROR_INVALID_PARAMETER;
    const DWORD ceiling = portCeiling();
    return ports.dwNumPptpPorts > ceiling || ports.dwNumL2tpPorts > ceiling ? ERROR_SUCCESS_REBOOT_REQUIRED
                                                                            : ERROR_SUCCESS;
}

MPR_SERVER_1 portsIn(const BYTE* buffer) {
    MPR_SERVER_1 ports;
    std::memcpy(&ports, buffer, sizeof ports);
    return ports;
}

DWORD getPorts(SIDE side, DWORD level, LPBYTE* buffer) {
    if (buffer == nullptr)
        return ERROR_INVALID_PARAMETER;
    if (level != portLevel)
        return ERROR_NOT_SUPPORTED;
    const MPR_SERVER_1 ports = readPorts(side);
    *buffer = static_cast<BYTE*>(std::malloc(sizeof ports)); // NOLINT(clang-analyzer-unix.MallocSizeof)
    if (*buffer == nullptr)
        return ERROR_NOT_ENOUGH_MEMORY;
    std::memcpy(*buffer, &ports, sizeof ports);
    return ERROR_SUCCESS;
}

} // namespace

extern "C" {

// The system's header has names of its own. NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
BOOL WINAPI MprAdminIsServiceRunning(LPWSTR) {
    return routerRuns() ? TRUE : FALSE;
}

DWORD WINAPI MprAdminServerConnect(LPWSTR, MPR_SERVER_HANDLE* handle) {
    if (const DWORD code = orderedCode("MprAdminServerConnect"))
        return code;
    if (handle == nullptr)
        return invalidBinding;
    if (!routerRuns())
        return unknownInterface;
    *handle = &adminHandle;
    return ERROR_SUCCESS;
}

void WINAPI MprAdminServerDisconnect(MPR_SERVER_HANDLE) {}

DWORD WINAPI MprAdminServerGetInfo(MPR_SERVER_HANDLE handle, DWORD level, LPBYTE* buffer) {
    if (const DWORD code = orderedCode("MprAdminServerGetInfo"))
        return code;
    if (handle != &adminHandle)
        return invalidBinding;
    return getPorts(SIDE::running, level, buffer);
}

// The running router stores what it is given, too. Ports beyond its ceiling wait for a restart.
DWORD WINAPI MprAdminServerSetInfo(MPR_SERVER_HANDLE handle, DWORD level, LPBYTE buffer) {
    if (const DWORD code = orderedCode("MprAdminServerSetInfo"))
        return code;
    if (handle != &adminHandle)
        return ERROR_INVALID_HANDLE;
    if (!routerRuns())
        return routerNotRunning;
    const DWORD checked = checkPorts(level, buffer);
    if (checked != ERROR_SUCCESS)
        return checked;
    const DWORD error = writePorts(SIDE::running, portsIn(buffer));
    return error != ERROR_SUCCESS ? error : writePorts(SIDE::stored, portsIn(buffer));
}

DWORD WINAPI MprAdminBufferFree(LPVOID buffer) {
    std::free(buffer);
    return ERROR_SUCCESS;
}

DWORD WINAPI MprConfigServerConnect(LPWSTR, HANDLE* handle) {
    if (const DWORD code = orderedCode("MprConfigServerConnect"))
        return code;
    if (handle == nullptr)
        return ERROR_INVALID_PARAMETER;
    *handle = &configurationHandle;
    return ERROR_SUCCESS;
}

void WINAPI MprConfigServerDisconnect(HANDLE) {}

DWORD WINAPI MprConfigServerGetInfo(HANDLE handle, DWORD level, LPBYTE* buffer) {
    if (const DWORD code = orderedCode("MprConfigServerGetInfo"))
        return code;
    if (handle != &configurationHandle)
        return ERROR_INVALID_PARAMETER;
    return getPorts(SIDE::stored, level, buffer);
}

DWORD WINAPI MprConfigServerSetInfo(MPR_SERVER_HANDLE handle, DWORD level, LPBYTE buffer) {
    if (const DWORD code = orderedCode("MprConfigServerSetInfo"))
        return code;
    if (handle != &configurationHandle)
        return ERROR_INVALID_HANDLE;
    const DWORD checked = checkPorts(level, buffer);
    if (checked != ERROR_SUCCESS && checked != ERROR_SUCCESS_REBOOT_REQUIRED)
        return checked;
    const DWORD error = writePorts(SIDE::stored, portsIn(buffer));
    return error != ERROR_SUCCESS ? error : checked;
}

DWORD WINAPI MprConfigBufferFree(LPVOID buffer) {
    std::free(buffer);
    return ERROR_SUCCESS;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
} // extern "C"
