#include "outside/Helper2.h"
#include "tests/outside/module_imports.h"

#include <algorithm>

#include <iphlpapi.h>

#include <vector>

#include <winsvc.h>

namespace {

using namespace std::string_literals;

constexpr FallibleCall fallible[] = {
    {"Process32FirstW"},    {"OpenSCManagerA", 0, 1},  {"OpenServiceA", 0, 1},
    {"StartServiceA"},      {"QueryServiceStatus"},    {"CloseServiceHandle", 0, -1},
    {"ControlService"},     {"QueryServiceConfigA"},   {"GetExtendedTcpTable", failureCode},
    {"Process32NextW"},     {"ChangeServiceConfigA"},  {"CreateToolhelp32Snapshot", ~Word{0}, 1},
    {"CloseHandle", 0, -1}, {"EnumDependentServicesA"}};

constexpr DWORD driver = SERVICE_KERNEL_DRIVER, program = SERVICE_WIN32_OWN_PROCESS;
constexpr DWORD disabled = SERVICE_DISABLED, onDemand = SERVICE_DEMAND_START;

const HMODULE helper2 = GetModuleHandleW(L"Helper2.dll");

// A service that is installed for a scope, with the image of one of the system's.
struct Service {
    explicit Service(const char* name, DWORD start = onDemand, DWORD type = program) {
        do // one of that name that was deleted goes with its last process
            handle = CreateServiceA(manager, name, nullptr, SERVICE_ALL_ACCESS, type, start, 0,
                                    "C:\\windows\\system32\\spoolsv.exe", nullptr, nullptr, nullptr, nullptr,
                                    nullptr);
        while (handle == nullptr && GetLastError() == ERROR_SERVICE_MARKED_FOR_DELETE);
    }
    ~Service() {
        DeleteService(handle);
        CloseServiceHandle(handle);
    }

    static inline const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE handle;
};

DWORD startTypeOf(const Service& service) {
    QUERY_SERVICE_CONFIGA config[8]; // with room for the texts
    DWORD needed = 0;
    return QueryServiceConfigA(service.handle, config, sizeof config, &needed) ? config->dwStartType : ~0u;
}

using Act = bool (*)();
const Act enable = [] { return EnableService("Base", 0); };
const Act disable = [] { return DisableService("Base"); };
const Act isEnabled = [] { return IsServiceEnabled("Base", nullptr); };
const Act stop = [] { return StopService("Base"); };

struct State {
    DWORD state, hint = 0, exitCode = NO_ERROR;
};
constexpr State stopped{SERVICE_STOPPED}, failed{SERVICE_STOPPED, 0, 77}, starting{SERVICE_START_PENDING},
    running{SERVICE_RUNNING}, paused{SERVICE_PAUSED}, stopping{SERVICE_STOP_PENDING},
    slow{SERVICE_START_PENDING, 600'000}, brisk{SERVICE_STOP_PENDING, 7'000};
constexpr DWORD timeout = ERROR_SERVICE_REQUEST_TIMEOUT;

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
    {enable, {stopped, starting, running}, "start 50 "},
    {enable, {stopping, stopped, running}, "50 start "},
    {enable, {stopped, starting, failed}, "start 50 ", 77},
    {enable, {stopped}, "start ", ERROR_SERVICE_NOT_ACTIVE},
    {enable, {stopped, running}, "start 50 ", 0, {ERROR_SERVICE_ALREADY_RUNNING}},
    {enable, {stopped, stopped, running}, "start 50 start ", 0, {ERROR_SERVICE_DATABASE_LOCKED}},
    {enable, {slow}, repeated("1000 ", 30), timeout},
    {isEnabled, {}, ""},
    {disable, {}, ""},
    {stop, {stopped}, ""},
    {stop, {stopping, stopped}, "50 "},
    {stop, {running, stopping, stopped}, "stop 50 "},
    {stop, {running, stopped}, "stop 50 ", 0, {ERROR_SERVICE_NOT_ACTIVE}},
    {stop, {starting, running, stopped}, "stop 50 stop ", 0, {ERROR_SERVICE_CANNOT_ACCEPT_CTRL}},
    {stop, {running, running, stopped}, "stop 50 stop ", 0, {ERROR_DEPENDENT_SERVICES_RUNNING}},
    {stop, {running, running, stopped, stopped, brisk, stopped, stopped, brisk}, inTurn, timeout, {}, three}};

} // namespace

