// The PPTP port counts of the remote-access server: through the router since Windows Vista, before it through
// the registry keys of the WAN miniports.
#include "Varnel.h"
#include "call_trace.h"
#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "registry.h"
#include "router_functions.h"

namespace {

constexpr char adapterClassKey[] =
    "SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}";
constexpr DWORD portRecordLevel = 1;
constexpr DWORD routerPptpPorts = 3; // Windows Vista and later

static_assert(sizeof(MPR_SERVER_1) == 16);

bool accepted(DWORD error) {
    return error == ERROR_SUCCESS || error == ERROR_SUCCESS_REBOOT_REQUIRED;
}

// The router's functions leave their code in two places; what is logged is the thread's last error.
void logFailure(const char* function) {
    const DWORD error = GetLastError();
    LOG_LINE(2, std::string(function) + " failed, error " + int2stru(error));
}

struct ROUTER {
    using Type = MPR_SERVER_HANDLE;
    static Type none() { return nullptr; }
    static void release(Type router) { mpr::MprAdminServerDisconnect(router); }
};

struct ROUTER_CONFIGURATION {
    using Type = HANDLE;
    static Type none() { return nullptr; }
    static void release(Type configuration) { mpr::MprConfigServerDisconnect(configuration); }
};

// Changes the running router, which also stores the values.
bool setRunningPorts(MPR_SERVER_1& ports) {
    MPR_SERVER_HANDLE connected = nullptr;
    const DWORD connectError = mpr::MprAdminServerConnect(nullptr, &connected);
    if (connectError != ERROR_SUCCESS)
        logFailure("MprAdminServerConnect");
    const Owner<ROUTER> router(connected);
    if (connectError != ERROR_SUCCESS)
        return accepted(connectError);
    const DWORD error =
        mpr::MprAdminServerSetInfo(router.get(), portRecordLevel, reinterpret_cast<BYTE*>(&ports));
    if (!accepted(error))
        logFailure("MprAdminServerSetInfo");
    return accepted(error);
}

// Changes what the router will start with.
bool setStoredPorts(MPR_SERVER_1& ports) {
    HANDLE connected = nullptr;
    const DWORD connectError = mpr::MprConfigServerConnect(nullptr, &connected);
    if (connectError != ERROR_SUCCESS)
        logFailure("MprConfigServerConnect");
    const Owner<ROUTER_CONFIGURATION> configuration(connected);
    if (connectError != ERROR_SUCCESS)
        return accepted(connectError);
    const DWORD error =
        mpr::MprConfigServerSetInfo(configuration.get(), portRecordLevel, reinterpret_cast<BYTE*>(&ports));
    if (!accepted(error))
        logFailure("MprConfigServerSetInfo");
    return accepted(error);
}

bool setRouterPorts(DWORD pptpPorts, DWORD l2tpPorts) {
    if (!mpr::loaded()) {
        LOG_LINE(2, "setPptpPorts: the functions of mprapi.dll are not loaded");
        return false;
    }
    MPR_SERVER_1 ports = {};
    ports.dwNumPptpPorts = pptpPorts;
    ports.dwPptpPortFlags = MPR_ENABLE_RAS_ON_DEVICE;
    ports.dwNumL2tpPorts = l2tpPorts;
    ports.dwL2tpPortFlags = MPR_ENABLE_RAS_ON_DEVICE;
    return mpr::MprAdminIsServiceRunning(nullptr) ? setRunningPorts(ports) : setStoredPorts(ports);
}

// Calls `found` with the path of each adapter's key until it returns true; whether it did.
template<class Found>
bool findAdapter(Found found) {
    const std::string classPath = adapterClassKey;
    Owner<RegistryKey> classKey;
    const LSTATUS error = openMachineKey(classPath.c_str(), classKey);
    if (error != ERROR_SUCCESS) {
        LOG_LINE(2, "RegOpenKeyEx " + classPath + " failed, error " + int2stru(static_cast<DWORD>(error)));
        return false;
    }
    DWORD count = 0;
    if (RegQueryInfoKeyA(classKey.get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
        return false;
    for (DWORD i = 0; i < count; ++i) {
        char name[256] = {};
        DWORD size = sizeof name - 1;
        const LSTATUS listed =
            RegEnumKeyExA(classKey.get(), i, name, &size, nullptr, nullptr, nullptr, nullptr);
        if (listed == ERROR_NO_MORE_ITEMS) // some went since they were counted
            return false;
        if (listed != ERROR_SUCCESS)
            continue;
        if (found(classPath + "\\" + textOfField(name)))
            return true;
    }
    return false;
}

} // namespace

bool VARNEL::loadMprFunctions() {
    return mpr::load();
}

bool VARNEL::setPptpPorts(bool useMprApi, DWORD maxWanEndpoints, DWORD wanEndpoints, DWORD l2tpWanEndpoints) {
    const CallTrace trace("VARNEL::setPptpPorts", "", __LINE__, 1);
    if (useMprApi)
        return setRouterPorts(wanEndpoints, l2tpWanEndpoints);
    return findAdapter([=](const std::string& keyPath) {
        return setWanEndpointsToRegistry(keyPath, maxWanEndpoints, wanEndpoints);
    });
}

bool VARNEL::getCurrentPptpPorts(DWORD* maxWanEndpoints, DWORD* wanEndpoints, DWORD* l2tpWanEndpoints) {
    return findAdapter([=](const std::string& keyPath) {
        getWanEndPointsFromRegistry(keyPath, maxWanEndpoints, wanEndpoints, l2tpWanEndpoints);
        return *maxWanEndpoints != 0 && *wanEndpoints != 0 && *l2tpWanEndpoints != 0;
    });
}

bool VARNEL::chgWanEndPoints() {
    struct ROUTER_FUNCTIONS {
        const bool loaded = loadMprFunctions();
        ~ROUTER_FUNCTIONS() { mpr::unload(); }
    } const functions;

    DWORD max = 0;
    DWORD wan = 0;
    DWORD l2tp = 0;
    if (!getCurrentPptpPorts(&max, &wan, &l2tp))
        return functions.loaded;
    if (isWin6Plus)
        return wan >= routerPptpPorts || setPptpPorts(true, routerPptpPorts, routerPptpPorts, l2tp) ||
               functions.loaded;
    return (max >= MaxWanEndPoints && wan >= WanEndPoints) ||
           setPptpPorts(false, MaxWanEndPoints, WanEndPoints, l2tp) || functions.loaded;
}
