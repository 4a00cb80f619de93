#include "outside/Helper2.h"
#include "tests/outside/module_imports.h"

#include <algorithm>
#include <cstring>

#include <iphlpapi.h>

#include <vector>

#include <winsvc.h>

namespace {

constexpr FallibleCall fallible[] = {
    allocation,          {"OpenSCManagerA", 0, 1},   {"OpenServiceA", 0, 1},
    {"StartServiceA"},   {"QueryServiceStatus"},     {"CloseServiceHandle", 0, -1},
    {"ControlService"},  {"QueryServiceConfigA"},    {"GetExtendedTcpTable", failureCode},
    {"Process32FirstW"}, {"ChangeServiceConfigA"},   {"CreateToolhelp32Snapshot", ~Word{0}, 1},
    {"Process32NextW"},  {"EnumDependentServicesA"}, {"CloseHandle", 0, -1}};

constexpr DWORD driver = SERVICE_KERNEL_DRIVER, program = SERVICE_WIN32_OWN_PROCESS;
constexpr DWORD disabled = SERVICE_DISABLED, onDemand = SERVICE_DEMAND_START;

const HMODULE helper2 = GetModuleHandleW(L"Helper2.dll");

// A service that is installed for a scope, with the image of one of the system's.
class Service {
  public:
    explicit Service(const char* name, DWORD start = onDemand, DWORD type = program) {
        remove(OpenServiceA(manager, name, DELETE)); // in case that an earlier run has left it
        service =
            CreateServiceA(manager, name, nullptr, SERVICE_ALL_ACCESS, type, start, 0,
                           "C:\\windows\\system32\\spoolsv.exe", nullptr, nullptr, nullptr, nullptr, nullptr);
    }
    ~Service() { remove(service); }

    DWORD startType() const {
        QUERY_SERVICE_CONFIGA config[8]; // with room for the texts
        DWORD needed = 0;
        REQUIRE(QueryServiceConfigA(service, config, sizeof config, &needed));
        return config->dwStartType;
    }

    bool runs() const {
        SERVICE_STATUS status{};
        REQUIRE(QueryServiceStatus(service, &status));
        return status.dwCurrentState == SERVICE_RUNNING;
    }

  private:
    static void remove(SC_HANDLE unwanted) {
        DeleteService(unwanted);
        CloseServiceHandle(unwanted);
    }

