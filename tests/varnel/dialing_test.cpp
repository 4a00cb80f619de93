// The dial-up procedure: entry, dial, confirmation, a redial under a fresh name, and the host's tries.
#include "tests/kit/varnel_test.h"

#include <cstring>

class Dialing : public VarnelTest {
  protected:
    Lines entries(const std::string& path) {
        Lines names;
        for (const ScriptedRas::Entry& entry : ras.phoneBooks[path])
            names.push_back(entry.name);
        return names;
    }
    std::string place(int suffix = 0) const { return std::string(publicBook) + "," + entry(suffix); }
    std::string finish(DWORD result, DWORD time, int suffix = 0) const {
        return "3 " + place(suffix) + "," + peer + " pptp dial return " + std::to_string(result) + ",time " +
               std::to_string(time);
    }
};

TEST_CASE_METHOD(Dialing, "a dial-up writes the entry, dials it and confirms the connection") {
    CHECK(dial() == 0);
    const std::string in = book() + ", " + entry();
    CHECK(calls() == Lines{"OpenMutexA(1048576, 0, RasPbFile)", "WaitForSingleObject(0)", "ReleaseMutex()",
                           "IsFileExist(" + book() + ")", "RasSetEntryPropertiesA(" + in + ", 2088, 0)",
                           "RasSetEntryDialParamsA(" + in + ", 1)", "RasGetEntryDialParamsA(" + in + ")",
                           "RasDialA(" + in + ", 2)", "WaitForSingleObject(10000)",
                           "RasGetProjectionInfoA(1)", "Sleep(1000)", "RasGetConnectStatusA(1)"});
    CHECK(log().front() == "3 RasSetEntryDialParams SUCCESS " + book() + ":" + entry());
    CHECK(log(2) == Lines{});
    CHECK(logged(3, book() + "," + entry() + " RasDial must success"));
    CHECK(log().back() == "3 " + book() + "," + entry() + "," + peer + " pptp dial return 0,time 1300");
    const std::string arguments = "(" + peer + " ip 10.0.0.1)";
    const Lines traces = trace();
    REQUIRE(traces.size() > 5);
    CHECK(traces[0] == "3 ==>>VARNEL::dialUp" + arguments + "\n");
    CHECK(traces[1] == "3 ==>>VARNEL::dialUp2" + arguments + "\n");
    CHECK(traces[2] == "3 ==>>VARNEL::dialUp3()\n");
    CHECK(traces.back() == "3 <<== VARNEL::dialUp" + arguments + ",period = 1300(ms)\n");
    CHECK(told() == Lines{});
}

TEST_CASE_METHOD(Dialing, "an address of 0 stands for this computer") {
    CHECK(dial({.ip = 0}) == 0);
    CHECK(ras.phoneBooks[book()].at(0).properties.szLocalPhoneNumber == std::string("127.0.0.1"));
    CHECK(trace().front() == "3 ==>>VARNEL::dialUp(" + peer + " ip 0.0.0.0)\n");
}

TEST_CASE_METHOD(Dialing,
                 "the dial parameters hold the entry, the peer and the password, and nothing stored") {
    RASDIALPARAMSA seen = {};
    before<"RasDialA">([&seen](LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, DWORD, LPVOID,
                               LPHRASCONN) { std::memcpy(&seen, params, sizeof seen); });
    const std::string longest(256, 'p');
    CHECK(dial({.password = longest}) == 0);
    CHECK(seen.dwSize == 1064);
    CHECK(seen.szEntryName == entry());
    CHECK(seen.szUserName == peer);
    CHECK(seen.szPassword == longest);
    CHECK(seen.szPhoneNumber == std::string());
    CHECK(seen.szCallbackNumber == std::string());
    CHECK(seen.szDomain == std::string());
    CHECK(seen.dwSubEntry == 0);
    CHECK(seen.dwCallbackId == static_cast<ULONG_PTR>(privates::callbackIdIndex));
}

