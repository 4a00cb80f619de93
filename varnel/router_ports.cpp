#include "router_ports.h"

#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "owners.h"

#include <mprapi.h>

#include <string>

namespace router {
namespace {

HMODULE library = nullptr;

decltype(&MprAdminIsServiceRunning) isRunning = nullptr;
decltype(&MprAdminServerConnect) adminConnect = nullptr;
decltype(&MprAdminServerGetInfo) adminGetInfo = nullptr;
decltype(&MprAdminServerDisconnect) adminDisconnect = nullptr;
decltype(&MprAdminServerSetInfo) adminSetInfo = nullptr;
decltype(&MprConfigServerConnect) configConnect = nullptr;
decltype(&MprConfigServerGetInfo) configGetInfo = nullptr;
decltype(&MprConfigServerDisconnect) configDisconnect = nullptr;
decltype(&MprConfigServerSetInfo) configSetInfo = nullptr;

template<class Function>
bool find(const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    return function != nullptr;
}

bool findAll() {
    return find("MprAdminIsServiceRunning", isRunning) && find("MprAdminServerConnect", adminConnect) &&
           find("MprAdminServerGetInfo", adminGetInfo) && find("MprAdminServerDisconnect", adminDisconnect) &&
           find("MprAdminServerSetInfo", adminSetInfo) && find("MprConfigServerConnect", configConnect) &&
           find("MprConfigServerGetInfo", configGetInfo) &&
           find("MprConfigServerDisconnect", configDisconnect) &&
           find("MprConfigServerSetInfo", configSetInfo);
}

constexpr DWORD portRecordLevel = 1;
static_assert(sizeof(MPR_SERVER_1) == 16);

struct Running {
    using Type = MPR_SERVER_HANDLE;
    static Type none() { return nullptr; }
    static void release(Type router) { adminDisconnect(router); }
    static DWORD connect(Type* router) { return adminConnect(nullptr, router); }
    static DWORD set(Type router, BYTE* ports) { return adminSetInfo(router, portRecordLevel, ports); }
    static constexpr char connectName[] = "MprAdminServerConnect";
    static constexpr char setName[] = "MprAdminServerSetInfo";
};

struct Stopped {
    using Type = HANDLE;
    static Type none() { return nullptr; }
    static void release(Type configuration) { configDisconnect(configuration); }
    static DWORD connect(Type* configuration) { return configConnect(nullptr, configuration); }
    static DWORD set(Type configuration, BYTE* ports) {
        return configSetInfo(configuration, portRecordLevel, ports);
    }
    static constexpr char connectName[] = "MprConfigServerConnect";
    static constexpr char setName[] = "MprConfigServerSetInfo";
};

bool accepted(DWORD error) {
    return error == ERROR_SUCCESS || error == ERROR_SUCCESS_REBOOT_REQUIRED;
}

// The router's functions leave their code in two places; what is logged is the thread's last error.
void logFailure(const char* function) {
    const DWORD error = GetLastError();
    LOG_LINE(2, std::string(function) + " failed, error " + int2stru(error));
}

template<class Router>
bool setPortsOf(MPR_SERVER_1& ports) {
    typename Router::Type connected = Router::none();
    const DWORD connectError = Router::connect(&connected);
    if (connectError != ERROR_SUCCESS)
        logFailure(Router::connectName);
    const Owner<Router> router(connected);
    if (connectError != ERROR_SUCCESS)
        return accepted(connectError);
    const DWORD error = Router::set(router.get(), reinterpret_cast<BYTE*>(&ports));
    if (!accepted(error))
        logFailure(Router::setName);
    return accepted(error);
}

} // namespace

bool loadFunctions() {
    char folder[MAX_PATH] = {};
    const UINT length = GetSystemDirectoryA(folder, sizeof folder);
    if (length == 0 || length >= sizeof folder) {
        const DWORD error = length == 0 ? GetLastError() : ERROR_INSUFFICIENT_BUFFER;
        LOG_LINE(2, "GetSystemDirectory failed, error " + int2stru(error));
        return false;
    }
    const std::string path = textOfField(folder) + "\\mprapi.dll";
    library = LoadLibraryA(path.c_str());
    if (library == nullptr) {
        const DWORD error = GetLastError();
        LOG_LINE(2, "LoadLibrary " + path + " failed, error " + int2stru(error));
        return false;
    }
    if (findAll())
        return true;
    unloadFunctions();
    return false;
}

void unloadFunctions() {
    if (library == nullptr)
        return;
    const LastErrorKept kept;
    FreeLibrary(library);
    library = nullptr;
}

bool setPorts(DWORD pptpPorts, DWORD l2tpPorts) {
    if (library == nullptr) {
        LOG_LINE(2, "setPptpPorts: the functions of mprapi.dll are not loaded");
        return false;
    }
    MPR_SERVER_1 ports = {};
    ports.dwNumPptpPorts = pptpPorts;
    ports.dwPptpPortFlags = MPR_ENABLE_RAS_ON_DEVICE;
    ports.dwNumL2tpPorts = l2tpPorts;
    ports.dwL2tpPortFlags = MPR_ENABLE_RAS_ON_DEVICE;
    return isRunning(nullptr) ? setPortsOf<Running>(ports) : setPortsOf<Stopped>(ports);
}

} // namespace router
