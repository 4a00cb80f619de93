#include "service.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace service {

long calls = 0;
thread_local Held* held = nullptr;

namespace {

const HRASCONN onlyConnection = reinterpret_cast<HRASCONN>(0x10);
const HANDLE server = CreateEventA(nullptr, TRUE, FALSE, nullptr);
std::vector<char> records;
DWORD active = 0;
thread_local bool gone = false;

DWORD answer() {
    InterlockedIncrement(&calls);
    SetEvent(server);
    return 0;
}

} // namespace

DWORD WINAPI stampedWait(HANDLE object, DWORD timeout) {
    if (held != nullptr)
        InterlockedExchange(&held->waiting, 1);
    const DWORD result = WaitForSingleObject(object, timeout);
    if (held != nullptr) {
        QueryPerformanceCounter(&held->woken);
        InterlockedExchange(&held->waiting, 0);
    }
    return result;
}

DWORD APIENTRY dial(LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, DWORD, LPVOID notifier,
                    LPHRASCONN connection) {
    *connection = onlyConnection;
    gone = false;
    const auto function = reinterpret_cast<RASDIALFUNC2>(notifier);
    if (held != nullptr) {
        held->notifier = function;
        held->callbackId = params->dwCallbackId;
    } else {
        function(params->dwCallbackId, 1, onlyConnection, 0, RASCS_Connected, 0, 0);
    }
    return answer();
}

DWORD APIENTRY hangUp(HRASCONN) {
    gone = true;
    return answer();
}

DWORD APIENTRY connectStatus(HRASCONN, LPRASCONNSTATUSA status) {
    status->rasconnstate = RASCS_Connected;
    status->dwError = 0;
    answer();
    return gone ? ERROR_INVALID_HANDLE : 0;
}

DWORD APIENTRY enumConnections(LPRASCONNA connections, LPDWORD size, LPDWORD count) {
    std::memcpy(connections, records.data(), std::min<std::size_t>(*size, records.size()));
    *count = active;
    return answer();
}

DWORD APIENTRY enumEntries(LPCSTR, LPCSTR, LPRASENTRYNAMEA, LPDWORD, LPDWORD count) {
    *count = 0;
    return answer();
}

DWORD APIENTRY setEntryProperties(LPCSTR, LPCSTR, LPRASENTRYA, DWORD, LPBYTE, DWORD) {
    return answer();
}

DWORD APIENTRY setEntryDialParams(LPCSTR, LPRASDIALPARAMSA, BOOL) {
    return answer();
}

DWORD APIENTRY getEntryDialParams(LPCSTR, LPRASDIALPARAMSA, LPBOOL stored) {
    *stored = FALSE;
    return answer();
}

DWORD APIENTRY projectionInfo(HRASCONN, RASPROJECTION, LPVOID projection, LPDWORD) {
    std::strcpy(static_cast<RASPPPIPA*>(projection)->szIpAddress, "10.7.0.2");
    return answer();
}

DWORD APIENTRY deleteEntry(LPCSTR, LPCSTR) {
    return answer();
}

VOID WINAPI noSleep(DWORD) {}

void takeOver(ImportTable& imports) {
    const auto lead = [&](const char* name, auto* function) {
        if (imports.replace(name, reinterpret_cast<void*>(function)) == nullptr)
            std::fprintf(stderr, "bench: the library does not import %s\n", name);
    };
    lead("RasDialA", &dial);
    lead("RasHangUpA", &hangUp);
    lead("RasGetConnectStatusA", &connectStatus);
    lead("RasEnumConnectionsA", &enumConnections);
    lead("RasEnumEntriesA", &enumEntries);
    lead("RasSetEntryPropertiesA", &setEntryProperties);
    lead("RasSetEntryDialParamsA", &setEntryDialParams);
    lead("RasGetEntryDialParamsA", &getEntryDialParams);
    lead("RasGetProjectionInfoA", &projectionInfo);
    lead("RasDeleteEntryA", &deleteEntry);
    lead("WaitForSingleObject", &stampedWait);
}

void connect(DWORD count) {
    active = count;
    records.assign(std::size_t{count} * recordSize, 0);
    for (DWORD i = 0; i < count; ++i) {
        // The handle and the name stand at these places of a record.
        std::memcpy(&records[i * recordSize + 4], &onlyConnection, sizeof(HRASCONN));
        std::snprintf(&records[i * recordSize + 12], RAS_MaxEntryName + 1,
                      i == 0 ? "node #0" : "visitor #%lu", i);
    }
}

} // namespace service