    static inline const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE service;
};

using Act = bool (*)();
const Act enable = [] { return EnableService("Base", 0); };
const Act disable = [] { return DisableService("Base"); };
const Act isEnabled = [] { return IsServiceEnabled("Base", nullptr); };
const Act stop = [] { return StopService("Base"); };

struct State {
    DWORD state, hint = 0, exitCode = NO_ERROR;
};
constexpr State stopped{SERVICE_STOPPED}, failed{SERVICE_STOPPED, 0, 77}, starting{SERVICE_START_PENDING},
    running{SERVICE_RUNNING}, pausing{SERVICE_PAUSE_PENDING}, paused{SERVICE_PAUSED},
    continuing{SERVICE_CONTINUE_PENDING}, stopping{SERVICE_STOP_PENDING},
    slow{SERVICE_START_PENDING, 600'000}, brisk{SERVICE_STOP_PENDING, 7'000};
constexpr DWORD timeout = ERROR_SERVICE_REQUEST_TIMEOUT, denied = ERROR_ACCESS_DENIED;

std::string repeated(const std::string& call, int count) {
    return count == 0 ? "" : call + repeated(call, count - 1);
}

// What the service control manager tells of Base and its dependents, and what the library does then.
struct Situation {
    Act act;
    std::vector<State> states;       // told in turn, at each question and successful stop; the last one stays
    std::string calls;               // starts, stops, pauses in ms and the dependents opened
    DWORD code = NO_ERROR;           // of the result
    std::vector<DWORD> answers = {}; // in turn, to starts and stops, which succeed afterwards
    std::vector<const char*> dependents = {};
};

const std::vector<const char*> three = {"Far", "Near", "Far"};
const std::string inTurn = "Far stop Near 700 Far stop " + repeated("700 ", 41) + "600 ";

const Situation situations[] = {
    {enable, {running}, ""},
    {enable, {paused}, ""},
    {enable, {pausing}, ""},
    {enable, {continuing}, ""},
    {enable, {stopped, starting, running}, "start 50 "},
    {enable, {stopping, stopped, running}, "50 start "},
    {enable, {stopped, starting, failed}, "start 50 ", 77},
    {enable, {stopped}, "start ", ERROR_SERVICE_NOT_ACTIVE},
    {enable, {stopped}, "start ", denied, {denied}},
    {enable, {stopped, running}, "start 50 ", 0, {ERROR_SERVICE_ALREADY_RUNNING}},
    {enable, {stopped, stopped, running}, "start 50 start ", 0, {ERROR_SERVICE_DATABASE_LOCKED}},
    {enable, {slow}, repeated("1000 ", 30), timeout},
    {isEnabled, {}, ""},
    {disable, {}, ""},
    {stop, {stopped}, ""},
    {stop, {stopping, stopped}, "50 "},
    {stop, {running, stopped}, "stop "},
    {stop, {running, stopping, stopped}, "stop 50 "},
    {stop, {running}, "stop ", denied, {denied}},
    {stop, {running, stopped}, "stop 50 ", 0, {ERROR_SERVICE_NOT_ACTIVE}},
    {stop, {starting, running, stopped}, "stop 50 stop ", 0, {ERROR_SERVICE_CANNOT_ACCEPT_CTRL}},
    {stop, {running, running, stopped}, "stop 50 stop ", 0, {ERROR_DEPENDENT_SERVICES_RUNNING}},
    {stop, {running, running, stopped, stopped, brisk, stopped, stopped, brisk}, inTurn, timeout, {}, three}};

// Plays a situation. Services are the system's own, but for their states; pauses take no time.
class ScriptedManager {
  public:
    explicit ScriptedManager(const Situation& played) : situation(played), imports(helper2) {
        imports.on("OpenServiceA", [this](SC_HANDLE manager, const char* name, DWORD access) {
            calls += name == std::string("Base") ? "" : name + std::string(" ");
            return OpenServiceA(manager, name, access);
        });
        imports.on("QueryServiceStatus", [this](SC_HANDLE, SERVICE_STATUS* status) { return tell(*status); });
        imports.on("StartServiceA", [this](SC_HANDLE, DWORD, const char**) { return answer("start "); });
        imports.on("ControlService", [this](SC_HANDLE, DWORD control, SERVICE_STATUS* status) -> BOOL {
            return answer(control == SERVICE_CONTROL_STOP ? "stop " : "another ") && tell(*status);
        });
        imports.on("EnumDependentServicesA",
                   [this](SC_HANDLE, DWORD, ENUM_SERVICE_STATUSA* records, DWORD size, DWORD* needed,
                          DWORD* count) -> BOOL {
                       *needed = sizeof *records; // as if all but one had been started afterwards
                       SetLastError(ERROR_MORE_DATA);
                       if (size < dependents.size() * sizeof *records)
                           return FALSE;
                       *count = static_cast<DWORD>(dependents.size());
                       for (const char* name : std::exchange(dependents, {}))
                           records++->lpServiceName = const_cast<char*>(name);
                       return TRUE;
                   });
        imports.on("GetTickCount", [this] { return now; });
        imports.on("Sleep", [this](DWORD ms) {
            now += ms;
            calls += std::to_string(ms) + " ";
        });
    }

    bool play() {
        told = answered = 0;
        calls.clear();
        dependents = situation.dependents;
        now = 0xFFFFFFFF - 10'000; // the count begins again while the library waits
        return situation.act();
    }

    std::string calls; // of this play

  private:
    BOOL tell(SERVICE_STATUS& status) {
        const auto& [state, hint, exitCode] = situation.states[std::min(told++, situation.states.size() - 1)];
        status = {program, state, 0, exitCode, 0, 0, hint};
        return TRUE;
    }

    BOOL answer(const char* asked) {
        calls += asked;
        if (answered == situation.answers.size())
            return TRUE;
        SetLastError(situation.answers[answered++]);
        return FALSE;
    }

    const Situation& situation;
    std::size_t told = 0, answered = 0;
    std::vector<const char*> dependents; // of the service that is asked for them next
    DWORD now = 0;
    ModuleImports imports;
};

} // namespace

TEST_CASE("What the service control manager tells decides what is done; a failing call ends it") {
    const Service base("Base", disabled), farther("Far"), nearer("Near");
    for (const Situation& situation : situations) {
        ScriptedManager manager(situation);
        const FailingCalls<fallible> failing(helper2);
        failing.inTurn([&] {
            const bool succeeded = manager.play();
            const DWORD code = failing.failed.empty() ? situation.code : failureCode;
            CAPTURE(situation.calls, failing.failed);
            CHECK((succeeded ? NO_ERROR : GetLastError()) == code);
            CHECK((manager.calls == situation.calls || !failing.failed.empty()));
        });
    }
}

