// Preparing the computer through the shipped program, in a prefix with services, adapters and router.
//
// Cases with the tag [before Vista] or [since Vista] need a prefix of such a Windows, the others do with any;
// and in any language, since the messages are asked for in the system's.
#include "tests/end_to_end/computer_kit.h"
#include "tests/end_to_end/host_kit.h"

#include <winsock2.h>

#include <catch2/catch.hpp>
#include <fmt/format.h>

#include <fstream>

#include <shlobj.h>
#include <shlwapi.h>

#include <stdexcept>

#include <winsvc.h>

using Catch::Contains;
using Catch::Matches;

namespace fs = std::filesystem;

namespace {

constexpr const char* prepared = R"(init: the computer is prepared, \d+\.\d s\n)";
constexpr const wchar_t* adapterClass =
    L"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}\\";
constexpr const wchar_t* pptpMiniport = L"0003";
constexpr const char* winLogon = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\WinLogon";

// Peers that accept, at 10.0.0.1, 10.0.0.2 and so on.
std::string peers(std::initializer_list<const char*> ids) {
    std::string text;
    int number = 0;
    for (const char* id : ids)
        text += fmt::format("[10.0.0.{}]\naccount={}:{}\n", ++number, id, goodPassword);
    return text;
}

bool isChinese() {
    return PRIMARYLANGID(GetSystemDefaultUILanguage()) == LANG_CHINESE;
}

void setMiniport(DWORD ports, DWORD atMost) {
    const std::wstring key = std::wstring(adapterClass) + pptpMiniport;
    REQUIRE(SHSetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"WanEndpoints", REG_DWORD, &ports, sizeof ports) ==
            ERROR_SUCCESS);
    REQUIRE(SHSetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"MaxWanEndpoints", REG_DWORD, &atMost,
                        sizeof atMost) == ERROR_SUCCESS);
}

// The whole data of the value that keeps connections over a log-off.
std::string keepConnections() {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, winLogon, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return {};
    char data[32] = {};
    DWORD size = sizeof data;
    const LSTATUS error =
        RegQueryValueExA(key, "KeepRasConnections", nullptr, nullptr, reinterpret_cast<BYTE*>(data), &size);
    RegCloseKey(key);
    return error == ERROR_SUCCESS ? std::string(data, size) : std::string();
}

void dial(const World& world, const std::string& arguments) {
    const Outcome dialled = world.run("dial " + arguments, std::string(goodPassword) + "\n");
    INFO(dialled.messages);
    REQUIRE(dialled.exitCode == 0);
}

// The exit code of "varnel-host init" by a user who is no administrator, in the environment of the last run.
DWORD initWithoutRights() {
    HANDLE own = nullptr;
    REQUIRE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own));
    const Handle ownToken(own);
    BYTE administrators[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof administrators;
    REQUIRE(CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size));
    SID_AND_ATTRIBUTES disabled = {administrators, 0};
    HANDLE restricted = nullptr;
    REQUIRE(CreateRestrictedToken(own, 0, 1, &disabled, 0, nullptr, 0, nullptr, &restricted));
    const Handle restrictedToken(restricted);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started = {};
    wchar_t line[] = L"varnel-host.exe init";
    REQUIRE(CreateProcessAsUserW(restricted, nullptr, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                 &startup, &started));
    const Handle thread(started.hThread);
    const Handle process(started.hProcess);
    CHECK(WaitForSingleObject(started.hProcess, 60'000) == WAIT_OBJECT_0);
    DWORD exitCode = 0;
    GetExitCodeProcess(started.hProcess, &exitCode);
    return exitCode;
}

} // namespace

TEST_CASE("init prepares a Windows before Vista, and a second one changes nothing", "[before Vista]") {
    setMiniport(2, 16);
    SHDeleteValueA(HKEY_LOCAL_MACHINE, winLogon, "KeepRasConnections");
    const fs::path driver = systemFolder() / "Drivers" / "Ombrel.SYS";
    const World world("");
    REQUIRE_THAT(world.run("init --ombrel --kestrin").output, Matches(prepared));

    const Service ombrel("Ombrel");
    CHECK(ombrel.startType == SERVICE_DEMAND_START);
    CHECK(ombrel.path == driver.string());
    CHECK(ombrel.state() == SERVICE_RUNNING);
    const std::string status = world.run("status").output;
    CHECK_THAT(status, Contains("driver Ombrel.SYS: version 4.0.0.5, " + driver.string() + "\n"));
    CHECK_THAT(status, Contains("driver KESTRIN.SYS: not installed\n"));
    CHECK_THAT(status, Contains("PPTP miniport: 10 ports, at most 32\n"));
    CHECK_THAT(status, Contains("L2TP miniport: 5 ports, at most 1000\n"));
    CHECK(keepConnections() == "1" + std::string(9, '\0'));

    const auto written = fs::last_write_time(driver);
    CHECK_THAT(world.run("init --ombrel --kestrin").output, Matches(prepared));
    CHECK(fs::last_write_time(driver) == written);
    CHECK_FALSE(fs::exists(driver.string() + ".tmp"));
    CHECK(world.run("status").output == status);
    CHECK(count(world.log(), "==>>VARNEL::init()") == 2);
    CHECK(count(world.log(), "==>>VARNEL::setPptpPorts()") == 1);
    CHECK(count(world.log(), "set KeepRasConnections to 1 success") == 1);
    CHECK(count(world.log(), "x64 doesn't need to install kestrin") == 2);
}

