// What comes of a dial, by the behaviour of the peer.
#include "tests/standin/ras_kit.h"

#include <catch2/catch.hpp>

using namespace standin_test;

namespace {

Dial::Heard::value_type outcomeOf(Dial& dial) {
    const Dial::Heard heard = dial.waitForEnd();
    return heard.empty() ? Dial::Heard::value_type{RASCS_OpenPort, MAXDWORD} : heard.back();
}

} // namespace

TEST_CASE("a failed dial ends where the peer ends it, and shows so until it is hung up") {
    const auto [behaviour, state, code] = GENERATE(table<std::string, RASCONNSTATE, DWORD>({
        {"refuses", RASCS_AuthNotify, 691},
        {"unreachable", RASCS_ConnectDevice, 800},
        {"unreachable 678", RASCS_ConnectDevice, 678},
        {"no-port always", RASCS_OpenPort, 633},
        {"fails 651 at OpenPort", RASCS_OpenPort, 651},
        {"fails 619 at AllDevicesConnected", RASCS_AllDevicesConnected, 619},
        {"fails 718 at Authenticate", RASCS_Authenticate, 718},
        {"fails 647 at AuthNotify", RASCS_AuthNotify, 647},
        {"fails 720 at Projected", RASCS_Projected, 720},
        {"fails 635 at Connected", RASCS_Connected, 635},
    }));
    const Computer computer("[10.1.1.1]\nbehaviour = " + behaviour + "\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    INFO(behaviour);
    REQUIRE(dial.result == 0);
    CHECK(outcomeOf(dial) == std::pair(state, code));
    CHECK(statusOf(dial.handle).result == 0);
    CHECK(statusOf(dial.handle).state == state);
    CHECK(statusOf(dial.handle).error == code);
    CHECK(connectedEntries().empty());

    // The failed dial is over, though not hung up: the entry can be dialled again.
    Dial again(computer, "a");
    CHECK(outcomeOf(again) == std::pair(state, code));
    CHECK(RasHangUpA(dial.handle) == 0);
    CHECK(isGoneInTime(dial.handle));
}

TEST_CASE("a state is entered without an error before it fails") {
    const Computer computer("[10.1.1.1]\nbehaviour = fails 619 at PortOpened\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    CHECK(dial.waitForEnd() ==
          Dial::Heard{{RASCS_OpenPort, 0}, {RASCS_PortOpened, 0}, {RASCS_PortOpened, 619}});
}

TEST_CASE("the peer's accounts decide, once the dial has come so far") {
    const auto [behaviour, code] = GENERATE(table<std::string, DWORD>({
        {"accepts", 691},
        {"denies", 691},
        {"drops after 1 ms", 691},
        {"fails 720 at Projected", 691},
        {"unreachable", 800},
        {"fails 651 at OpenPort", 651},
    }));
    const Computer computer(
        "[10.1.1.1]\naccount = other:secret\naccount = user:colon:and blank\nbehaviour = " + behaviour +
        "\n");
    computer.addEntry("a");
    INFO(behaviour);
    Dial wrongPassword(computer, dialParams("a", "user", "colon:and Blank"));
    CHECK(outcomeOf(wrongPassword).second == code);
    Dial wrongUser(computer, dialParams("a", "nobody", "secret"));
    CHECK(outcomeOf(wrongUser).second == code);
    if (behaviour == "accepts") {
        Dial right(computer, dialParams("a", "USER", "colon:and blank"));
        CHECK(outcomeOf(right) == std::pair(RASCS_Connected, DWORD{0}));
    }
}

TEST_CASE("addresses that nobody described cannot be reached") {
    const Computer computer("[service]\nlatency = 1\nhang-up-linger = 1\nunreachable = 678\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    CHECK(outcomeOf(dial) == std::pair(RASCS_ConnectDevice, DWORD{678}));
}

TEST_CASE("a peer disconnects while it authenticates") {
    const Computer computer("[10.1.1.1]\nbehaviour = disconnects\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    CHECK(outcomeOf(dial) == std::pair(RASCS_Disconnected, DWORD{0}));
    CHECK(statusOf(dial.handle).error == ERROR_DISCONNECTION);
}

TEST_CASE("a reported success is denied by the status") {
    const Computer computer("[10.1.1.1]\nbehaviour = denies 734\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    CHECK(outcomeOf(dial) == std::pair(RASCS_Connected, DWORD{0}));
    CHECK(statusOf(dial.handle).result == 0);
    CHECK(statusOf(dial.handle).error == 734);
    CHECK(connectedEntries().empty());
}

TEST_CASE("a link that breaks by itself disappears") {
    const Computer computer("[10.1.1.1]\nbehaviour = drops after 5 ms\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    CHECK(outcomeOf(dial) == std::pair(RASCS_Connected, DWORD{0}));
    CHECK(isGoneInTime(dial.handle));
    CHECK(connectedEntries().empty());
    CHECK(RasHangUpA(dial.handle) == ERROR_INVALID_HANDLE);
}

TEST_CASE("if wanted, a broken link shows for a while what broke it") {
    const Computer computer("[service]\nlatency = 1\nhang-up-linger = 1\nbroken-link-linger = 60000\n"
                            "[10.1.1.1]\nbehaviour = drops after 1\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    dial.waitForEnd();
    while (statusOf(dial.handle).state == RASCS_Connected)
        Sleep(1);
    CHECK(statusOf(dial.handle).state == RASCS_Disconnected);
    CHECK(statusOf(dial.handle).error == ERROR_REMOTE_DISCONNECTION);
    CHECK(connectedEntries().empty());
    CHECK(RasHangUpA(dial.handle) == 0);
    CHECK(isGoneInTime(dial.handle));
}

TEST_CASE("the first dials fail, the next one does not") {
    const Computer computer;
    computer.addEntry("a");
    SECTION("busy, as the call's result") {
        computer.describe("[10.1.1.1]\nbehaviour = busy 2\n");
        for (int i = 0; i < 2; ++i) {
            Dial dial(computer, "a");
            CHECK(dial.result == ERROR_DIAL_ALREADY_IN_PROGRESS);
            CHECK(dial.handle == nullptr);
        }
    }
    SECTION("busy, as the dial's outcome") {
        computer.describe("[10.1.1.1]\nbehaviour = busy 1 notified\n");
        Dial dial(computer, "a");
        CHECK(dial.result == 0);
        CHECK(outcomeOf(dial) == std::pair(RASCS_OpenPort, DWORD{756}));
    }
    SECTION("no port") {
        computer.describe("[10.1.1.1]\nbehaviour = no-port 1\n");
        Dial dial(computer, "a");
        CHECK(outcomeOf(dial) == std::pair(RASCS_OpenPort, DWORD{633}));
    }
    SECTION("any code") {
        computer.describe("[10.1.1.1]\nbehaviour = fails 651 at DeviceConnected 1 times\n");
        Dial dial(computer, "a");
        CHECK(outcomeOf(dial) == std::pair(RASCS_DeviceConnected, DWORD{651}));
    }
    Dial next(computer, "a");
    CHECK(outcomeOf(next) == std::pair(RASCS_Connected, DWORD{0}));
}

TEST_CASE("dials are counted anew when the behaviour changes") {
    const Computer computer("[10.1.1.1]\nbehaviour = busy 1\n");
    computer.addEntry("a");
    CHECK(Dial(computer, "a").result == ERROR_DIAL_ALREADY_IN_PROGRESS);
    CHECK(Dial(computer, "a").result == 0);
    computer.describe("[10.1.1.1]\nbehaviour = busy 2\n");
    CHECK(Dial(computer, "a").result == ERROR_DIAL_ALREADY_IN_PROGRESS);
}

TEST_CASE("ports run out, and a hang-up gives one back") {
    const Computer computer("[service]\nlatency = 1\nhang-up-linger = 5\nports = 1\n[10.1.1.1]\n");
    for (const char* name : {"a", "b", "c"})
        computer.addEntry(name);
    {
        Dial first(computer, "a");
        first.waitForEnd();
        Dial second(computer, "b");
        CHECK(outcomeOf(second) == std::pair(RASCS_OpenPort, DWORD{633}));
    }
    Dial third(computer, "c");
    CHECK(outcomeOf(third) == std::pair(RASCS_Connected, DWORD{0}));
}

TEST_CASE("if wanted, a failed dial holds its port until it is hung up") {
    const bool holds = GENERATE(true, false);
    const Computer computer(std::string("[service]\nlatency = 1\nhang-up-linger = 1\nports = 1\n") +
                            "failed-dial-holds-port = " + (holds ? "yes" : "no") +
                            "\n[10.1.1.1]\nbehaviour = refuses\n[10.1.1.2]\n");
    computer.addEntry("a");
    computer.addEntry("b", "10.1.1.2");
    Dial failed(computer, "a");
    failed.waitForEnd();
    Dial next(computer, "b");
    CHECK(outcomeOf(next).second == (holds ? 633 : 0));
}
