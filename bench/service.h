// A remote-access service in the process, which the library's imports are led to. It connects at once. Each of its
// functions makes one call of the kernel, as the real ones make one of their server at least.
#pragma once

#include "tests/kit/import_table.h"

#include <winsock2.h>
#include <windows.h>
#include <ras.h>

namespace service {

inline constexpr DWORD recordSize = 696; // of a connection

// What the library calls, and the bare calls too.
DWORD APIENTRY dial(LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA, DWORD, LPVOID notifier,
                    LPHRASCONN connection);
DWORD APIENTRY hangUp(HRASCONN);
DWORD APIENTRY connectStatus(HRASCONN, LPRASCONNSTATUSA);
DWORD APIENTRY enumConnections(LPRASCONNA, LPDWORD size, LPDWORD count);
DWORD APIENTRY enumEntries(LPCSTR, LPCSTR, LPRASENTRYNAMEA, LPDWORD, LPDWORD count);
DWORD APIENTRY setEntryProperties(LPCSTR, LPCSTR, LPRASENTRYA, DWORD, LPBYTE, DWORD);
DWORD APIENTRY setEntryDialParams(LPCSTR, LPRASDIALPARAMSA, BOOL);
DWORD APIENTRY getEntryDialParams(LPCSTR, LPRASDIALPARAMSA, LPBOOL stored);
DWORD APIENTRY projectionInfo(HRASCONN, RASPROJECTION, LPVOID, LPDWORD);
DWORD APIENTRY deleteEntry(LPCSTR, LPCSTR);
VOID WINAPI noSleep(DWORD);
DWORD WINAPI stampedWait(HANDLE object, DWORD timeout);

// Leads the library's imports here.
void takeOver(ImportTable& imports);

// So many connections are active from now on; the first is that of the peer "node".
void connect(DWORD count);

extern long calls; // of this service, so far

// A dial that is not answered yet, of the thread that has one.
struct Held {
    RASDIALFUNC2 notifier = nullptr;
    ULONG_PTR callbackId = 0;
    volatile long waiting = 0;
    LARGE_INTEGER woken = {};

    void notify() const { notifier(callbackId, 1, nullptr, 0, RASCS_Connected, 0, 0); }
};
extern thread_local Held* held;

} // namespace service
