#include "outside/Helper2.h"
#include "tests/kit/import_table.h"

#include <winsock2.h>

#include <catch2/catch.hpp>

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <iphlpapi.h>

#include <string>
#include <vector>

#include <winsvc.h>

namespace {

constexpr DWORD FailedCode = 4712;
constexpr DWORD EndControl = 128; // of our own, which every one of our services takes

// The service that this program is when it runs the hidden case "service". What it does is in its name.
class ThisService {
  public:
    static void WINAPI main(DWORD, char** arguments) {
        const std::string name = arguments[0];
        stopped = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        handle = RegisterServiceCtrlHandlerA(arguments[0], onControl);
        if (name.ends_with("Slow") || name.ends_with("Failing")) {
            tell(SERVICE_START_PENDING);
            Sleep(300);
        }
        if (name.ends_with("Failing")) {
            tell(SERVICE_STOPPED, FailedCode);
            return;
        }
        unstoppable = name.ends_with("Unstoppable");
        tell(SERVICE_RUNNING);
        WaitForSingleObject(stopped, INFINITE);
        if (name.ends_with("Slow"))
            Sleep(300);
        tell(SERVICE_STOPPED);
    }

  private:
    static void WINAPI onControl(DWORD control) {
        if (control != SERVICE_CONTROL_STOP && control != EndControl)
            return;
        tell(SERVICE_STOP_PENDING);
        SetEvent(stopped);
    }

    static void tell(DWORD state, DWORD exitCode = NO_ERROR) {
        SERVICE_STATUS status{};
        status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
        status.dwCurrentState = state;
        status.dwControlsAccepted = state == SERVICE_RUNNING && !unstoppable ? SERVICE_ACCEPT_STOP : 0;
        status.dwWin32ExitCode = exitCode;
        status.dwWaitHint = 1000;
        SetServiceStatus(handle, &status);
    }

    static inline SERVICE_STATUS_HANDLE handle;
    static inline HANDLE stopped;
    static inline bool unstoppable;
};

// Installs a service for a scope.
class Installed {
  public:
    Installed(const std::string& serviceName, DWORD type, DWORD start, const std::string& image)
        : name(serviceName), manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
        service =
            CreateServiceA(manager, name.c_str(), name.c_str(), SERVICE_ALL_ACCESS, type, start,
                           SERVICE_ERROR_NORMAL, image.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
        INFO(name);
        REQUIRE(service);
    }
    Installed(const std::string& serviceName, DWORD start)
        : Installed(serviceName, SERVICE_WIN32_OWN_PROCESS, start, "\"" + thisProgram() + "\" service") {}
    ~Installed() {
        control(EndControl);
        for (int i = 0; i < 500 && state() != SERVICE_STOPPED; ++i)
            Sleep(10);
        DeleteService(service);
        CloseServiceHandle(service);
        CloseServiceHandle(manager);
    }

    DWORD startType() const {
        alignas(QUERY_SERVICE_CONFIGA) char buffer[4096];
        const auto config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
        DWORD needed = 0;
        REQUIRE(QueryServiceConfigA(service, config, sizeof buffer, &needed));
        return config->dwStartType;
    }

    bool control(DWORD code) const {
        SERVICE_STATUS status{};
        return ControlService(service, code, &status) != FALSE;
    }

    DWORD state() const {
        SERVICE_STATUS status{};
        return QueryServiceStatus(service, &status) ? status.dwCurrentState : 0;
    }

    const std::string name;

  private:
    static std::string thisProgram() {
        char path[MAX_PATH] = "";
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        return path;
    }

    SC_HANDLE manager;
    SC_HANDLE service;
};

class Listener {
  public:
    Listener() : socket(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int size = sizeof address;
        REQUIRE(bind(socket, reinterpret_cast<sockaddr*>(&address), size) == 0);
        REQUIRE(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0);
        REQUIRE(listen(socket, 1) == 0);
        port = ntohs(address.sin_port);
        letTheSystemKnowItsOwner();
    }
    ~Listener() { closesocket(socket); }

