// Hanging connections up: one by its handle, that of a peer, those that share an address range, all.
#include "tests/kit/varnel_test.h"

#include <raserror.h>

class HangUp : public VarnelTest {
  protected:
    // What the library hands to the enumeration of connections.
    struct Asked {
        DWORD size, recordSize;
        SIZE_T room;
        DWORD heapFlags;
        bool operator==(const Asked&) const = default;
    };
    std::vector<Asked> asked;

    HangUp() {
        before<"RasEnumConnectionsA">([this](LPRASCONNA first, LPDWORD size, LPDWORD) {
            asked.push_back({*size, first->dwSize, heap.lastSize(), heap.lastFlags()});
        });
    }

    // Connections of entries p1 #0, p2 #0 and so on.
    void connectPeers(int number) {
        for (int i = 1; i <= number; ++i)
            ras.connect("p" + std::to_string(i) + " #0", "C:\\all.pbk", std::to_string(9 + i) + ".0.0.2");
    }
};

TEST_CASE_METHOD(HangUp,
                 "a connection is hung up once the service has forgotten it, or has been asked long enough") {
    constexpr DWORD forEver = 1'000'000;
    struct Case {
        DWORD code;    // of the hang-up
        DWORD lingers; // status queries that still find it
        bool result;
        Lines failures;
        unsigned int queries;
    };
    const std::string oops = "2 OOPS, dialdown fail,StatusRet 0";
    const std::vector<Case> cases = {
        {0, 0, true, {}, 1},
        {0, 7, true, {}, 8},
        {0, 3'001, true, {}, 3'002}, // its last query began when 3000 ms had passed, and still counts
        {0, 3'002, true, {oops}, 3'002},
        {668, 0, true, {}, 1},
        {668, forEver, false, {oops}, 3'002},
        {753, 2, true, {"2 RasHangUp fail, error 753"}, 3},
        {753, forEver, false, {"2 RasHangUp fail, error 753", oops}, 3'002},
    };
    const Case& c = cases[GENERATE_REF(range(std::size_t{0}, cases.size()))];
    const std::string id = GENERATE(as<std::string>(), "", "Node");
    const HRASCONN conn = ras.connect("node #0");
    ras.find(conn)->lingers = c.lingers;
    on<"RasHangUpA">([&](HRASCONN handle) {
        ras.find(handle)->hungUp = true;
        return c.code;
    });
    SECTION("at any time") {}
    SECTION("when the tick count wraps meanwhile") {
        clock.startAt(0xFFFFFFFF);
    }
    CHECK(privates::hangUp(conn, id) == c.result);
    CHECK(log(1) == Lines{"1 =>RasHangUp " + id, "1 <=RasHangUp " + id});
    CHECK(log(2) == c.failures);
    CHECK(timesCalled<"RasGetConnectStatusA">() == c.queries);
    CHECK(calls({"Sleep(100)", "host"}) == (id.empty() ? Lines{} : Lines{"Sleep(100)", "host told(Node)"}));
    CHECK(clock.passed() == c.queries - 1 + (id.empty() ? 0 : 100));
    CHECK(trace() == Lines{});
}

TEST_CASE_METHOD(HangUp, "the last answer of the service is logged when it never forgets") {
    on<"RasGetConnectStatusA">([](HRASCONN, LPRASCONNSTATUSA status) {
        const DWORD code = status->dwSize == 288 ? DWORD{ERROR_NOT_ENOUGH_MEMORY} : DWORD{ERROR_INVALID_SIZE};
        status->dwSize = 0;
        return code;
    });
    CHECK(privates::hangUp(ras.connect("node #0"), ""));
    CHECK(log(2) == Lines{"2 OOPS, dialdown fail,StatusRet 8"});
}

TEST_CASE_METHOD(HangUp, "a host that withdraws its function during the pause is not told") {
    const auto sleep = current<"Sleep">();
    on<"Sleep">([=](DWORD ms) {
        sleep(ms);
        if (ms == 100)
            privates::pptpsrvDialDownCallback = nullptr;
    });
    SECTION("by handle") {
        CHECK(privates::hangUp(ras.connect("node #0"), "Node"));
    }
    SECTION("by peer id") {
        CHECK_FALSE(VARNEL::dialDown("Node"));
    }
    CHECK(timesCalled<"Sleep">() == 1);
    CHECK(told() == Lines{});
    CHECK_FALSE(VARNEL::dialDown("Node"));
    CHECK(timesCalled<"Sleep">() == 1);
}

TEST_CASE_METHOD(HangUp, "a host's exception passes through a hang-up that has released everything") {
    privates::pptpsrvDialDownCallback = [](const std::string& id) { throw id; };
    connectPeers(1);
    CHECK_THROWS_AS(VARNEL::dialDown("p1"), std::string);
    CHECK_THROWS_AS(privates::hangUp(ras.connect("p2"), "p2"), std::string);
}

TEST_CASE_METHOD(HangUp,
                 "a peer's connection is hung up with its entry and its phonebook, and the host told once") {
    connectPeers(2);
    ras.connect("p2 #1"); // another one of the peer's, which stays
    ras.phoneBooks["C:\\all.pbk"] = {{"p2 #0"}};
    ras.phoneBooks[bookOf("P2")] = {};
    CHECK(VARNEL::dialDown("P2"));
    CHECK(calls() == Lines{"RasEnumConnectionsA()", "RasHangUpA(2)", "RasGetConnectStatusA(2)",
                           "RasDeleteEntryA(C:\\all.pbk, p2 #0)", "DeleteFileA(" + bookOf("P2") + ")",
                           "Sleep(100)", "host told(P2)"});
    CHECK(log() == Lines{"1 =>RasHangUp ", "1 <=RasHangUp ", "3 dialdown p2 #0 success"});
    CHECK(trace().front() == "3 ==>>VARNEL::dialDown(P2)\n");
    CHECK(trace().back() == "3 <<== VARNEL::dialDown(P2),period = 100(ms)\n");
    CHECK(asked == std::vector<Asked>{{178'176, 696, 178'176, 0}});
}

TEST_CASE_METHOD(HangUp, "a peer's hang-up that fails removes the entry all the same") {
    connectPeers(1);
    ras.find(reinterpret_cast<HRASCONN>(1))->lingers = 1'000'000;
    whenRasAnswers("RasHangUpA", {753});
    CHECK_FALSE(VARNEL::dialDown("p1"));
    CHECK(log(2) == Lines{"2 RasHangUp fail, error 753", "2 OOPS, dialdown fail,StatusRet 0",
                          "2 dialdown p1 #0 fail", "2 RasDeleteEntry fail C:\\all.pbk:p1 #0 error 623"});
    CHECK(told() == Lines{"p1"});
}

TEST_CASE_METHOD(HangUp,
                 "without a connection among the first three, the phonebook goes and the host is told") {
    Lines failures;
    std::string id = "p4";
    connectPeers(5);
    SECTION("listed fourth") {}
    SECTION("of another peer") {
        id = "p";
    }
    SECTION("not listed") {
        whenRasAnswers("RasEnumConnectionsA", {711});
        failures = {"2 RasEnumConnections fail, error 711"};
    }
    SECTION("not listed for want of memory") {
        Faults::plan(Fault{"HeapAlloc", 1, false});
        failures = {"2 RasEnumConnections fail, error 8"};
    }
    CHECK_FALSE(VARNEL::dialDown(id));
    CHECK(log() == failures);
    CHECK(calls({"RasHangUp", "RasDelete", "DeleteFile", "Sleep", "host"}) ==
          Lines{"DeleteFileA(" + bookOf(id) + ")", "Sleep(100)", "host told(" + id + ")"});
}

TEST_CASE_METHOD(HangUp, "an empty id hangs nothing up") {
    connectPeers(1);
    CHECK_FALSE(VARNEL::dialDown(""));
    CHECK(calls() == Lines{});
    CHECK(trace().size() == 2);
}

TEST_CASE_METHOD(HangUp, "all connections are hung up, but none when there are more than three") {
    const int number = GENERATE(0, 1, 3, 4);
    connectPeers(number);
    CHECK(privates::dialDownAllPptp());
    const bool all = number <= 3;
    CHECK(timesCalled<"RasHangUpA">() == (all ? static_cast<unsigned int>(number) : 0));
    CHECK(asked == std::vector<Asked>{{2'088, 696, 2'088, HEAP_ZERO_MEMORY}});
    CHECK(log().front() == (all ? "3 get " + std::to_string(number) + " connections"
                                : std::string("2 RasEnumConnections fail, error 603")));
    if (number == 3)
        CHECK(log().back() == "3 dialdown p3 #0 success");
    CHECK(calls({"RasDelete", "DeleteFile", "host"}) == Lines{});
    CHECK(trace().front() == "3 ==>>VARNEL::dialDownAllPptp()\n");
}

TEST_CASE_METHOD(HangUp, "of several hang-ups the last one is the result") {
    connectPeers(2);
    const std::size_t failing = GENERATE(0u, 1u);
    ras.connections[failing].lingers = 1'000'000;
    if (failing == 0)
        whenRasAnswers("RasHangUpA", {753});
    else
        whenRasAnswers("RasHangUpA", {0, 753});
    CHECK(privates::dialDownAllPptp() == (failing == 0));
    CHECK(logged(2, failing == 0 ? "dialdown p1 #0 fail" : "dialdown p2 #0 fail"));
    CHECK(logged(3, failing == 0 ? "dialdown p2 #0 success" : "dialdown p1 #0 success"));
}

TEST_CASE_METHOD(HangUp, "connections that share the first octet of an address are hung up") {
    ras.connect("a", "", "10.200.3.4");
    ras.connect("b", "", "11.0.0.1");
    ras.connect("c", "", "0.0.0.0");
    SECTION("of 10.0.0.1") {
        CHECK(privates::dialDownSameIp(0x0A000001));
        CHECK(calls({"RasHangUp"}) == Lines{"RasHangUpA(1)"});
        CHECK(log() == Lines{"3 get 3 connections", "3 Try to get a ip", "3 aip 10.200.3.4", "1 =>RasHangUp ",
                             "1 <=RasHangUp ", "3 dialdown a success", "3 Try to get b ip", "3 bip 11.0.0.1",
                             "3 Try to get c ip", "3 cip 0.0.0.0"});
        CHECK(trace().front() == "3 ==>>VARNEL::dialDownSameIp(10.0.0.1)\n");
    }
    SECTION("of 0.0.0.1") {
        CHECK(privates::dialDownSameIp(1));
        CHECK(calls({"RasHangUp"}) == Lines{});
    }
    SECTION("of 11.1.1.1, the first one's being unknown") {
        whenRasAnswers("RasGetProjectionInfoA", {731});
        CHECK(privates::dialDownSameIp(0x0B010101));
        CHECK(log(2) == Lines{"2 Can't get ppp ip from a"});
        CHECK(calls({"RasHangUp"}) == Lines{"RasHangUpA(2)"});
    }
    SECTION("which has 15 characters and no end") {
        ras.connections[0].address = "210.200.100.200";
        CHECK(privates::dialDownSameIp(0xD2000000));
        CHECK(calls({"RasHangUp"}) == Lines{"RasHangUpA(1)"});
    }
    SECTION("of nobody, there being too many") {
        ras.connect("d");
        CHECK(privates::dialDownSameIp(0x0A000001));
        CHECK(log() == Lines{"2 RasEnumConnections fail, error 603"});
    }
}