TEST_CASE("The system's manager enables, starts, disables and stops a service") {
    using Row = std::tuple<DWORD, DWORD, DWORD, DWORD>;
    const auto [type, start, mode, wanted] =
        GENERATE(Row{driver, disabled, 0, onDemand}, Row{driver, disabled, 2, SERVICE_BOOT_START},
                 Row{driver, onDemand, 2, onDemand}, Row{program, disabled, 0, SERVICE_AUTO_START},
                 Row{program, disabled, 2, SERVICE_AUTO_START}, Row{program, onDemand, 2, onDemand});
    const Service service("Base", start, type);
    bool exists = false;
    CHECK(IsServiceEnabled("Base", &exists) == (start != disabled));
    CHECK(exists);
    CHECK(EnableService("Base", mode) == (type == program)); // the image is no driver's
    CHECK(service.startType() == wanted);
    CHECK(service.runs() == (type == program));
    CHECK(DisableService("Base"));
    CHECK(service.startType() == disabled);
    CHECK(service.runs() == (type == program));
    CHECK(StopService("Base"));
    CHECK_FALSE(service.runs());
}

TEST_CASE("A service that is not installed is not there; one that may not be opened is") {
    { const Service removed("Base"); }
    bool exists = false;
    CHECK_FALSE(IsServiceEnabled("Base", &exists));
    CHECK_FALSE(exists);
    for (const Act act : {enable, disable, stop, isEnabled})
        CHECK((act() ? NO_ERROR : GetLastError()) == ERROR_SERVICE_DOES_NOT_EXIST);
    ModuleImports imports(helper2);
    imports.on("OpenServiceA", [](SC_HANDLE, const char*, DWORD) {
        SetLastError(denied);
        return SC_HANDLE{};
    });
    CHECK_FALSE(IsServiceEnabled("Base", &exists));
    CHECK(exists);
}

TEST_CASE("The process that listens on a port is found, with its name") {
    WSADATA data{};
    WSAStartup(MAKEWORD(2, 0), &data);
    const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{AF_INET, 0, {}, {}};
    int size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    REQUIRE((bind(listener, any, size) == 0 && getsockname(listener, any, &size) == 0 &&
             listen(listener, 1) == 0));
    // Wine finds the owner of a socket only after the process has tried to take something from it.
    u_long nonBlocking = 1;
    ioctlsocket(listener, static_cast<long>(FIONBIO), &nonBlocking);
    send(listener, "x", 1, 0);
    const FailingCalls<fallible> failing(helper2);
    failing.inTurn([&] {
        std::wstring name = L"old";
        const DWORD owner = GetPortOccupyProcessW(ntohs(address.sin_port), name);
        const DWORD code = GetLastError();
        CHECK(owner == (failing.failed == "GetExtendedTcpTable" ? 0 : GetCurrentProcessId()));
        CHECK((owner != 0 || code == failureCode));
        CHECK(name == (failing.failed.empty() ? L"helper2_test.exe" : L""));
    });
    WSACleanup();
}

TEST_CASE("A listener comes before a connection, and what belongs to nobody is passed over") {
    std::vector<MIB_TCPROW_OWNER_PID> connections(
        1, {MIB_TCP_STATE_ESTAB, 0, 0xABCD0000u | htons(1723), 0, 0, 12});
    connections.push_back({MIB_TCP_STATE_TIME_WAIT, 0, htons(1723), 0, 0, 0});
    connections.push_back({MIB_TCP_STATE_LISTEN, 0, htons(1724), 0, 0, 8});
    ModuleImports imports(helper2);
    imports.on(
        "GetExtendedTcpTable", [&](void* table, DWORD* size, BOOL, ULONG, TCP_TABLE_CLASS, ULONG) -> DWORD {
            if (connections.size() < 1000) // more is opened than there is room for
                connections.insert(connections.begin(), 400, {MIB_TCP_STATE_LISTEN, 0, 0, 0, 0, 99});
            const std::size_t bytes = connections.size() * sizeof connections[0];
            if (std::exchange(*size, static_cast<DWORD>(sizeof(DWORD) + bytes)) < sizeof(DWORD) + bytes)
                return ERROR_INSUFFICIENT_BUFFER;
            static_cast<MIB_TCPTABLE_OWNER_PID*>(table)->dwNumEntries =
                static_cast<DWORD>(connections.size());
            std::memcpy(static_cast<MIB_TCPTABLE_OWNER_PID*>(table)->table, connections.data(), bytes);
            return NO_ERROR;
        });
    std::wstring name;
    CHECK(GetPortOccupyProcessW(1723, name) == 12);
    connections.push_back({MIB_TCP_STATE_LISTEN, 0, htons(1723), 0, 0, 4});
    CHECK(GetPortOccupyProcessW(1723, name) == 4);
    CHECK(name == L"System");
    CHECK(GetPortOccupyProcessW(1724, name) == 8);
    CHECK(name == L"System");
    CHECK(GetPortOccupyProcessW(1725, name) == 0);
    CHECK(GetLastError() == ERROR_NOT_FOUND);
    CHECK(name == L"");
}
