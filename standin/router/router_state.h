// What the stand-in router remembers: a file router.ini that a person can read and change at any time.
//
//   [router]
//   Running=1       whether the router service runs (default 0)
//   Ceiling=1000    more ports than this want a restart (3010)
//   [running]       what the running router has: PptpPorts, PptpFlags, L2tpPorts, L2tpFlags
//   [stored]        what it will start with
//
// The file lies in the folder that environment variable STANDIN_ROUTER_FOLDER names, else in StandinRouter in
// the folder of data common to all users.
#pragma once

#include <windows.h>
#include <mprapi.h>

namespace standin {

enum class Side { running, stored };

bool routerRuns();
DWORD portCeiling();

MPR_SERVER_1 readPorts(Side side);
// 0, or the system's code when the file cannot be written.
DWORD writePorts(Side side, const MPR_SERVER_1& ports);

} // namespace standin