TEST_CASE_METHOD(Dialing, "what cannot be dialled is refused before the service is asked") {
    struct Case {
        std::string id, password;
        DWORD result;
    };
    using namespace std::string_literals;
    const Case c = GENERATE(values<Case>({{"", "secret", ~DWORD{0}},
                                          {"Node", "", ~DWORD{0}},
                                          {"..", "secret", ERROR_INVALID_PARAMETER},
                                          {std::string(254, 'n'), "secret", ERROR_INVALID_PARAMETER},
                                          {std::string(300, 'n'), "secret", ERROR_INVALID_PARAMETER},
                                          {"Node", std::string(257, 'p'), ERROR_INVALID_PARAMETER},
                                          {"No\0de"s, "secret", ERROR_INVALID_PARAMETER},
                                          {"Node", "sec\0ret"s, ERROR_INVALID_PARAMETER}}));
    // Long ids are refused for their length, whatever else makes a peer id.
    const auto isId = current<"CheckIdFormat">();
    on<"CheckIdFormat">([=](auto ids, const std::string& text, auto... out) {
        return text.size() > 100 || isId(ids, text, out...);
    });
    CHECK(VARNEL::dialUp(c.id, c.password, false, false, 1) == c.result);
    CHECK(calls({"Ras"}) == Lines{});
    CHECK(log() == (c.result == ERROR_INVALID_PARAMETER ? Lines{"2 dialUp2 fail, error 87"} : Lines{}));
    CHECK(trace().size() == (c.result == ERROR_INVALID_PARAMETER ? 4u : 2u));
    CHECK(privates::dialUp2(c.id, c.password, false, false, 1) == ERROR_INVALID_PARAMETER);
}

TEST_CASE_METHOD(Dialing, "the longest id is dialled, and a suffix that it has no room for ends the redial") {
    const std::string longest(253, 'n');
    on<"CheckIdFormat">([](auto...) { return true; });
    CHECK(VARNEL::dialUp(longest, "secret", false, false, 1) == 0);
    CHECK(ras.connections.at(0).entryName == longest + " #0");
    for (int i = 0; i < 9; ++i)
        privates::getEntryNameWithSuffix(longest, true);
    ras.dials = {refused(756)};
    CHECK(privates::dialUp2(longest, "secret", false, false, 1) == 756);
    CHECK(log().end()[-2] == "2 RasRenameEntry fail, error 123");
}

TEST_CASE_METHOD(Dialing, "without an entry, or a place for a private one, nothing is dialled") {
    SECTION("the entry cannot be written") {
        whenRasAnswers("RasSetEntryPropertiesA", {621});
    }
    SECTION("the user name cannot be stored") {
        whenRasAnswers("RasSetEntryDialParamsA", {621});
    }
    SECTION("the peer has no private folder") {
        on<"GetPrivateConfigPathName">([](const char*, const char*) { return std::string(); });
    }
    CHECK(dialOnce() == ERROR_INVALID_PARAMETER);
    CHECK(calls({"RasDial"}) == Lines{});
}

TEST_CASE_METHOD(Dialing, "an unknown public phonebook means the default one") {
    privates::publicPhoneBook.clear();
    CHECK(dial(inPublicBook) == 0);
    CHECK(calls({"RasDial"}) == Lines{"RasDialA(null, " + entry() + ", 2)"});
}

TEST_CASE_METHOD(Dialing, "a first dial that fails is hung up and its entry removed") {
    struct Case {
        ScriptedRas::Dial dial;
        bool hasHandle;
    };
    const Case c = GENERATE(values<Case>({{refused(691), false}, {fails(691), true}}));
    whenRasDials({c.dial});
    CHECK(dialOnce(inPublicBook) == 691);
    CHECK(entries(publicBook) == Lines{});
    Lines expected = {"2 RasDial(" + place() + ") fail, error 691 text of 691"};
    if (c.hasHandle)
        expected.insert(expected.begin(), "2 RasDial(" + place() + ")fail, error 691");
    else
        expected.insert(expected.begin(),
                        {"2 RasDial fail, error 691", "2 oops, ErrorCode 691 conn is NULL"});
    const Lines failures = log(2);
    CHECK(Lines(failures.end() - static_cast<int>(expected.size()), failures.end()) == expected);
    CHECK(log().back() == finish(691, c.hasHandle ? 400 : 0));
    CHECK(calls({"RasHangUpA"}).size() == (c.hasHandle ? 1 : 0));
    CHECK(told() == (c.hasHandle ? Lines{peer} : Lines{}));
    CHECK(calls({"RasGetErrorStringA"}).back() == "RasGetErrorStringA(691, 1024)");
}

