// The PPTP port counts of the remote-access server: through the router since Windows Vista, before it through
// the registry keys of the WAN miniports.
#include "Varnel.h"
#include "call_trace.h"
#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "registry.h"
#include "router_ports.h"

namespace {

constexpr char adapterClassKey[] =
    "SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}";
constexpr DWORD routerPptpPorts = 3; // Windows Vista and later

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
    return router::loadFunctions();
}

bool VARNEL::setPptpPorts(bool useMprApi, DWORD maxWanEndpoints, DWORD wanEndpoints, DWORD l2tpWanEndpoints) {
    const CallTrace trace("VARNEL::setPptpPorts", "", __LINE__, 1);
    if (useMprApi)
        return router::setPorts(wanEndpoints, l2tpWanEndpoints);
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
    struct RouterFunctions {
        const bool loaded = loadMprFunctions();
        ~RouterFunctions() { router::unloadFunctions(); }
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
