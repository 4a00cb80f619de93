#include "router_functions.h"

#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "owners.h"

#include <string>

namespace mpr {

decltype(&::MprAdminIsServiceRunning) MprAdminIsServiceRunning = nullptr;
decltype(&::MprAdminServerConnect) MprAdminServerConnect = nullptr;
decltype(&::MprAdminServerGetInfo) MprAdminServerGetInfo = nullptr;
decltype(&::MprAdminServerDisconnect) MprAdminServerDisconnect = nullptr;
decltype(&::MprAdminServerSetInfo) MprAdminServerSetInfo = nullptr;
decltype(&::MprConfigServerConnect) MprConfigServerConnect = nullptr;
decltype(&::MprConfigServerGetInfo) MprConfigServerGetInfo = nullptr;
decltype(&::MprConfigServerDisconnect) MprConfigServerDisconnect = nullptr;
decltype(&::MprConfigServerSetInfo) MprConfigServerSetInfo = nullptr;

namespace {

HMODULE mprModule = nullptr;

template<class Function>
bool find(const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(mprModule, name)));
    return function != nullptr;
}

bool findAll() {
    return find("MprAdminIsServiceRunning", MprAdminIsServiceRunning) &&
           find("MprAdminServerConnect", MprAdminServerConnect) &&
           find("MprAdminServerGetInfo", MprAdminServerGetInfo) &&
           find("MprAdminServerDisconnect", MprAdminServerDisconnect) &&
           find("MprAdminServerSetInfo", MprAdminServerSetInfo) &&
           find("MprConfigServerConnect", MprConfigServerConnect) &&
           find("MprConfigServerGetInfo", MprConfigServerGetInfo) &&
           find("MprConfigServerDisconnect", MprConfigServerDisconnect) &&
           find("MprConfigServerSetInfo", MprConfigServerSetInfo);
}

} // namespace

bool load() {
    char folder[MAX_PATH] = {};
    const UINT length = GetSystemDirectoryA(folder, sizeof folder);
    if (length == 0 || length >= sizeof folder) {
        const DWORD error = length == 0 ? GetLastError() : ERROR_INSUFFICIENT_BUFFER;
        LOG_LINE(2, "GetSystemDirectory failed, error " + int2stru(error));
        return false;
    }
    const std::string path = textOfField(folder) + "\\mprapi.dll";
    mprModule = LoadLibraryA(path.c_str());
    if (mprModule == nullptr) {
        const DWORD error = GetLastError();
        LOG_LINE(2, "LoadLibrary " + path + " failed, error " + int2stru(error));
        return false;
    }
    if (findAll())
        return true;
    unload();
    return false;
}

bool loaded() {
    return mprModule != nullptr;
}

void unload() {
    if (mprModule == nullptr)
        return;
    const LastErrorKept kept;
    FreeLibrary(mprModule);
    mprModule = nullptr;
}

} // namespace mpr