// Every road into the redial. Windows 6 and later, where entries outlive a hang-up by peer id.
TEST_CASE_METHOD(Dialing, "a dial in progress or a doubtful success is dialled again under a fresh name") {
    struct Case {
        ScriptedRas::Dial first;
        Lines failures;
        Lines hangUps;
        DWORD time;
    };
    const std::string toldHost = "host told(" + peer + ")";
    const std::string dialled = "RasDial(" + place() + ")";
    const std::vector<Case> cases = {
        {refused(756), {"2 RasDial fail, error 756", "2 oops, ErrorCode 756 conn is NULL"}, {toldHost}, 1400},
        {fails(756),
         {"2 rasDialFunc2: callback id 1, state Authenticating..., error 756, error2 0",
          "2 Error: 756 -  text of 756", "2 " + dialled + "fail, error 756"},
         {"RasHangUpA(1)", toldHost, toldHost},
         1800},
        {connectsWithoutHandle(),
         {"2 Dial success, but can't get ppp ip", "2 oops, ErrorCode 0 conn is NULL"},
         {"RasHangUpA(1)", toldHost},
         1700},
        {connectsButReports(629),
         {"2 " + dialled + "return success, but RasGetConnectStatus return 629"},
         {"RasHangUpA(1)", toldHost, toldHost},
         2800},
        {connectsUnreadably(87),
         {"2 RasGetConnectStatus " + std::string(publicBook) + " " + entry() + " fail,error 87"},
         {"RasHangUpA(1)", toldHost},
         2700},
    };
    Case c = cases[GENERATE_REF(range(std::size_t{0}, cases.size()))];
    privates::isWin6Plus = true;
    whenRasDials({c.first, connects()});
    CHECK(dialOnce(inPublicBook) == 0);
    c.failures.push_back("2 dialUp(" + place() +
                         ") return ERROR_DIAL_ALREADY_IN_PROGRESS or DailFakeSuccess");
    CHECK(log(2) == c.failures);
    CHECK(calls({"RasHangUpA", "host"}) == c.hangUps);
    const std::string in = "A(" + std::string(publicBook) + ", ";
    CHECK(calls({"RasDialA", "RasRenameEntryA", "WaitForSingleObject(20000)"}) ==
          Lines{"RasDial" + in + entry(0) + ", 2)", "RasRenameEntry" + in + entry(0) + ", " + entry(1) + ")",
                "RasDial" + in + entry(1) + ", 2)", "WaitForSingleObject(20000)"});
    CHECK(log().back() == finish(0, c.time, 1));
    CHECK(entries(publicBook) == Lines{entry(1)});
}

