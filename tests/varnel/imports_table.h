// The table of imports, and of the functions and methods that the library finds at run time. Columns: how a
// failure is told; whether a transcript shows the call always, on demand or never; what is lent ("+kind"),
// used ("kind") or taken back ("-kind"); the codes that a failure plausibly has; the functions of which all
// that is so. A code is told in the log, or the log has another line for it ("!"), or is silent ("~"), or is
// an answer after which the library goes another way ("="). Every function here is there in Windows 5.2.
#pragma once

#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "outside/Log.h"

#include <winsock2.h>
#include <windows.h>
#include <mprapi.h>
#include <netlistmgr.h>
#include <objbase.h>
#include <oleauto.h>
#include <ras.h>
#include <shlobj.h>

enum class Seen { none, shown, detail, hidden };

// Names for what has no plain one. They are never defined: the table needs their types.
void logLine(int level, const char* file, long line, const std::string& text); // LOG::prints
void* newMemory(std::size_t size);                                             // operator new
HRESULT GetNetworkConnections(INetworkListManager* manager, IEnumNetworkConnections** connections);
HRESULT Next(IEnumNetworkConnections* connections, ULONG wanted, INetworkConnection** next, ULONG* fetched);
HRESULT GetNetwork(INetworkConnection* connection, INetwork** network);
HRESULT GetName(INetwork* network, BSTR* name);
HRESULT GetCategory(INetwork* network, NLM_NETWORK_CATEGORY* category);
HRESULT SetCategory(INetwork* network, NLM_NETWORK_CATEGORY category);
ULONG Release(IUnknown* object);