TEST_CASE("init replaces an older driver file and leaves a newer one", "[before Vista]") {
    const fs::path driver = systemFolder() / "Drivers" / "Ombrel.SYS";
    const std::string status = "driver Ombrel.SYS: version ";
    const World world("");
    uninstallDriver("Ombrel", driver);
    writeDriver(driver, 4);
    REQUIRE_THAT(world.run("status").output, Contains(status + "4.0.0.4"));
    CHECK_THAT(world.run("init --ombrel").output, Matches(prepared));
    CHECK_THAT(world.run("status").output, Contains(status + "4.0.0.5"));
    CHECK(Service("Ombrel").state() == SERVICE_RUNNING);

    uninstallDriver("Ombrel", driver);
    writeDriver(driver, 6);
    CHECK_THAT(world.run("init --ombrel").output, Matches(prepared));
    CHECK_THAT(world.run("status").output, Contains(status + "4.0.0.6"));
    CHECK_FALSE(fs::exists(driver.string() + ".tmp"));
    CHECK(Service("Ombrel").state() == SERVICE_RUNNING);
    uninstallDriver("Ombrel", driver);
}

TEST_CASE("init hangs up and removes what an earlier run left, and nothing of others", "[before Vista]") {
    const World world(peers({"harbor", "north", "visitor"}));
    dial(world, "harbor 10.0.0.1");
    dial(world, "north 10.0.0.2 --public");
    dial(world, "visitor 10.0.0.3 --public");
    fs::remove_all(world.folder / "working" / "visitor"); // no longer a peer of ours
    fs::create_directories(world.folder / "working" / "not a peer");
    const fs::path ofAllUsers = phonebookOfAllUsers();
    REQUIRE_THAT(textOf(ofAllUsers), Contains("[north #0]") && Contains("[visitor #0]"));

    const Outcome outcome = world.run("init");
    CHECK_THAT(outcome.output, Matches(prepared));
    CHECK(count(outcome.messages, "harbor: hung up") == 1);
    CHECK(count(outcome.messages, "north: hung up") == 1);
    CHECK(count(outcome.messages, ": hung up") == 2);
    CHECK_FALSE(fs::exists(world.folder / "working" / "harbor" / "pptp.pbk"));
    CHECK_THAT(textOf(ofAllUsers), !Contains("[north #0]") && Contains("[visitor #0]"));
    CHECK_THAT(world.run("status").output, Contains("2 peers\npeer harbor: not connected\n"
                                                    "peer north: not connected\n"));
    CHECK(world.run("entry visitor").exitCode == 0);
}

TEST_CASE("clean ends what its session has dialled, unless the host only dials out") {
    const World world(peers({"harbor"}));
    const auto passwordFile = world.write("all.password", goodPassword).string();
    const auto session = [&](const std::string& init) {
        return world.run(fmt::format("session --password-file \"{}\"", passwordFile),
                         init + "\ndial harbor 10.0.0.1\nclean\nentry harbor\n");
    };
    const Outcome cleaned = session("init");
    CHECK(cleaned.exitCode == 10);
    CHECK_THAT(cleaned.output, Contains("clean: done\n> entry harbor\nharbor: no entry"));
    CHECK_THAT(cleaned.messages, !Contains("harbor: hung up"));
    const Outcome kept = session("init --only-client");
    CHECK(kept.exitCode == 0);
    CHECK_THAT(kept.output, Contains("clean: done\n> entry harbor\nharbor: entry \"harbor #0\""));
}

