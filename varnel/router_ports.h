// The port counts of the system's router, by the functions of mprapi.dll. They are found at run time: systems
// without a router have no such library, or one that lacks some of them.
#pragma once

#include <windows.h>

namespace router {

// Loads the library by its full path and finds all functions, or none.
bool loadFunctions();
void unloadFunctions();

// Sets the counts of the running router, which stores them too, or those that a stopped one will start with.
bool setPorts(DWORD pptpPorts, DWORD l2tpPorts);

} // namespace router