    unsigned short port;

  private:
    // Wine finds the owner of a socket only after the process has tried to transfer something.
    void letTheSystemKnowItsOwner() const {
        u_long nonBlocking = 1;
        ioctlsocket(socket, static_cast<long>(FIONBIO), &nonBlocking);
        send(socket, "x", 1, 0);
    }

    const SOCKET socket;
};

class Winsock {
  public:
    Winsock() {
        WSADATA data{};
        REQUIRE(WSAStartup(MAKEWORD(2, 0), &data) == 0);
    }
    ~Winsock() { WSACleanup(); }
};

HMODULE helper2() {
    return GetModuleHandleW(L"Helper2.dll");
}

template<typename Function>
void* pointer(Function* function) {
    return reinterpret_cast<void*>(function);
}

// The dependents of TavikTestBase, as far as they still run; none for other services.
SC_HANDLE baseAsked = nullptr;

BOOL WINAPI enumerateDependents(SC_HANDLE service, DWORD, ENUM_SERVICE_STATUSA* records, DWORD size,
                                DWORD* needed, DWORD* count) {
    static char farther[] = "TavikTestFar", nearer[] = "TavikTestNear";
    if (!baseAsked)
        baseAsked = service;
    *count = service == baseAsked ? 2 : 0;
    *needed = static_cast<DWORD>(*count * sizeof *records);
    if (size < *needed) {
        SetLastError(ERROR_MORE_DATA);
        return FALSE;
    }
    for (DWORD i = 0; i < *count; ++i)
        records[i].lpServiceName = i == 0 ? farther : nearer;
    return TRUE;
}

// What the service control manager and the clock are made to tell.
SERVICE_STATUS pretended;
DWORD now;
DWORD countedSleeps;

std::vector<MIB_TCPROW_OWNER_PID> connections;

DWORD WINAPI tellConnections(void* table, DWORD* size, BOOL, ULONG, TCP_TABLE_CLASS, ULONG) {
    const DWORD room = *size;
    const std::size_t bytes = connections.size() * sizeof connections[0];
    *size = static_cast<DWORD>(offsetof(MIB_TCPTABLE_OWNER_PID, table) + bytes);
    if (room < *size)
        return ERROR_INSUFFICIENT_BUFFER;
    auto& records = *static_cast<MIB_TCPTABLE_OWNER_PID*>(table);
    records.dwNumEntries = static_cast<DWORD>(connections.size());
    std::memcpy(records.table, connections.data(), bytes);
    return NO_ERROR;
}

} // namespace

TEST_CASE("service", "[.]") {
    char anyName[] = "";
    SERVICE_TABLE_ENTRYA table[] = {{anyName, ThisService::main}, {nullptr, nullptr}};
    StartServiceCtrlDispatcherA(table);
}

TEST_CASE("A service that is not installed") {
    const auto act = GENERATE(
        as<bool (*)(const char*)>(), DisableService, StopService,
        [](const char* name) { return EnableService(name, 0); },
        [](const char* name) { return IsServiceEnabled(name, nullptr); });
    SetLastError(0);
    CHECK_FALSE(act("TavikTestMissing"));
    CHECK(GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST);
    bool exists = false;
    CHECK_FALSE(IsServiceEnabled("TavikTestMissing", &exists));
    CHECK_FALSE(exists);
}

TEST_CASE("A service that may not be opened is installed") {
    ImportTable imports(helper2());
    REQUIRE(imports.replace("OpenServiceA", pointer(+[](SC_HANDLE, const char*, DWORD) -> SC_HANDLE {
                                SetLastError(ERROR_ACCESS_DENIED);
                                return nullptr;
                            })));
    bool exists = false;
    CHECK_FALSE(IsServiceEnabled("TavikTest", &exists));
    CHECK(exists);
    CHECK(GetLastError() == ERROR_ACCESS_DENIED);
}

