// What one dial-up costs beyond the waits that it is meant to make and the time that the service takes: the
// service and Sleep answer at once, everything else, the log file included, is real.
#include "outside/Log.h"
#include "tests/kit/import_table.h"
#include "varnel/Varnel.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include <ras.h>

#include <string>
#include <vector>

namespace {

constexpr int dials = 101;
constexpr double allowed = 5.0; // ms

DWORD dialAtOnce(LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, DWORD, LPVOID notifier,
                 LPHRASCONN conn) {
    *conn = reinterpret_cast<HRASCONN>(1);
    const auto notify = reinterpret_cast<RASDIALFUNC2>(notifier);
    for (const RASCONNSTATE state :
         {RASCS_OpenPort, RASCS_PortOpened, RASCS_ConnectDevice, RASCS_DeviceConnected,
          RASCS_AllDevicesConnected, RASCS_Authenticate, RASCS_Authenticated, RASCS_AuthProject,
          RASCS_Projected, RASCS_Connected})
        notify(params->dwCallbackId, 1, *conn, WM_RASDIALEVENT, state, 0, 0);
    return 0;
}

DWORD listNone(LPCSTR, LPCSTR, LPRASENTRYNAMEA, LPDWORD, LPDWORD count) {
    *count = 0;
    return 0;
}

// Serves every function of the service whose arguments need no answer but 0.
DWORD succeed() {
    return 0;
}

void returnAtOnce(DWORD) {}

template<class F>
void* address(F* function) {
    return reinterpret_cast<void*>(function);
}

double millisecondsOfOneDial() {
    const auto start = std::chrono::steady_clock::now();
    const DWORD result = VARNEL::dialUp("Node1", "secret", false, true, 0x0A000001);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    REQUIRE(result == 0);
    return took.count();
}

double medianOfDials() {
    std::vector<double> times(dials);
    std::generate(times.begin(), times.end(), millisecondsOfOneDial);
    std::nth_element(times.begin(), times.begin() + dials / 2, times.end());
    return times[dials / 2];
}

// Under a name of its own, which the next run takes again.
void logToTemporaryFile() {
    char folder[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, folder);
    SetEnvironmentVariableA("TAVIK_LOG_FILE", (std::string(folder) + "varnel-cost-test.log").c_str());
}

} // namespace

TEST_CASE("a dial-up adds less than 5 ms of the library's own") {
    logToTemporaryFile();
    ImportTable table(GetModuleHandleA("Varnel.dll"));
    REQUIRE(table.replace("Sleep", address(&returnAtOnce)));
    REQUIRE(table.replace("RasDialA", address(&dialAtOnce)));
    REQUIRE(table.replace("RasEnumEntriesA", address(&listNone)));
    for (const char* name : {"RasSetEntryPropertiesA", "RasSetEntryDialParamsA", "RasGetEntryDialParamsA",
                             "RasGetProjectionInfoA", "RasGetConnectStatusA"})
        REQUIRE(table.replace(name, address(&succeed)));

    LOG::level = 2;
    const double withFailuresLogged = medianOfDials();
    LOG::level = 3;
    const double withAllLogged = medianOfDials();
    std::printf("own cost of one dial-up: %.3f ms, with every detail logged %.3f ms (medians of %d)\n",
                withFailuresLogged, withAllLogged, dials);
    CHECK(withFailuresLogged < allowed);
    CHECK(withAllLogged < allowed);
}
