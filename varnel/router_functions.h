// The router administration and configuration functions of mprapi.dll, found at run time: systems without a
// router have no such library, or one that lacks some of them.
#pragma once

#include <windows.h>
#include <mprapi.h>

namespace mpr {

extern decltype(&::MprAdminIsServiceRunning) MprAdminIsServiceRunning;
extern decltype(&::MprAdminServerConnect) MprAdminServerConnect;
extern decltype(&::MprAdminServerGetInfo) MprAdminServerGetInfo;
extern decltype(&::MprAdminServerDisconnect) MprAdminServerDisconnect;
extern decltype(&::MprAdminServerSetInfo) MprAdminServerSetInfo;
extern decltype(&::MprConfigServerConnect) MprConfigServerConnect;
extern decltype(&::MprConfigServerGetInfo) MprConfigServerGetInfo;
extern decltype(&::MprConfigServerDisconnect) MprConfigServerDisconnect;
extern decltype(&::MprConfigServerSetInfo) MprConfigServerSetInfo;

// Loads the library by its full path and finds all functions, or none.
bool load();
bool loaded();
void unload();

} // namespace mpr