TEST_CASE("A service is enabled, started, stopped and disabled") {
    const std::string name = GENERATE(as<std::string>(), "TavikTest", "TavikTestSlow");
    const Installed service(name, SERVICE_DISABLED);
    bool exists = false;
    CHECK_FALSE(IsServiceEnabled(name.c_str(), &exists));
    CHECK(exists);

    CHECK(EnableService(name.c_str(), 0));
    CHECK(service.state() == SERVICE_RUNNING);
    CHECK(service.startType() == SERVICE_AUTO_START);
    CHECK(IsServiceEnabled(name.c_str(), nullptr));
    CHECK(EnableService(name.c_str(), 2)); // runs already
    CHECK(service.startType() == SERVICE_AUTO_START);

    CHECK(DisableService(name.c_str()));
    CHECK(service.startType() == SERVICE_DISABLED);
    CHECK(service.state() == SERVICE_RUNNING);

    CHECK(StopService(name.c_str()));
    CHECK(service.state() == SERVICE_STOPPED);
    CHECK(StopService(name.c_str())); // has stopped already
}

TEST_CASE("A service that is being stopped is started again, and keeps its start type when not disabled") {
    const Installed service("TavikTestSlow", SERVICE_DEMAND_START);
    REQUIRE(EnableService("TavikTestSlow", 0));
    REQUIRE(service.control(SERVICE_CONTROL_STOP));
    CHECK(EnableService("TavikTestSlow", 2));
    CHECK(service.state() == SERVICE_RUNNING);
    CHECK(service.startType() == SERVICE_DEMAND_START);
}

TEST_CASE("A service that ends at its start leaves its own code") {
    const Installed service("TavikTestFailing", SERVICE_DEMAND_START);
    SetLastError(0);
    CHECK_FALSE(EnableService("TavikTestFailing", 0));
    CHECK(GetLastError() == FailedCode);
}

TEST_CASE("A service that does not take a stop goes on, and the code tells it") {
    const Installed service("TavikTestUnstoppable", SERVICE_DEMAND_START);
    REQUIRE(EnableService("TavikTestUnstoppable", 0));
    SetLastError(0);
    CHECK_FALSE(StopService("TavikTestUnstoppable"));
    CHECK(GetLastError() != 0);
    CHECK(service.state() == SERVICE_RUNNING);
}

TEST_CASE("A driver that cannot be started is reported, and gets the start type asked for") {
    const auto [mode, startType] = GENERATE(
        table<unsigned long, DWORD>({{0UL, DWORD{SERVICE_DEMAND_START}}, {2UL, DWORD{SERVICE_BOOT_START}}}));
    const Installed driver("TavikTestDriver", SERVICE_KERNEL_DRIVER, SERVICE_DISABLED,
                           "system32\\drivers\\TavikTestMissing.sys");
    SetLastError(0);
    CHECK_FALSE(EnableService("TavikTestDriver", mode));
    CHECK(GetLastError() != 0);
    CHECK(driver.startType() == startType);
}

TEST_CASE("What depends on a service is stopped before it, in the system's order") {
    const Installed base("TavikTestBase", SERVICE_DEMAND_START);
    const Installed nearer("TavikTestNear", SERVICE_DEMAND_START);
    const Installed farther("TavikTestFar", SERVICE_DEMAND_START);
    for (const auto* service : {&base, &nearer, &farther})
        REQUIRE(EnableService(service->name.c_str(), 0));

    // Wine tells of no dependent services.
    static std::vector<std::string> opened;
    opened.clear();
    baseAsked = nullptr;
    ImportTable imports(helper2());
    REQUIRE(imports.replace("EnumDependentServicesA", pointer(enumerateDependents)));
    REQUIRE(imports.replace("OpenServiceA", pointer(+[](SC_HANDLE manager, const char* name, DWORD access) {
                                opened.emplace_back(name);
                                return OpenServiceA(manager, name, access);
                            })));
    CHECK(StopService("TavikTestBase"));
    CHECK(opened == std::vector<std::string>{"TavikTestBase", "TavikTestFar", "TavikTestNear"});
    for (const auto* service : {&base, &nearer, &farther})
        CHECK(service->state() == SERVICE_STOPPED);
}