#define VARNEL_IMPORTS(ROW)                                                                                  \
    ROW(byCode, shown, "", "8 6 633 651 621 =756", RasDialA)                                                 \
    ROW(byCode, shown, "", "8 6 =668", RasHangUpA)                                                           \
    ROW(byCode, shown, "", "=8 =668 =6", RasGetConnectStatusA)                                               \
    ROW(byCode, detail, "", "~6 ~623 ~731", RasGetProjectionInfoA, RasGetErrorStringA,                       \
        RasGetEntryDialParamsA)                                                                              \
    ROW(byCode, shown, "", "8 603 632 1722", RasEnumConnectionsA)                                            \
    ROW(byCode, detail, "", "8 621 632 =603", RasEnumEntriesA)                                               \
    ROW(byCode, shown, "", "5 621 623", RasSetEntryPropertiesA, RasDeleteEntryA)                             \
    ROW(byCode, detail, "", "5 610 623", RasSetEntryDialParamsA)                                             \
    ROW(byCode, shown, "", "5 623 =183", RasRenameEntryA)                                                    \
    ROW(never, hidden, "-handle", "", CloseHandle)                                                           \
    ROW(byZero, hidden, "+handle", "=8 =1450", CreateEventA)                                                 \
    ROW(byZero, hidden, "handle", "=6", SetEvent)                                                            \
    ROW(byMinusOne, shown, "handle", "6 5", WaitForSingleObject)                                             \
    ROW(never, shown, "", "", Sleep, MprAdminIsServiceRunning, MprAdminServerGetInfo,                        \
        MprConfigServerGetInfo)                                                                              \
    ROW(never, hidden, "", "", GetTickCount, GetIs64Os, IsChineseOs, IsFileExist, IsWin2K, IsWin6Plus,       \
        IsWinXP, logLine)                                                                                    \
    ROW(byZero, detail, "+handle", "2 5", OpenMutexA)                                                        \
    ROW(never, detail, "handle", "", ReleaseMutex)                                                           \
    ROW(byZero, hidden, "+block", "8", HeapAlloc)                                                            \
    ROW(never, hidden, "-block", "", HeapFree)                                                               \
    ROW(byZero, hidden, "", "~8", GetModuleHandleExA)                                                        \
    ROW(byZero, detail, "", "=5 =8", GetSystemDirectoryA, FindResourceA, IsServiceEnabled)                   \
    ROW(byZero, shown, "+library", "8 126", LoadLibraryA)                                                    \
    ROW(byZero, detail, "library", "=127", GetProcAddress)                                                   \
    ROW(never, shown, "-library", "", FreeLibrary)                                                           \
    ROW(byHresult, detail, "", "5 2", SHGetFolderPathA)                                                      \
    ROW(byMinusOne, detail, "+search", "=2 =3 =5", FindFirstFileA)                                           \
    ROW(byZero, hidden, "search", "=8 =18", FindNextFileA)                                                   \
    ROW(never, hidden, "-search", "", FindClose)                                                             \
    ROW(byMinusOne, shown, "+handle", "5 32 3", CreateFileA)                                                 \
    ROW(byZero, detail, "handle", "=112", WriteFile)                                                         \
    ROW(byZero, shown, "", "=2 =5 =32", DeleteFileA, MoveFileExA)                                            \
    ROW(byZero, hidden, "", "8", LoadResource)                                                               \
    ROW(byZero, hidden, "", "=8", LockResource, SizeofResource)                                              \
    ROW(byCode, detail, "+key", "=2 =5", RegOpenKeyExA)                                                      \
    ROW(never, hidden, "-key", "", RegCloseKey)                                                              \
    ROW(byCode, hidden, "key", "=5 =234 =259", RegQueryInfoKeyA, RegEnumKeyExA)                              \
    ROW(byCode, detail, "key", "=2 =234", RegQueryValueExA)                                                  \
    ROW(byCode, shown, "key", "=5 =8", RegSetValueExA)                                                       \
    ROW(byZero, detail, "+service", "5 1722", OpenSCManagerA)                                                \
    ROW(byZero, detail, "+service", "5 =1060", OpenServiceA)                                                 \
    ROW(byZero, shown, "+service", "5 1073 1072", CreateServiceA)                                            \
    ROW(never, hidden, "-service", "", CloseServiceHandle)                                                   \
    ROW(byZero, shown, "service", "1062 5", ControlService)                                                  \
    ROW(byZero, shown, "service", "=5 =6 =1072", QueryServiceStatus, DeleteService)                          \
    ROW(byMinusOne, shown, "+socket", "=10055 =10093", socket)                                               \
    ROW(byMinusOne, shown, "socket", "=10013 =10038 =10048", setsockopt, bind)                               \
    ROW(byMinusOne, shown, "-socket", "10038", closesocket)                                                  \
    ROW(byHresult, detail, "", "=2147942414 =2147549446", CoInitialize)                                      \
    ROW(never, detail, "", "", CoUninitialize)                                                               \
    ROW(byHresult, hidden, "+object", "!2147942414 !2147746132 !2147942405", CoCreateInstance)               \
    ROW(never, hidden, "-text", "", SysFreeString)                                                           \
    ROW(byThrowing, hidden, "", "~8", CheckIdFormat, GetPrivateConfigPathName, GetWorkingPath,               \
        PathName2Name, int2strd, int2stru, ip2string, unicode2utf8, utf82unicode, newMemory)                 \
    ROW(byThrowing, detail, "", "~8", GetFileVersion)                                                        \
    ROW(byZero, shown, "", "=5 =8", DisableService, GetPortOccupyProcessW)                                   \
    ROW(byZero, shown, "", "!5 !1061", EnableService, StopService)                                           \
    ROW(byCode, shown, "+router", "!5 !1722", MprAdminServerConnect, MprConfigServerConnect)                 \
    ROW(byCode, shown, "router", "!5 !87 =3010", MprAdminServerSetInfo, MprConfigServerSetInfo)              \
    ROW(never, shown, "-router", "", MprAdminServerDisconnect, MprConfigServerDisconnect)                    \
    ROW(byHresult, hidden, "+object", "!8", GetNetworkConnections, GetNetwork)                               \
    ROW(byHresult, hidden, "object", "!8", Next)                                                             \
    ROW(byHresult, hidden, "+text", "=8", GetName)                                                           \
    ROW(byHresult, hidden, "object", "=8", GetCategory)                                                      \
    ROW(byHresult, shown, "object", "!5", SetCategory)                                                       \
    ROW(never, hidden, "-object", "", Release)