TEST_CASE_METHOD(Dialing, "a second dial's outcome is the result, and a failed one takes its entry along") {
    struct Case {
        ScriptedRas::Dial second;
        DWORD result;
        std::string failure; // the last one
        bool kept;
    };
    const std::string dialled = "2 RasDial(" + place(1) + ")";
    const std::vector<Case> cases = {
        {connects(19'999), 0, "", true},
        {refused(756), 756, dialled + " again fail, error 756", true},
        {refused(633), 633, dialled + " again fail, error 633", false},
        {fails(691), 691, dialled + " again fail, error 691", false},
        {connectsWithoutHandle(), 0, "2 Oops, ErrorCode = 0, but Conn is NULL", true},
        {connectsUnreadably(87), 0, "2 RasGetConnectStatus " + entry(1) + " fail, error 87", true},
        {connectsButReports(629), 629, dialled + " return success, but RasGetConnectStatus return 629",
         false},
    };
    const Case& c = cases[GENERATE_REF(range(std::size_t{0}, cases.size()))];
    whenRasDials({refused(756), c.second});
    CHECK(dialOnce(inPublicBook) == c.result);
    if (c.failure.empty())
        CHECK(logged(3, place(1) + " RasDial must success"));
    else
        CHECK(log(2).back() == c.failure);
    CHECK(entries(publicBook) == (c.kept ? Lines{entry(1)} : Lines{}));
    CHECK(log().back() == finish(c.result, static_cast<DWORD>(clock.passed()), 1));
}

TEST_CASE_METHOD(Dialing, "a fresh name that is taken is cleared away and the next one tried") {
    whenRasDials({refused(756), connects()});
    ras.phoneBooks[publicBook] = {{entry(0)}, {entry(1)}};
    whenRasAnswers("RasRenameEntryA", {0, 183, 0});
    CHECK(dialOnce(inPublicBook) == 0);
    const std::string in = "A(" + std::string(publicBook) + ", ";
    CHECK(calls({"RasRename", "RasDelete", "RasDial"}) ==
          Lines{"RasDial" + in + entry(0) + ", 2)", "RasRenameEntry" + in + entry(0) + ", " + entry(1) + ")",
                "RasDeleteEntry" + in + entry(1) + ")",
                "RasRenameEntry" + in + entry(0) + ", " + entry(2) + ")",
                "RasDeleteEntry" + in + entry(2) + ")",
                "RasRenameEntry" + in + entry(0) + ", " + entry(3) + ")",
                "RasDial" + in + entry(3) + ", 2)"});
    CHECK(log().back() == finish(0, 1400, 3));
}

TEST_CASE_METHOD(Dialing, "an entry that cannot be renamed is not dialled again") {
    DWORD code = 0;
    SECTION("for want of rights") {
        code = ERROR_ACCESS_DENIED;
    }
    SECTION("because every name is taken") {
        code = ERROR_ALREADY_EXISTS;
    }
    on<"RasRenameEntryA">([code](LPCSTR, LPCSTR, LPCSTR) { return code; });
    whenRasDials({refused(756)});
    CHECK(dialOnce(inPublicBook) == 756);
    CHECK(log(2).back() == "2 RasRenameEntry fail, error " + std::to_string(code));
    CHECK(calls({"RasDial"}).size() == 1);
    CHECK(timesCalled<"RasRenameEntryA">() <= 1'000);
    CHECK(log().back().find(" pptp dial return 756,time 100") != std::string::npos);
}

TEST_CASE_METHOD(Dialing, "a private phonebook is gone before the rename, and made afresh for the next try") {
    whenRasDials({refused(756), connects()});
    CHECK(dial() == 0);
    CHECK(logged(2, "RasRenameEntry fail, error 623"));
    CHECK(logged(2, "dialUp2 fail, error 756"));
    CHECK(calls({"DeleteFileA", "RasSetEntryPropertiesA", "RasDialA"}) ==
          Lines{"RasSetEntryPropertiesA(" + book() + ", " + entry(0) + ", 2088, 0)",
                "RasDialA(" + book() + ", " + entry(0) + ", 2)", "DeleteFileA(" + book() + ")",
                "RasSetEntryPropertiesA(" + book() + ", " + entry(1) + ", 2088, 0)",
                "RasDialA(" + book() + ", " + entry(1) + ", 2)"});
}

TEST_CASE_METHOD(Dialing, "the host's tries end by the code that comes back") {
    struct Case {
        std::vector<DWORD> codes; // of the rounds' dials
        DWORD result;
        std::size_t pauses;
        bool asksForPort;
    };
    const Case c = GENERATE(values<Case>({{{0}, 0, 1, false}, // one pause lets the connection settle
                                          {{691}, 691, 0, false},
                                          {{756, 756, 756}, 756, 3, false},
                                          {{756, 756, 0}, 0, 3, false},
                                          {{756, 691}, 691, 1, false},
                                          {{633, 633}, 633, 1, true},
                                          {{651, 633}, 633, 1, true},
                                          {{633, 0}, 0, 2, false},
                                          {{756, 651}, 651, 1, true},
                                          {{756, 756, 633}, 633, 2, true},
                                          {{651, 756, 756}, 756, 3, false},
                                          {{651, 756, 651}, 651, 2, true}}));
    Lines failures;
    for (const DWORD code : c.codes) {
        ras.dials.push_back(code == 0 ? connects() : refused(code));
        if (code != 0)
            failures.push_back("2 dialUp2 fail, error " + std::to_string(code));
    }
    if (c.asksForPort)
        failures.push_back("2 ask kestrin chg port 1723->1724 and redial");
    CHECK(dial() == c.result);
    CHECK(ras.dials.empty());
    CHECK(calls({"RasDialA"}).size() == c.codes.size());
    CHECK(calls({"Sleep(1000)"}).size() == c.pauses);
    Lines logged = log(2);
    std::erase_if(logged, [](const std::string& line) {
        return !line.starts_with("2 dialUp2") && !line.starts_with("2 ask");
    });
    CHECK(logged == failures);
}

TEST_CASE_METHOD(Dialing,
                 "a dial without an end counts by the connection's state, and its late end is lost") {
    whenRasDials({connects(10'500)});
    CHECK(dial() == 0);
    CHECK(log(2) == Lines{"2 dialUp3 TIMEOUT",
                          "2 Can't find item, callbackid " + std::to_string(privates::callbackIdIndex)});
    CHECK(ras.answers.back() == 0);
    CHECK(clock.passed() == 11'000);
}

TEST_CASE_METHOD(Dialing, "with logging off no text is built, and the traces are still handed over") {
    LOG::level = 0;
    whenRasDials({refused(633), refused(633)});
    CHECK(dial() == 633);
    CHECK(timesCalled<"int2stru">() == 0);
    whenRasDials({connects()});
    CHECK(dial() == 0);
    CHECK(timesCalled<"int2stru">() == ras.answers.size()); // each names its callback id in its trace
    CHECK(log() == Lines{});
    CHECK(trace().front() == "3 ==>>VARNEL::dialUp(" + peer + " ip 10.0.0.1)\n");
}