TEST_CASE("Waiting for a service ends after 30 s, at the pace that it asks for") {
    const auto hint = GENERATE(DWORD{0}, DWORD{2'000}, DWORD{600'000});
    const auto act = GENERATE(false, true);
    const Installed service("TavikTest", SERVICE_DEMAND_START);
    pretended = {};
    pretended.dwCurrentState = act ? SERVICE_START_PENDING : SERVICE_STOP_PENDING;
    pretended.dwWaitHint = hint;
    now = 0xFFFFFFFF - 10'000; // the count starts again while it waits
    const DWORD begin = now;
    countedSleeps = 0;
    ImportTable imports(helper2());
    REQUIRE(imports.replace("QueryServiceStatus", pointer(+[](SC_HANDLE, SERVICE_STATUS* status) -> BOOL {
                                *status = pretended;
                                return TRUE;
                            })));
    REQUIRE(imports.replace("GetTickCount", pointer(+[] { return now; })));
    REQUIRE(imports.replace("Sleep", pointer(+[](DWORD time) {
                                now += time;
                                ++countedSleeps;
                            })));
    SetLastError(0);
    CHECK_FALSE((act ? EnableService("TavikTest", 0) : StopService("TavikTest")));
    CHECK(GetLastError() == ERROR_SERVICE_REQUEST_TIMEOUT);
    CHECK(now - begin == 30'000);
    CHECK(countedSleeps == 30'000 / std::clamp(hint / 10, DWORD{50}, DWORD{1'000}));
}

TEST_CASE("The process that listens on a port is found, with its name") {
    const Winsock winsock;
    std::wstring name = L"old";
    unsigned short port = 0;
    {
        const Listener listener;
        port = listener.port;
        CHECK(GetPortOccupyProcessW(port, name) == GetCurrentProcessId());
        CHECK(name == L"helper2_test.exe");
    }
    SetLastError(0);
    CHECK(GetPortOccupyProcessW(port, name) == 0);
    CHECK(GetLastError() == ERROR_NOT_FOUND);
    CHECK(name.empty());
}

TEST_CASE("A listener comes before a connection, and what belongs to nobody is passed over") {
    connections = {
        {MIB_TCP_STATE_ESTAB, 0, 0xABCD0000u | htons(1723), 0, 0, 12},
        {MIB_TCP_STATE_TIME_WAIT, 0, htons(1723), 0, 0, 0},
        {MIB_TCP_STATE_LISTEN, 0, htons(1724), 0, 0, 16},
    };
    ImportTable imports(helper2());
    REQUIRE(imports.replace("GetExtendedTcpTable", pointer(tellConnections)));
    std::wstring name;
    CHECK(GetPortOccupyProcessW(1723, name) == 12);
    connections.push_back({MIB_TCP_STATE_LISTEN, 0, htons(1723), 0, 0, 4});
    CHECK(GetPortOccupyProcessW(1723, name) == 4);
    CHECK(name == L"System");
    CHECK(GetPortOccupyProcessW(1724, name) == 16);
    CHECK(GetPortOccupyProcessW(1725, name) == 0);
    CHECK(name.empty());
}

TEST_CASE("A table of connections that grows between two calls is asked for again") {
    connections = {{MIB_TCP_STATE_LISTEN, 0, htons(1723), 0, 0, 4}};
    ImportTable imports(helper2());
    REQUIRE(imports.replace(
        "GetExtendedTcpTable", pointer(+[](void* table, DWORD* size, BOOL order, ULONG family,
                                           TCP_TABLE_CLASS kind, ULONG reserved) -> DWORD {
            if (connections.size() < 1000)
                connections.insert(connections.begin(), 400, {MIB_TCP_STATE_LISTEN, 0, 0, 0, 0, 0});
            return tellConnections(table, size, order, family, kind, reserved);
        })));
    std::wstring name;
    CHECK(GetPortOccupyProcessW(1723, name) == 4);
}