// Services are the system's own, but for their states; pauses take no time.
TEST_CASE("What the service control manager tells decides what is done; a failing call ends it") {
    const Service base("Base", disabled), farther("Far"), nearer("Near");
    for (const Situation& situation : situations)
        FailingCalls<fallible>::inTurn([&] {
            std::size_t told = 0, answered = 0;
            DWORD now = 0xFFFFFFFF - 10'000; // the count begins again while the library waits
            std::string calls;
            auto dependents = situation.dependents; // of the service that is asked for them next
            const auto tell = [&](SERVICE_STATUS* status) {
                const State& next = situation.states[std::min(told++, situation.states.size() - 1)];
                *status = {program, next.state, 0, next.exitCode, 0, 0, next.hint};
                return TRUE;
            };
            const auto answer = [&](const char* asked) {
                calls += asked;
                if (answered == situation.answers.size())
                    return TRUE;
                SetLastError(situation.answers[answered++]);
                return FALSE;
            };
            ModuleImports imports(helper2);
            imports.on("OpenServiceA", [&](SC_HANDLE manager, const char* name, DWORD access) {
                calls += name == "Base"s ? "" : name + " "s;
                return OpenServiceA(manager, name, access);
            });
            imports.on("QueryServiceStatus", [&](SC_HANDLE, SERVICE_STATUS* status) { return tell(status); });
            imports.on("StartServiceA", [&](SC_HANDLE, DWORD, const char**) { return answer("start "); });
            imports.on("ControlService", [&](SC_HANDLE, DWORD control, SERVICE_STATUS* status) -> BOOL {
                return answer(control == SERVICE_CONTROL_STOP ? "stop " : "another ") && tell(status);
            });
            imports.on("EnumDependentServicesA",
                       [&](SC_HANDLE, DWORD, ENUM_SERVICE_STATUSA* records, DWORD size, DWORD* needed,
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
            imports.on("GetTickCount", [&] { return now; });
            imports.on("Sleep", [&](DWORD ms) {
                now += ms;
                calls += std::to_string(ms) + " ";
            });
            const FailingCalls<fallible> failing(helper2);
            const bool succeeded = situation.act();
            const DWORD code = failing.failed.empty() ? situation.code : failureCode;
            CAPTURE(situation.calls, failing.failed);
            CHECK((succeeded ? NO_ERROR : GetLastError()) == code);
            CHECK((calls == situation.calls || !failing.failed.empty()));
        });
}

TEST_CASE("The system's manager enables, starts, disables and stops a service") {
    using Row = std::tuple<DWORD, DWORD, DWORD, DWORD>;
    const auto [type, start, mode, wanted] =
        GENERATE(Row{driver, disabled, 0, onDemand}, Row{driver, disabled, 2, SERVICE_BOOT_START},
                 Row{program, disabled, 0, SERVICE_AUTO_START}, Row{program, onDemand, 2, onDemand});
    const Service service("Base", start, type);
    CHECK(isEnabled() == (start != disabled));
    CHECK(EnableService("Base", mode) == (type == program)); // the image is no driver's
    CHECK(startTypeOf(service) == wanted);
    CHECK(disable());
    CHECK(startTypeOf(service) == disabled);
    CHECK(stop());
}

TEST_CASE("A service exists that is installed, even one that may not be opened") {
    const DWORD code = GENERATE(as<DWORD>(), ERROR_SERVICE_DOES_NOT_EXIST, ERROR_ACCESS_DENIED);
    ModuleImports imports(helper2);
    imports.on("OpenServiceA",
               [code](SC_HANDLE, const char*, DWORD) -> SC_HANDLE { return SetLastError(code), nullptr; });
    bool exists = false;
    CHECK_FALSE(IsServiceEnabled("Base", &exists));
    CHECK(exists == (code == ERROR_ACCESS_DENIED));
}

TEST_CASE("The owner of a port is found: a listener before a connection, and nobody's passed over") {
    const DWORD self = GetCurrentProcessId();
    const std::vector<MIB_TCPROW_OWNER_PID> open{
        {MIB_TCP_STATE_LISTEN, 0, htons(1723), 0, 0, 4},
        {MIB_TCP_STATE_ESTAB, 0, 0xABCD0000u | htons(1723), 0, 0, 12},
        {MIB_TCP_STATE_ESTAB, 0, 0xABCD0000u | htons(1724), 0, 0, 8},
        {MIB_TCP_STATE_TIME_WAIT, 0, htons(1724), 0, 0, 0},
        {MIB_TCP_STATE_LISTEN, 0, htons(1725), 0, 0, self}};
    ModuleImports imports(helper2);
    imports.on("GetExtendedTcpTable",
               [&](MIB_TCPTABLE_OWNER_PID* table, DWORD* room, BOOL, ULONG family, TCP_TABLE_CLASS what,
                   ULONG) -> DWORD {
                   const auto needed = static_cast<DWORD>(sizeof(DWORD) + open.size() * sizeof open[0]);
                   if (family != AF_INET || what != TCP_TABLE_OWNER_PID_ALL ||
                       std::exchange(*room, needed) < needed)
                       return ERROR_INSUFFICIENT_BUFFER;
                   table->dwNumEntries = static_cast<DWORD>(open.size());
                   std::ranges::copy(open, table->table);
                   return NO_ERROR;
               });
    const auto [port, owner, program] = GENERATE_COPY(table<unsigned short, DWORD, std::wstring>(
        {{1723, 4, L"System"}, {1724, 8, L"System"}, {1725, self, L"helper2_test.exe"}, {1726, 0, L""}}));
    FailingCalls<fallible>::inTurn([&, port = port, owner = owner, program = program] {
        const FailingCalls<fallible> failing(helper2);
        std::wstring name = L"old";
        const DWORD found = GetPortOccupyProcessW(port, name);
        const DWORD code = GetLastError();
        const bool all = failing.failed.empty(), listed = failing.failed != "GetExtendedTcpTable";
        CHECK(found == (listed ? owner : 0));
        CHECK((found != 0 || code == (all ? ERROR_NOT_FOUND : failureCode)));
        CHECK(name == (all || found == 4 || found == 8 ? program : L""));
    });
}
