// One asynchronous dial, turned into a call that waits for its end.
#include "tests/kit/varnel_test.h"

#include <cstring>

#include <raserror.h>

class DialAttempt : public VarnelTest {
  protected:
    DialAttempt() {
        ras.phoneBooks[phoneBook] = {{"node #0"}};
        params.dwSize = 1064;
        std::strcpy(params.szEntryName, "node #0");
    }

    DWORD attempt(DWORD timeout = 10'000) { return privates::dialUp3(phoneBook, params, timeout, &conn); }
    Lines logOf(const ScriptedRas::Dial& dial) {
        whenRasDials({dial});
        attempt();
        return log();
    }

    std::string phoneBook = "C:\\books\\one.pbk";
    RASDIALPARAMSA params = {};
    HRASCONN conn = nullptr;
};

TEST_CASE_METHOD(DialAttempt, "an attempt ends as its notifications or the dial itself say") {
    const std::string state = "rasDialFunc2: callback id 1, state ";
    struct Case {
        ScriptedRas::Dial dial;
        DWORD result;
        Lines failures;
        Lines calls;
        unsigned long long took; // ms
    };
    const std::string dialled = "RasDialA(C:\\books\\one.pbk, node #0, 2)";
    const std::string waited = "WaitForSingleObject(10000)";
    const std::string asked = "RasGetProjectionInfoA(1)";
    const std::string text = "RasGetErrorStringA(";
    const std::vector<Case> cases = {
        {connects(), 0, {}, {dialled, waited, asked}, 300},
        {connects(0), 0, {}, {dialled, waited, asked}, 0}, // ended before RasDialA came back
        {connects(10'000), 0, {}, {dialled, waited, asked}, 10'000},
        {{.notifications = {{50, RASCS_Connected}}, .address = ""},
         0,
         {"2 Dial success, but can't get ppp ip"},
         {dialled, waited, asked},
         50},
        {fails(691),
         691,
         {"2 " + state + "Authenticating..., error 691, error2 0", "2 Error: 691 -  text of 691"},
         {dialled, waited, text + "691, 256)"},
         300},
        {{.notifications = {{70, RASCS_Disconnected}}}, 617, {}, {dialled, waited}, 70},
        {refused(633), 633, {"2 RasDial fail, error 633"}, {dialled}, 0},
        {neverEnds(), 0, {"2 dialUp3 TIMEOUT"}, {dialled, waited, asked}, 10'000},
        {connects(10'001), 0, {"2 dialUp3 TIMEOUT"}, {dialled, waited, asked}, 10'000},
    };
    const Case c = GENERATE_REF(from_range(cases));
    whenRasDials({c.dial});
    CHECK(attempt() == c.result);
    CHECK(log(2) == c.failures);
    CHECK(calls() == c.calls);
    CHECK(clock.passed() == c.took);
    CHECK((conn != nullptr) == (c.dial.code == 0));
    CHECK(privates::items.empty());
}

TEST_CASE_METHOD(DialAttempt, "an attempt that the library gave up is answered 0 when it ends at last") {
    whenRasDials({connects(10'500)});
    CHECK(attempt() == 0);
    Import<"Sleep">::thunk(1'000);
    CHECK(ras.answers == std::vector<DWORD>{1, 1, 0});
    CHECK(logged(2, "Can't find item, callbackid 1"));
}

TEST_CASE_METHOD(DialAttempt, "an attempt whose wait fails has the wait's error") {
    DWORD expected = ERROR_ACCESS_DENIED;
    SECTION("the wait itself") {
        on<"WaitForSingleObject">([](HANDLE, DWORD) {
            SetLastError(ERROR_ACCESS_DENIED);
            return DWORD{WAIT_FAILED};
        });
    }
    SECTION("for want of an event") {
        Faults::plan(Fault{"CreateEventA", 1, false});
        expected = ERROR_INVALID_HANDLE;
    }
    CHECK(attempt() == expected);
    CHECK(log(2) == Lines{"2 dialUp3 WaitForSingleObject fail, error " + std::to_string(expected)});
}

TEST_CASE_METHOD(DialAttempt, "of the dial parameters an attempt changes the callback id alone") {
    struct {
        long last;
        ULONG_PTR id;
    } const cases[] = {{6, 7}, {-1, 1}, {-9, static_cast<ULONG_PTR>(-8)}};
    std::strcpy(params.szPassword, "secret");
    for (const auto& c : cases) {
        privates::callbackIdIndex = c.last;
        RASDIALPARAMSA expected = params;
        expected.dwCallbackId = c.id;
        conn = nullptr;
        CHECK(attempt() == 0);
        CHECK(std::memcmp(&params, &expected, sizeof params) == 0);
    }
    CHECK(logged(3, "rasDialFunc2: callback id 4294967288, state Connection completed., error 0, erro2 0"));
}

TEST_CASE_METHOD(DialAttempt, "the default phonebooks are dialled without a path") {
    phoneBook.clear();
    ras.phoneBooks[""] = {{"node #0"}};
    CHECK(attempt() == 0);
    CHECK(calls({"RasDialA"}) == Lines{"RasDialA(null, node #0, 2)"});
}

TEST_CASE_METHOD(DialAttempt, "an address is logged as far as its field goes") {
    ScriptedRas::Dial dial = connects();
    dial.address = GENERATE(as<std::string>(), "1.2.3.4", "255.255.255.255", "255.255.255.255 and more");
    CHECK(logOf(dial).back() == "3 Dial success, got pptp ip " + dial.address.substr(0, 15));
}
