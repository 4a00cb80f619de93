// Preparing the computer: the order of the steps, what each failure says to the log and to the user, and the
// end.
#include "tests/kit/scripted_computer.h"
#include "tests/kit/varnel_test.h"

class Initialisation : public VarnelTest {
  protected:
    ScriptedComputer computer;
    std::wstring message = L"of an earlier call";

    bool init(const Ask& ask) {
        return VARNEL::init(privates::pptpsrvDialDownCallback, ask.kestrin, ask.ombrel, ask.anyAddress,
                            ask.onlyClient, ask.disableRemoteAccess, message);
    }
    bool init() { return init(Ask{}); }
    // The steps after the clean-up, as far as they reach outside.
    Lines steps() {
        return calls({"GetIs64Os", "IsWin2K", "IsWinXP", "IsServiceEnabled", "EnableService",
                      "DisableService", "StopService", "Sleep", "bind", "closesocket",
                      "GetPortOccupyProcessW", "RasEnumConnections", "RasHangUp", "MoveFileExA"});
    }
    void kestrinFails() { computer.services["Kestrin"] = {.enabled = false, .canBeEnabled = false}; }
};

namespace {

const std::wstring helpPage = L"http://www.tavik.example/tavik4/faq/core.html";

const std::wstring restart[] = {
    L"After that, you can 'net start TAVIK4CSRV' to start Tavik Core Engine Service.\r\n",
    L"然后你可以通过net start TAVIK4CSRV重新启动Tavik核心服务。\r\n"};
const std::wstring moreAboutThis[] = {L"You can find more infomation about this from " + helpPage + L".",
                                      L"你可以从 " + helpPage + L" 获得更多相关信息。"};

const std::wstring driverText[] = {
    L"Can't Install 'Kestrin' driver.\r\n"
    L"A policy in your anti-virus or local security setting prevents Tavik Core Engine Service to install "
    L"kestrin.sys driver.\r\n"
    L"Tavik Core Engine Service has stoped.\r\n"
    L"Note: Please modify your anti-virus software settings or local security settings to allow the "
    L"driver\r\n" +
        restart[0] + L"You can find more infomation about this driver from " + helpPage + L".",
    L"无法安装Kestrin驱动程序。\r\n"
    L"反病毒软件或者系统本地安全策略阻止Tavik核心服务安装kestrin.sys驱动程序。\r\n"
    L"Tavik核心服务已经停止。\r\n"
    L"提示：请修改你的反病毒软件设置或者系统本地安全策略以允许安装此驱动程序。\r\n" +
        restart[1] + L"你可以从 " + helpPage + L" 获得关于这个驱动程序更多的信息。"};

std::wstring serviceText(bool chinese, const std::wstring& service) {
    return (chinese ? L"无法启动" + service +
                          L"系统服务。\r\nTavik核心服务已经停止。\r\n"
                          L"请检查你的系统设置以确定这个服务已经启动。\r\n"
                    : L"Canot enable '" + service +
                          L"' service.\r\nTavik Core Engine Service has stoped.\r\n"
                          L"Please check your system to make sure this system service has started.\r\n") +
           restart[chinese] + moreAboutThis[chinese];
}

std::wstring portText(bool chinese, const std::wstring& processLine) {
    return (chinese ? L"无法绑定TCP端口 1723。\r\nTavik核心服务已经停止。\r\n"
                      L"请检查是否有其他应用程序占用了TCP端口1723并且关闭该应用程序。\r\n"
                    : L"Can't bind TCP port 1723.\r\nTavik Core Engine Service has stoped.\r\n"
                      L"Please check which appliaction occupies the TCP port 1723 and close it.\r\n") +
           processLine + restart[chinese] + moreAboutThis[chinese];
}

constexpr DWORD wholeBind = 21; // attempts of one call, 50 ms apart for 1000 ms

Lines operator+(Lines one, const Lines& other) {
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

const std::string openClass = std::string("RegOpenKeyExA(") + ScriptedComputer::adapterClass;

} // namespace

TEST_CASE_METHOD(Initialisation, "the whole preparation of a server, in its order") {
    computer.makePeerFolder("p1");
    CHECK(init());
    CHECK(message == L"");
    const Lines expected =
        Lines{"IsChineseOs()",          "IsWin6Plus()",   "OpenMutexA(1048576, 0, RasPbFile)",
              "WaitForSingleObject(0)", "ReleaseMutex()", "SHGetFolderPathA(32803, 0)"} +
        Lines{"LoadLibraryA(" + computer.systemFolder + "\\mprapi.dll)",
              openClass + ", 0, 131103)",
              openClass + "\\0001, 0, 131103)",
              "RegQueryValueExA(MatchingDeviceId)",
              "RegQueryValueExA(MaxWanEndpoints)",
              "RegQueryValueExA(WanEndpoints)",
              openClass + "\\0002, 0, 131103)",
              "RegQueryValueExA(MatchingDeviceId)",
              "RegQueryValueExA(WanEndpoints)"} +
        Lines{std::string("RegOpenKeyExA(") + computer.winLogon + ", 0, 131103)",
              "RegQueryValueExA(KeepRasConnections)"} +
        Lines{"FindFirstFileA(" + computer.peersFolder + "\\*)",
              "RasEnumConnectionsA()",
              "DeleteFileA(" + bookOf("p1") + ")",
              "Sleep(100)",
              "host told(p1)",
              "DeleteFileA(" + bookOf("p1") + ")",
              "RasEnumEntriesA(null, null)"} +
        Lines{"IsServiceEnabled(TapiSrv)", "IsServiceEnabled(RasMan)", "IsServiceEnabled(RemoteAccess)",
              "StopService(RemoteAccess)"};
    Lines got = calls();
    got.resize(std::min(got.size(), expected.size()));
    CHECK(got == expected);
    CHECK(calls({"bind", "closesocket"}).size() == 2);
    CHECK(privates::s1723 == INVALID_SOCKET);
    CHECK(log() == Lines{"3 PublicPhoneBook C:\\all\\Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk"});
    CHECK(trace().front() == "3 ==>>VARNEL::init()\n");
    CHECK(trace().back() == "3 <<== VARNEL::init(),period = 100(ms)\n");
    CHECK(std::string(privates::pathNameKestrin) == computer.kestrinFile());
    CHECK(std::string(privates::pathNameOmbrel) == computer.ombrelFile());
}

TEST_CASE_METHOD(Initialisation, "RemoteAccess comes back only to a server whose redirect driver runs") {
    computer.services["Kestrin"];
    const bool anyAddress = GENERATE(false, true);
    const bool disable = GENERATE(false, true);
    const bool was = GENERATE(true, false);
    const bool driver = GENERATE(true, false);
    computer.services["RemoteAccess"] = {.enabled = was};
    CHECK(init({.kestrin = driver, .anyAddress = anyAddress, .disableRemoteAccess = disable}));
    Lines expected;
    if (disable)
        expected.push_back("DisableService(RemoteAccess)");
    if (was && !disable)
        expected.push_back("StopService(RemoteAccess)");
    if (was && driver && !anyAddress && !disable)
        expected.push_back("EnableService(RemoteAccess, 0)");
    CHECK(calls({"EnableService", "DisableService", "StopService"}) == expected);
    CHECK(timesCalled<"closesocket">() == 1);
}

TEST_CASE_METHOD(Initialisation,
                 "RemoteAccess comes back while the port is held; a failure of that is init's") {
    computer.services["Kestrin"];
    computer.services["RemoteAccess"].canBeEnabled = false;
    CHECK_FALSE(init({.kestrin = true}));
    CHECK(message == L"");
    CHECK(log(2) == Lines{"2 Can't enable service RemoteAccess"});
    const Lines last = steps();
    REQUIRE(last.size() > 3);
    CHECK(last[last.size() - 2] == "EnableService(RemoteAccess, 0)");
    CHECK(last.back().starts_with("closesocket("));
}

TEST_CASE_METHOD(Initialisation,
                 "a redirect driver that does not start ends it on Windows 2000 and XP alone") {
    struct Case {
        bool win2K, winXP;
        bool ends;
    };
    const Case c = GENERATE(Case{true, false, true}, Case{false, true, true}, Case{false, false, false});
    computer.chinese = GENERATE(false, true);
    computer.win2K = c.win2K;
    computer.winXP = c.winXP;
    kestrinFails();
    CHECK(init({.kestrin = true}) == !c.ends);
    CHECK(message == (c.ends ? driverText[computer.chinese] : L""));
    CHECK(log(2) == Lines{"2 Enable Kestrin fail", "2 tryinstallDriverAndLaunchKestrin fail!!!"});
    CHECK(calls({"IsServiceEnabled(TapiSrv"}).size() == (c.ends ? 0 : 1));
}

TEST_CASE_METHOD(Initialisation, "no redirect driver on 64-bit Windows, nor for a host that only dials") {
    SECTION("64 bits") {
        computer.is64 = true;
        CHECK(init({.kestrin = true}));
        CHECK(log(1) == Lines{"1 x64 doesn't need to install kestrin"});
        CHECK(calls({"EnableService"}) == Lines{});
    }
    SECTION("only dials") {
        CHECK(init({.kestrin = true, .onlyClient = true}));
        CHECK(log(1) == Lines{});
    }
    CHECK(calls({"IsServiceEnabled(Kestrin", "CreateFileA"}) == Lines{});
}

TEST_CASE_METHOD(Initialisation, "the filter driver is not for Windows 6, and its failure is passed over") {
    SECTION("Windows 6") {
        computer.win6 = true;
        CHECK(init({.ombrel = true}));
        CHECK(log(1) == Lines{"1 Vista can't install ombrel"});
        CHECK(calls({"IsServiceEnabled(Ombrel", "CreateFileA"}) == Lines{});
    }
    SECTION("failure") {
        computer.services["Ombrel"] = {.enabled = false, .canBeEnabled = false};
        CHECK(init({.ombrel = true}));
        CHECK(log(2) == Lines{"2 tryinstallDriverAndLaunchOmbrel fail!!!"});
    }
    CHECK(message == L"");
}

TEST_CASE_METHOD(Initialisation, "a host that only dials: the last thing tried decides") {
    struct Case {
        bool ombrelWorks;
        bool tapiEnabled;
        bool result;
    };
    const Case c = GENERATE(Case{true, true, true}, Case{false, true, false}, Case{false, false, true});
    computer.services["Ombrel"] = {.enabled = c.ombrelWorks, .canBeEnabled = false};
    computer.services["TapiSrv"].enabled = c.tapiEnabled;
    computer.makePeerFolder("p1");
    CHECK(init({.ombrel = true, .onlyClient = true, .disableRemoteAccess = true}) == c.result);
    CHECK(privates::onlyClient);
    CHECK(message == L"");
    CHECK(calls({"DisableService", "StopService", "socket", "bind", "FindFirst",
                 "IsServiceEnabled(Remote"}) == Lines{});
    VARNEL::clean();
    CHECK(calls({"FindFirst"}) == Lines{});
}

TEST_CASE_METHOD(Initialisation, "a service that is there, disabled, and refuses to be enabled ends it") {
    const std::string name = GENERATE(as<std::string>(), "TapiSrv", "RasMan");
    computer.chinese = GENERATE(false, true);
    const bool onlyClient = GENERATE(false, true);
    computer.services[name] = {.enabled = false, .canBeEnabled = false};
    CHECK_FALSE(init({.onlyClient = onlyClient}));
    CHECK(message == serviceText(computer.chinese, {name.begin(), name.end()}));
    CHECK(log(2) == Lines{"2 Can't enable service " + name});
    CHECK(calls({"EnableService", "StopService", "bind"}) == Lines{"EnableService(" + name + ", 0)"});
}

TEST_CASE_METHOD(Initialisation,
                 "a service that is not there is passed over, one that can be enabled goes on") {
    computer.services.erase("TapiSrv");
    computer.services["RasMan"].enabled = false;
    CHECK(init());
    CHECK(log(2) == Lines{});
    CHECK(calls({"EnableService"}) == Lines{"EnableService(RasMan, 0)"});
}

TEST_CASE_METHOD(Initialisation,
                 "RemoteAccess that refuses to stop is asked until boot has settled, and once more") {
    struct Case {
        DWORD ticks;
        DWORD refusals;
        Lines sleeps;
        Lines lines;
    };
    const auto line = [](const std::string& seconds) {
        return "2 Can't stop service RemoteAccess, after boot " + seconds + "s";
    };
    const std::string ten = "Sleep(10000)";
    const std::string thirty = "Sleep(30000)";
    const DWORD always = 1000;
    const Case c = GENERATE_COPY(
        Case{279'000, always, {ten, ten, ten, thirty}, {line("279"), line("289"), line("299"), line("339")}},
        Case{279'000, 2, {ten, ten}, {line("279"), line("289")}},
        Case{300'000, always, {ten, thirty}, {line("300"), line("340")}},
        Case{300'001, always, {thirty}, {line("330")}}, Case{300'001, 1, {thirty}, {}},
        Case{1'000, 0, {}, {}});
    clock.startAt(c.ticks);
    computer.services["RemoteAccess"].refusesToStop = c.refusals;
    CHECK(init());
    CHECK(calls({"Sleep"}) == c.sleeps);
    CHECK(log(2) == c.lines);
    CHECK(timesCalled<"StopService">() == c.sleeps.size() + 1);
    CHECK(message == L"");
}

TEST_CASE_METHOD(Initialisation, "a port held by the system's own process is freed by hanging all up") {
    computer.portTakenFor = wholeBind;
    computer.portHolder = GENERATE(as<DWORD>(), 4, 8);
    computer.portHolderName = L"System";
    computer.winXP = GENERATE(true, false);
    ras.connect("p1 #0");
    SECTION("which works") {
        CHECK(init());
        CHECK(ras.connections[0].hungUp);
    }
    SECTION("which fails") {
        ras.connections[0].lingers = 1'000'000;
        whenRasAnswers("RasHangUpA", {753});
        CHECK(init());
        CHECK(logged(2, "Can't dialdown all pptp"));
    }
    CHECK(logged(2, "Can't bind tcp port 1723"));
    CHECK(logged(2, "The os is not win2k or xp, but we still can't bind 1723, who bind it?") ==
          !computer.winXP);
    CHECK(timesCalled<"bind">() == wholeBind + 1);
    CHECK(message == L"");
    CHECK(privates::s1723 == INVALID_SOCKET);
}

TEST_CASE_METHOD(Initialisation, "a port that stays taken ends it, and the user is told by whom") {
    struct Case {
        DWORD pid;
        std::wstring name;
        std::string logged;
        std::wstring english, chinese;
    };
    const std::wstring englishTail = L") to see if it occupies the TCP port 1723.\r\n";
    const std::wstring chineseTail = L") 并检查是否该应用程序占用了TCP端口1723。\r\n";
    const auto line = [&](DWORD pid, const std::wstring& name, const std::wstring& unknown = {}) {
        const std::wstring id = std::to_wstring(pid) + L" (";
        return std::pair(L"Please check process id " + id + name + englishTail,
                         L"请察看进程ID " + id + (unknown.empty() ? name : unknown) + chineseTail);
    };
    const auto known = line(1234, L"svc\u00e9.exe");
    const auto unknown = line(4294967295, L"unknown", L"未知");
    const Case c = GENERATE_COPY(
        Case{1234, L"svc\u00e9.exe", "1234,svc\xc3\xa9.exe", known.first, known.second},
        Case{4294967295, L"", "4294967295,", unknown.first, unknown.second}, Case{0, L"", "0,", L"", L""});
    computer.chinese = GENERATE(false, true);
    computer.portTakenFor = 2 * wholeBind;
    computer.portHolder = c.pid;
    computer.portHolderName = c.name;
    CHECK_FALSE(init());
    CHECK(message == portText(computer.chinese, computer.chinese ? c.chinese : c.english));
    CHECK(log(2) == Lines{"2 Can't bind 0:1723", "2 Can't bind tcp port 1723", "2 Can't bind 0:1723",
                          "2 Can't bind TCP port 1723(2)," + c.logged});
    CHECK(calls({"RasEnumConnections", "EnableService"}) == Lines{});
    CHECK(calls({"GetPortOccupyProcessW"}) == Lines{"GetPortOccupyProcessW(1723)"});
    CHECK(timesCalled<"bind">() == 2 * wholeBind);
    CHECK(privates::s1723 == INVALID_SOCKET);
}

TEST_CASE_METHOD(Initialisation, "a process name too long for its line is cut, never within a character") {
    computer.chinese = GENERATE(false, true);
    computer.portTakenFor = 2 * wholeBind;
    computer.portHolder = 77;
    const std::wstring pair = L"\xd83d\xde00";
    std::wstring name = GENERATE(as<std::wstring>(), L"", L"x");
    for (int i = 0; i < 200; ++i)
        name += pair;
    computer.portHolderName = name;
    CHECK_FALSE(init());
    const std::size_t begin = message.find(L'\xff08') == std::wstring::npos ? message.find(L" (") + 2 : 0;
    const std::size_t end = message.find(L") ", begin);
    REQUIRE(end != std::wstring::npos);
    const std::wstring shown = message.substr(begin, end - begin);
    CHECK(name.starts_with(shown));
    CHECK((shown.back() & 0xFC00) == 0xDC00);
    const std::size_t lineBegin = message.rfind(L'\n', begin) + 1;
    const std::size_t length = message.find(L'\n', begin) + 1 - lineBegin;
    CHECK(length <= 255);
    CHECK(length >= 254);
}

TEST_CASE_METHOD(Initialisation, "a port that is not let go cleanly is logged, and no failure") {
    on<"closesocket">([](SOCKET) {
        SetLastError(WSAENETDOWN);
        return SOCKET_ERROR;
    });
    CHECK(init());
    CHECK(log(2) == Lines{"2 oops, closesocket(s1723) fail, error 10050"});
}

TEST_CASE_METHOD(Initialisation, "the port is let go when an exception passes through") {
    on<"EnableService">([](const char*, unsigned long) -> bool { throw 1; });
    computer.services["Kestrin"];
    CHECK_THROWS_AS(init({.kestrin = true}), int);
    CHECK(timesCalled<"closesocket">() == 1);
    CHECK(privates::s1723 == INVALID_SOCKET);
}

TEST_CASE_METHOD(Initialisation, "the paths of the drivers end the system folder, or are empty") {
    struct Case {
        std::string folder, path;
    };
    const std::string tail = "Drivers\\KESTRIN.SYS";
    const Case c = GENERATE_COPY(Case{"C:\\WINDOWS\\system32", "C:\\WINDOWS\\system32\\" + tail},
                                 Case{"C:\\", "C:\\" + tail}, Case{"", "\\" + tail},
                                 Case{std::string(239, 'x'), std::string(239, 'x') + "\\" + tail},
                                 Case{std::string(240, 'x'), ""}, Case{std::string(259, 'x'), ""});
    on<"GetSystemDirectoryA">([&](LPSTR path, UINT room) {
        CHECK(room == 260);
        strcpy(path, c.folder.c_str());
        return static_cast<UINT>(c.folder.size());
    });
    strcpy(privates::pathNameKestrin, "old");
    privates::getPathName();
    CHECK(std::string(privates::pathNameKestrin) == c.path);
    if (!c.path.empty())
        CHECK(std::string(privates::pathNameOmbrel) == c.path.substr(0, c.path.size() - 11) + "Ombrel.SYS");
}

TEST_CASE_METHOD(Initialisation,
                 "a clean-up tells the host nothing more, clears the peers, drops the attempts") {
    computer.makePeerFolder("p1");
    DIALUP_CALLBACK().addItem(5);
    ras.connect("p1 #0");
    VARNEL::clean();
    CHECK(ras.connections[0].hungUp);
    CHECK(told() == Lines{});
    CHECK(privates::pptpsrvDialDownCallback == nullptr);
    CHECK(privates::items.empty());
    CHECK(trace().front() == "1 ==>>VARNEL::clearAllEntry()\n");
}
