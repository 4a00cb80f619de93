// The table of imports, and of the functions and methods that the library finds at run time (no module).
// Columns: how a failure is told; whether a transcript shows the call always, on demand or never; what is
// lent ("+kind"), used ("kind") or taken back ("-kind"); the codes that a failure plausibly has. A code is
// told in the log, or the log has another line for it ("!"), or is silent ("~"), or is an answer after which
// the library goes another way ("="). Every function here is there in Windows 5.2.
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

#define VARNEL_IMPORTS(X)                                                                                    \
    X(RasDialA, "rasapi32.dll", byCode, shown, "", "8 6 633 651 621 =756")                                   \
    X(RasHangUpA, "rasapi32.dll", byCode, shown, "", "8 6 =668")                                             \
    X(RasGetConnectStatusA, "rasapi32.dll", byCode, shown, "", "=8 =668 =6")                                 \
    X(RasGetProjectionInfoA, "rasapi32.dll", byCode, detail, "", "~6 ~731")                                  \
    X(RasGetErrorStringA, "rasapi32.dll", byCode, detail, "", "~87 ~122")                                    \
    X(RasEnumConnectionsA, "rasapi32.dll", byCode, shown, "", "8 603 632 1722")                              \
    X(RasEnumEntriesA, "rasapi32.dll", byCode, detail, "", "8 621 632 =603")                                 \
    X(RasSetEntryPropertiesA, "rasapi32.dll", byCode, shown, "", "5 610 621")                                \
    X(RasSetEntryDialParamsA, "rasapi32.dll", byCode, detail, "", "5 610 623")                               \
    X(RasGetEntryDialParamsA, "rasapi32.dll", byCode, detail, "", "~5 ~623")                                 \
    X(RasRenameEntryA, "rasapi32.dll", byCode, shown, "", "5 623 =183")                                      \
    X(RasDeleteEntryA, "rasapi32.dll", byCode, shown, "", "5 623")                                           \
    X(CloseHandle, "KERNEL32.dll", never, hidden, "-handle", "")                                             \
    X(CreateEventA, "KERNEL32.dll", byZero, hidden, "+handle", "=8 =1450")                                   \
    X(SetEvent, "KERNEL32.dll", byZero, hidden, "handle", "=6")                                              \
    X(WaitForSingleObject, "KERNEL32.dll", byMinusOne, shown, "handle", "6 5")                               \
    X(Sleep, "KERNEL32.dll", never, shown, "", "")                                                           \
    X(GetTickCount, "KERNEL32.dll", never, hidden, "", "")                                                   \
    X(OpenMutexA, "KERNEL32.dll", byZero, detail, "+handle", "2 5")                                          \
    X(ReleaseMutex, "KERNEL32.dll", never, detail, "handle", "")                                             \
    X(HeapAlloc, "KERNEL32.dll", byZero, hidden, "+block", "8")                                              \
    X(HeapFree, "KERNEL32.dll", never, hidden, "-block", "")                                                 \
    X(GetModuleHandleExA, "KERNEL32.dll", byZero, hidden, "", "~8")                                          \
    X(GetSystemDirectoryA, "KERNEL32.dll", byZero, detail, "", "=8")                                         \
    X(LoadLibraryA, "KERNEL32.dll", byZero, shown, "+library", "8 126")                                      \
    X(GetProcAddress, "KERNEL32.dll", byZero, detail, "library", "=127")                                     \
    X(FreeLibrary, "KERNEL32.dll", never, shown, "-library", "")                                             \
    X(SHGetFolderPathA, "SHELL32.dll", byHresult, detail, "", "5 2")                                         \
    X(FindFirstFileA, "KERNEL32.dll", byMinusOne, detail, "+search", "=2 =3 =5")                             \
    X(FindNextFileA, "KERNEL32.dll", byZero, hidden, "search", "=8 =18")                                     \
    X(FindClose, "KERNEL32.dll", never, hidden, "-search", "")                                               \
    X(CreateFileA, "KERNEL32.dll", byMinusOne, shown, "+handle", "5 32 3")                                   \
    X(WriteFile, "KERNEL32.dll", byZero, detail, "handle", "=112")                                           \
    X(DeleteFileA, "KERNEL32.dll", byZero, shown, "", "=2 =5 =32")                                           \
    X(MoveFileExA, "KERNEL32.dll", byZero, shown, "", "=5 =2")                                               \
    X(FindResourceA, "KERNEL32.dll", byZero, detail, "", "=1814")                                            \
    X(LoadResource, "KERNEL32.dll", byZero, hidden, "", "8")                                                 \
    X(LockResource, "KERNEL32.dll", byZero, hidden, "", "=8")                                                \
    X(SizeofResource, "KERNEL32.dll", byZero, hidden, "", "=8")                                              \
    X(RegOpenKeyExA, "ADVAPI32.dll", byCode, detail, "+key", "=2 =5")                                        \
    X(RegCloseKey, "ADVAPI32.dll", never, hidden, "-key", "")                                                \
    X(RegQueryInfoKeyA, "ADVAPI32.dll", byCode, hidden, "key", "=5")                                         \
    X(RegEnumKeyExA, "ADVAPI32.dll", byCode, hidden, "key", "=259 =234")                                     \
    X(RegQueryValueExA, "ADVAPI32.dll", byCode, detail, "key", "=2 =234")                                    \
    X(RegSetValueExA, "ADVAPI32.dll", byCode, shown, "key", "=5 =8")                                         \
    X(OpenSCManagerA, "ADVAPI32.dll", byZero, detail, "+service", "5 1722")                                  \
    X(OpenServiceA, "ADVAPI32.dll", byZero, detail, "+service", "5 =1060")                                   \
    X(CreateServiceA, "ADVAPI32.dll", byZero, shown, "+service", "5 1073 1072")                              \
    X(CloseServiceHandle, "ADVAPI32.dll", never, hidden, "-service", "")                                     \
    X(ControlService, "ADVAPI32.dll", byZero, shown, "service", "1062 5")                                    \
    X(QueryServiceStatus, "ADVAPI32.dll", byZero, shown, "service", "=6")                                    \
    X(DeleteService, "ADVAPI32.dll", byZero, shown, "service", "=5 =1072")                                   \
    X(socket, "WS2_32.dll", byMinusOne, shown, "+socket", "=10055 =10093")                                   \
    X(setsockopt, "WS2_32.dll", byMinusOne, shown, "socket", "=10038")                                       \
    X(bind, "WS2_32.dll", byMinusOne, shown, "socket", "=10048 =10013")                                      \
    X(closesocket, "WS2_32.dll", byMinusOne, shown, "-socket", "10038")                                      \
    X(CoInitialize, "ole32.dll", byHresult, detail, "", "=2147942414 =2147549446")                           \
    X(CoUninitialize, "ole32.dll", never, detail, "", "")                                                    \
    X(CoCreateInstance, "ole32.dll", byHresult, hidden, "+object", "!2147942414 !2147746132 !2147942405")    \
    X(SysFreeString, "OLEAUT32.dll", never, hidden, "-text", "")                                             \
    X(CheckIdFormat, "Helper.dll", byThrowing, hidden, "", "~8")                                             \
    X(GetFileVersion, "Helper.dll", byThrowing, detail, "", "~8")                                            \
    X(GetIs64Os, "Helper.dll", never, hidden, "", "")                                                        \
    X(GetPrivateConfigPathName, "Helper.dll", byThrowing, hidden, "", "~8")                                  \
    X(GetWorkingPath, "Helper.dll", byThrowing, hidden, "", "~8")                                            \
    X(IsChineseOs, "Helper.dll", never, hidden, "", "")                                                      \
    X(IsFileExist, "Helper.dll", never, hidden, "", "")                                                      \
    X(IsWin2K, "Helper.dll", never, hidden, "", "")                                                          \
    X(IsWin6Plus, "Helper.dll", never, hidden, "", "")                                                       \
    X(IsWinXP, "Helper.dll", never, hidden, "", "")                                                          \
    X(PathName2Name, "Helper.dll", byThrowing, hidden, "", "~8")                                             \
    X(int2strd, "Helper.dll", byThrowing, hidden, "", "~8")                                                  \
    X(int2stru, "Helper.dll", byThrowing, hidden, "", "~8")                                                  \
    X(ip2string, "Helper.dll", byThrowing, hidden, "", "~8")                                                 \
    X(unicode2utf8, "Helper.dll", byThrowing, hidden, "", "~8")                                              \
    X(utf82unicode, "Helper.dll", byThrowing, hidden, "", "~8")                                              \
    X(DisableService, "Helper2.dll", byZero, shown, "", "=5")                                                \
    X(EnableService, "Helper2.dll", byZero, shown, "", "!5")                                                 \
    X(GetPortOccupyProcessW, "Helper2.dll", byZero, shown, "", "=8")                                         \
    X(IsServiceEnabled, "Helper2.dll", byZero, detail, "", "=5")                                             \
    X(StopService, "Helper2.dll", byZero, shown, "", "!1061")                                                \
    X(logLine, "Log.dll", never, hidden, "", "")                                                             \
    X(newMemory, "libstdc++-6.dll", byThrowing, hidden, "", "~8")                                            \
    X(MprAdminIsServiceRunning, "", never, shown, "", "")                                                    \
    X(MprAdminServerConnect, "", byCode, shown, "+router", "!5 !1722")                                       \
    X(MprAdminServerGetInfo, "", never, shown, "", "")                                                       \
    X(MprAdminServerSetInfo, "", byCode, shown, "router", "!5 !87 =3010")                                    \
    X(MprAdminServerDisconnect, "", never, shown, "-router", "")                                             \
    X(MprConfigServerConnect, "", byCode, shown, "+router", "!5 !1722")                                      \
    X(MprConfigServerGetInfo, "", never, shown, "", "")                                                      \
    X(MprConfigServerSetInfo, "", byCode, shown, "router", "!5 !87 =3010")                                   \
    X(MprConfigServerDisconnect, "", never, shown, "-router", "")                                            \
    X(GetNetworkConnections, "", byHresult, hidden, "+object", "!8")                                         \
    X(Next, "", byHresult, hidden, "object", "!8")                                                           \
    X(GetNetwork, "", byHresult, hidden, "+object", "!8")                                                    \
    X(GetName, "", byHresult, hidden, "+text", "=8")                                                         \
    X(GetCategory, "", byHresult, hidden, "object", "=8")                                                    \
    X(SetCategory, "", byHresult, shown, "object", "!5")                                                     \
    X(Release, "", never, hidden, "-object", "")
