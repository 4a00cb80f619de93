// The remote-access router in memory, and its functions as mprapi.dll would give them.
#pragma once

#include "imports.h"

#include <mprapi.h>

#include <string>
#include <utility>
#include <vector>

namespace scripted_router {

// The router, as its functions tell of it.
struct Router {
    bool running = true;
    DWORD connectCode = 0;
    DWORD setCode = 0;
    std::vector<std::string> calls;
    long connections = 0; // that nobody has closed
    MPR_SERVER_1 ports = {};
};
inline Router router;

inline constexpr DWORD leftError = 1722; // what the router's functions leave in the thread's last error

inline void* handleOf(const char* kind) {
    return const_cast<char*>(kind);
}
inline constexpr char admin[] = "admin";
inline constexpr char config[] = "config";

inline DWORD tell(const std::string& call, DWORD code) {
    router.calls.push_back(call);
    SetLastError(leftError);
    return code;
}

inline DWORD connect(const char* kind, const char* function, LPWSTR server, void** handle) {
    const DWORD code = Faults::strikes(function).value_or(router.connectCode);
    if (server != nullptr)
        router.calls.push_back("another computer");
    if (code == 0) {
        *handle = handleOf(kind);
        ++router.connections;
    }
    return tell(std::string(kind) + " connect", code);
}

inline DWORD set(const char* kind, const char* function, void* handle, DWORD level, LPBYTE buffer) {
    const DWORD code = Faults::strikes(function).value_or(router.setCode);
    const auto& ports = *reinterpret_cast<const MPR_SERVER_1*>(buffer);
    std::string call = std::string(kind) + " set " + std::to_string(level);
    for (const DWORD field :
         {ports.dwNumPptpPorts, ports.dwPptpPortFlags, ports.dwNumL2tpPorts, ports.dwL2tpPortFlags})
        call += " " + std::to_string(field);
    if (handle != handleOf(kind))
        call += " of another handle";
    if (code == 0)
        router.ports = ports;
    return tell(call, code);
}

inline void disconnect(const char* kind, void* handle) {
    --router.connections;
    tell(std::string(kind) + " disconnect" + (handle == handleOf(kind) ? "" : " of another handle"), 0);
}

inline BOOL WINAPI isServiceRunning(LPWSTR server) {
    tell(server == nullptr ? "running?" : "another computer", 0);
    return router.running && !Faults::strikes("MprAdminIsServiceRunning") ? TRUE : FALSE;
}
inline DWORD WINAPI adminConnect(LPWSTR server, MPR_SERVER_HANDLE* handle) {
    return connect(admin, "MprAdminServerConnect", server, handle);
}
inline DWORD WINAPI configConnect(LPWSTR server, HANDLE* handle) {
    return connect(config, "MprConfigServerConnect", server, handle);
}
inline DWORD WINAPI adminSet(MPR_SERVER_HANDLE handle, DWORD level, LPBYTE buffer) {
    return set(admin, "MprAdminServerSetInfo", handle, level, buffer);
}
inline DWORD WINAPI configSet(HANDLE handle, DWORD level, LPBYTE buffer) {
    return set(config, "MprConfigServerSetInfo", handle, level, buffer);
}
inline void WINAPI adminDisconnect(MPR_SERVER_HANDLE handle) {
    disconnect(admin, handle);
}
inline void WINAPI configDisconnect(HANDLE handle) {
    disconnect(config, handle);
}
inline DWORD WINAPI getInfo(HANDLE, DWORD, LPBYTE*) {
    return tell("get", 0);
}

// In the order in which they are looked up.
inline const std::vector<std::pair<std::string, void*>> functions = {
    {"MprAdminIsServiceRunning", reinterpret_cast<void*>(&isServiceRunning)},
    {"MprAdminServerConnect", reinterpret_cast<void*>(&adminConnect)},
    {"MprAdminServerGetInfo", reinterpret_cast<void*>(&getInfo)},
    {"MprAdminServerDisconnect", reinterpret_cast<void*>(&adminDisconnect)},
    {"MprAdminServerSetInfo", reinterpret_cast<void*>(&adminSet)},
    {"MprConfigServerConnect", reinterpret_cast<void*>(&configConnect)},
    {"MprConfigServerGetInfo", reinterpret_cast<void*>(&getInfo)},
    {"MprConfigServerDisconnect", reinterpret_cast<void*>(&configDisconnect)},
    {"MprConfigServerSetInfo", reinterpret_cast<void*>(&configSet)}};

// The function of that name, or null.
inline FARPROC find(const std::string& name) {
    for (const auto& [known, function] : functions)
        if (name == known)
            return reinterpret_cast<FARPROC>(function);
    return nullptr;
}

} // namespace scripted_router