TEST_CASE("since Vista entries and phonebooks stay, and the router gets its ports", "[since Vista]") {
    const World world(peers({"harbor"}));
    const auto router = world.write("router.ini", "");
    SetEnvironmentVariableW(L"STANDIN_ROUTER_FOLDER", world.folder.c_str());
    REQUIRE_THAT(world.run("init --ombrel").output, Matches(prepared));
    const std::string given = "PptpPorts=3\r\nPptpFlags=1\r\nL2tpPorts=5\r\nL2tpFlags=1\r\n";
    CHECK(textOf(router) == "[stored]\r\n" + given);
    CHECK_THAT(world.log(), Contains("Vista can't install ombrel"));

    dial(world, "harbor 10.0.0.1");
    world.write("router.ini", "[router]\r\nRunning=1\r\n");
    const Outcome second = world.run("init");
    CHECK_THAT(second.output, Matches(prepared));
    CHECK_THAT(second.messages, Contains("harbor: hung up"));
    CHECK_THAT(textOf(router), Contains("[running]\r\n" + given));
    CHECK_THAT(world.phonebookOf("harbor"), Contains("[harbor #0]"));
    CHECK(world.run("entry harbor").exitCode == 10);
    SetEnvironmentVariableW(L"STANDIN_ROUTER_FOLDER", nullptr);
}

TEST_CASE("a program that holds TCP port 1723 is named") {
    const World world("");
    const std::string self = fmt::format("{} (end_to_end_init_test.exe)", GetCurrentProcessId());
    {
        const Listener listener;
        const DWORD start = GetTickCount();
        const Outcome taken = world.run("init");
        CHECK(GetTickCount() - start < 15'000); // two binds of 1 s each, and room for a busy machine
        CHECK(taken.exitCode == 1);
        CHECK_THAT(taken.output, Matches(R"(init: the computer is not prepared, [2-9]\.\d s\n)"));
        CHECK_THAT(taken.messages,
                   Contains(isChinese() ? "无法绑定TCP端口 1723。\n" : "Can't bind TCP port 1723.\n") &&
                       Contains(isChinese() ? "请察看进程ID " + self + " 并检查是否"
                                            : "Please check process id " + self + " to see if") &&
                       !Contains("\r"));
        CHECK_THAT(world.run("status").output, Contains("TCP port 1723: held by process " + self + "\n"));
        CHECK(world.run("init --only-client").exitCode == 0);
    }
    CHECK(world.run("init").exitCode == 0);
    CHECK(world.run("init --any-address").exitCode == 0);
}

TEST_CASE("init enables the services that dialling needs, and tells of one that it cannot enable") {
    Service tapiSrv("TapiSrv");
    Service rasMan("RasMan");
    const World world("");
    rasMan.stop();
    rasMan.change(SERVICE_DISABLED);
    CHECK_THAT(world.run("status").output, Contains("service RasMan: disabled\n"));
    CHECK_THAT(world.run("init").output, Matches(prepared));
    CHECK(rasMan.state() == SERVICE_RUNNING);

    tapiSrv.stop();
    tapiSrv.change(SERVICE_DISABLED, "C:\\nowhere\\none.exe");
    const Outcome outcome = world.run("init");
    CHECK(outcome.exitCode == 1);
    CHECK_THAT(outcome.messages,
               Contains(isChinese() ? "无法启动TapiSrv系统服务。\n" : "Canot enable 'TapiSrv' service.\n"));

    tapiSrv.remove();
    const Outcome without = world.run("init");
    CHECK(without.exitCode == 8);
    CHECK_THAT(without.messages, Contains("the service TapiSrv is not installed"));
}

TEST_CASE("init stops RemoteAccess, and disables it when told so") {
    Service remoteAccess("RemoteAccess");
    remoteAccess.change(SERVICE_DEMAND_START);
    remoteAccess.start();
    const World world("");
    CHECK(world.run("init").exitCode == 0);
    CHECK(remoteAccess.state() == SERVICE_STOPPED);
    CHECK_THAT(world.run("status").output, Contains("service RemoteAccess: enabled\n"));
    CHECK(world.run("init --disable-remote-access").exitCode == 0);
    CHECK_THAT(world.run("status").output, Contains("service RemoteAccess: disabled\n"));
}

TEST_CASE("init needs an administrator") {
    const World world("");
    CHECK_THAT(world.run("status").output, Contains("administrator rights: yes\n"));
    CHECK(initWithoutRights() == 1);
    CHECK_THAT(world.log(), !Contains("VARNEL::init"));
}

TEST_CASE("a second host is kept from the computer") {
    const Handle first(CreateMutexW(nullptr, FALSE, L"Global\\varnel-host"));
    const World world("");
    for (const char* command : {"init", "clean"}) {
        const Outcome outcome = world.run(command);
        CHECK(outcome.exitCode == 1);
        CHECK_THAT(outcome.output, Contains("not done: another varnel-host"));
    }
    CHECK(world.log().find("VARNEL::init") == std::string::npos);
}
