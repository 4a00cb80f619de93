// Dialling through the stand-in, as far as every dial goes the same way.
#include "tests/standin/ras_kit.h"

#include <catch2/catch.hpp>

#include <atomic>
#include <cstring>
#include <thread>

using namespace standin_test;

namespace {

constexpr char acceptingPeer[] =
    "[10.1.1.1]\naccount = user:secret\naddress = 10.9.0.2\nserver-address = 10.9.0.1\n";

const Dial::Heard usualCourse{{RASCS_OpenPort, 0},
                              {RASCS_PortOpened, 0},
                              {RASCS_ConnectDevice, 0},
                              {RASCS_DeviceConnected, 0},
                              {RASCS_AllDevicesConnected, 0},
                              {RASCS_Authenticate, 0},
                              {RASCS_AuthNotify, 0},
                              {RASCS_Authenticated, 0},
                              {RASCS_AuthProject, 0},
                              {RASCS_Projected, 0},
                              {RASCS_Connected, 0}};

DWORD dialWith(const Computer& computer, RASDIALPARAMSA params, HRASCONN& handle) {
    return RasDialA(nullptr, computer.phonebook().c_str(), &params, 0, nullptr, &handle);
}

std::vector<std::pair<RASCONNSTATE, DWORD>> heardPlainly;
std::atomic<bool> isPlainlyConnected;

void hearPlainly(RASCONNSTATE state, DWORD error) {
    heardPlainly.emplace_back(state, error);
    if (state == RASCS_Connected)
        isPlainlyConnected = true;
}

void CALLBACK plainNotifier(UINT, RASCONNSTATE state, DWORD error) {
    hearPlainly(state, error);
}

void CALLBACK plainNotifier1(HRASCONN, UINT, RASCONNSTATE state, DWORD error, DWORD) {
    hearPlainly(state, error);
}

} // namespace

TEST_CASE("a dial passes through the usual states and leaves a connection") {
    const Computer computer(acceptingPeer);
    computer.addEntry("node7 #0");
    Dial dial(computer, "NODE7 #0");
    REQUIRE(dial.result == 0);
    REQUIRE(dial.handle);

    CHECK(dial.waitForEnd() == usualCourse);
    CHECK(dial.handleHeard() == dial.handle);
    const Status status = statusOf(dial.handle);
    CHECK(status.state == RASCS_Connected);
    CHECK(status.error == 0);
    CHECK(status.device == "WAN Miniport (PPTP)");
    CHECK(status.number == "10.1.1.1");
    CHECK(connectedEntries() == std::vector<std::string>{"node7 #0"});

    CHECK(RasHangUpA(dial.handle) == 0);
    CHECK(connectedEntries().empty());
    CHECK(isGoneInTime(dial.handle));
    CHECK(RasHangUpA(dial.handle) == ERROR_INVALID_HANDLE);
}

TEST_CASE("a hung-up handle stays known for the linger time, on its way down") {
    const Computer computer("[service]\nlatency = 1\nhang-up-linger = 60000\n[10.1.1.1]\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    dial.waitForEnd();
    CHECK(RasHangUpA(dial.handle) == 0);
    CHECK(statusOf(dial.handle).state == RASCS_Disconnected);
    CHECK(RasHangUpA(dial.handle) == ERROR_NO_CONNECTION);
    Dial again(computer, "a");
    CHECK(again.result == ERROR_DIAL_ALREADY_IN_PROGRESS);
    dial.handle = nullptr; // it would be waited for
}

TEST_CASE("without a linger time a handle is unknown at once") {
    const Computer computer("[service]\nlatency = 1\nhang-up-linger = 0\n[10.1.1.1]\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    dial.waitForEnd();
    CHECK(RasHangUpA(dial.handle) == 0);
    CHECK(statusOf(dial.handle).result == ERROR_INVALID_HANDLE);
    Dial again(computer, "a");
    CHECK(again.waitForEnd() == usualCourse);
    CHECK(again.handle != dial.handle);
}

TEST_CASE("a dial is hung up while the peer does not answer") {
    const Computer computer("[10.1.1.1]\nbehaviour = never-answers\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    const Dial::Heard heard = dial.waitFor(RASCS_ConnectDevice);
    CHECK(heard.back() == std::pair(RASCS_ConnectDevice, DWORD{0}));
    CHECK(statusOf(dial.handle).state == RASCS_ConnectDevice);
    CHECK(connectedEntries().empty());
    CHECK(RasHangUpA(dial.handle) == 0);
    CHECK(isGoneInTime(dial.handle));
    CHECK(dial.heard() == heard);
}

TEST_CASE("if wanted, the notifier hears of a hang-up while dialling") {
    const Computer computer("[service]\nnotify-hang-up = yes\nhang-up-linger = 1\n"
                            "[10.1.1.1]\nbehaviour = never-answers\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    dial.waitFor(RASCS_ConnectDevice);
    CHECK(RasHangUpA(dial.handle) == 0);
    CHECK(dial.waitForEnd().back() == std::pair(RASCS_Disconnected, DWORD{0}));
}

TEST_CASE("a hang-up within the notifier takes effect when the notifier has returned") {
    const Computer computer("[service]\nhang-up-linger = 0\n[10.1.1.1]\n");
    computer.addEntry("a");
    static std::atomic<DWORD> hangUpResult, stateAfterwards;
    hangUpResult = stateAfterwards = MAXDWORD;
    Dial dial;
    dial.whenNotified = [](Dial& each, RASCONNSTATE state) {
        if (state == RASCS_Authenticate) {
            RASCONNSTATUSA status{};
            status.dwSize = statusSize;
            // The handle is the caller's once RasDial has stored it, which it has before the first
            // notification.
            hangUpResult = RasHangUpA(each.handle);
            RasGetConnectStatusA(each.handle, &status);
            stateAfterwards = static_cast<DWORD>(status.rasconnstate);
        }
        return true;
    };
    dial.start(computer, dialParams("a"));
    CHECK(dial.waitFor(RASCS_Authenticate).back().first == RASCS_Authenticate);
    CHECK(isGoneInTime(dial.handle));
    CHECK(hangUpResult == 0);
    CHECK(stateAfterwards == RASCS_Authenticate);
    CHECK(dial.heard().back().first == RASCS_Authenticate);
}

TEST_CASE("a notifier that returns 0 hears no more, and the dial goes on") {
    const Computer computer(acceptingPeer);
    computer.addEntry("a");
    Dial dial;
    dial.whenNotified = [](Dial&, RASCONNSTATE state) { return state != RASCS_PortOpened; };
    dial.start(computer, dialParams("a"));
    dial.waitFor(RASCS_PortOpened);
    while (statusOf(dial.handle).state != RASCS_Connected)
        REQUIRE(statusOf(dial.handle).result == 0);
    CHECK(dial.heard().size() == 2);
}

TEST_CASE("the older notifiers hear the same") {
    const Computer computer(acceptingPeer);
    computer.addEntry("a");
    const auto [type, notifier] = GENERATE(table<DWORD, void*>(
        {{0, reinterpret_cast<void*>(&plainNotifier)}, {1, reinterpret_cast<void*>(&plainNotifier1)}}));
    heardPlainly.clear();
    isPlainlyConnected = false;
    RASDIALPARAMSA params = dialParams("a");
    HRASCONN handle = nullptr;
    REQUIRE(RasDialA(nullptr, computer.phonebook().c_str(), &params, type, notifier, &handle) == 0);
    for (const DWORD start = GetTickCount(); !isPlainlyConnected && GetTickCount() - start < patience;)
        Sleep(1);
    CHECK(heardPlainly == usualCourse);
    CHECK(RasHangUpA(handle) == 0);
}

TEST_CASE("without a notifier the call returns with the outcome") {
    const Computer computer(acceptingPeer);
    computer.addEntry("a");
    HRASCONN handle = nullptr;
    SECTION("connected") {
        CHECK(dialWith(computer, dialParams("a"), handle) == 0);
        CHECK(statusOf(handle).state == RASCS_Connected);
    }
    SECTION("refused: the handle stays valid until it is hung up") {
        CHECK(dialWith(computer, dialParams("a", "user", "Secret"), handle) == ERROR_AUTHENTICATION_FAILURE);
        CHECK(statusOf(handle).error == ERROR_AUTHENTICATION_FAILURE);
    }
    CHECK(RasHangUpA(handle) == 0);
    CHECK(isGoneInTime(handle));
}

TEST_CASE("a hang-up ends a synchronous dial") {
    const Computer computer("[service]\nlist-dialing = yes\n[10.1.1.1]\nbehaviour = never-answers\n");
    computer.addEntry("a");
    HRASCONN handle = nullptr;
    DWORD result = 0;
    std::thread dialing([&] { result = dialWith(computer, dialParams("a"), handle); });
    while (connectedEntries().empty())
        Sleep(1);
    RASCONNA connection{};
    connection.dwSize = sizeof connection;
    DWORD bytes = sizeof connection, count = 0;
    CHECK(RasEnumConnectionsA(&connection, &bytes, &count) == 0);
    CHECK(RasHangUpA(connection.hrasconn) == 0);
    dialing.join();
    CHECK(result == ERROR_USER_DISCONNECTION);
    CHECK(handle == connection.hrasconn);
}

TEST_CASE("a call with wrong arguments dials nothing") {
    const Computer computer(acceptingPeer);
    computer.addEntry("a");
    const std::string path = computer.phonebook();
    HRASCONN handle = nullptr;
    RASDIALPARAMSA params = dialParams("a");

    CHECK(RasDialA(nullptr, path.c_str(), nullptr, 0, nullptr, &handle) == ERROR_INVALID_PARAMETER);
    CHECK(RasDialA(nullptr, path.c_str(), &params, 0, nullptr, nullptr) == ERROR_INVALID_PARAMETER);
    CHECK(RasDialA(nullptr, path.c_str(), &params, 3, &handle, &handle) == ERROR_INVALID_PARAMETER);
    CHECK(RasDialA(nullptr, computer.path("none.pbk").c_str(), &params, 0, nullptr, &handle) ==
          ERROR_CANNOT_OPEN_PHONEBOOK);
    CHECK(dialWith(computer, dialParams("b"), handle) == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY);
    CHECK(dialWith(computer, dialParams(""), handle) == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY);
    for (const DWORD size : {DWORD{0}, dialParamsSize - 1, dialParamsSize + 1}) {
        params.dwSize = size;
        CHECK(dialWith(computer, params, handle) == ERROR_INVALID_SIZE);
    }
    CHECK(handle == nullptr);
    handle = reinterpret_cast<HRASCONN>(4711);
    CHECK(dialWith(computer, dialParams("a"), handle) == ERROR_INVALID_HANDLE);
    CHECK(connectedEntries().empty());
}

TEST_CASE("the dial parameters of later systems are taken, too") {
    const Computer computer(acceptingPeer);
    computer.addEntry("a");
    const DWORD size = GENERATE(as<DWORD>(), 1064, 1068, 1076);
    std::vector<char> room(size);
    RASDIALPARAMSA params = dialParams("a");
    params.dwSize = size;
    std::memcpy(room.data(), &params, sizeof params);
    HRASCONN handle = nullptr;
    CHECK(RasDialA(nullptr, computer.phonebook().c_str(), reinterpret_cast<RASDIALPARAMSA*>(room.data()), 0,
                   nullptr, &handle) == 0);
    CHECK(RasHangUpA(handle) == 0);
}

TEST_CASE("a number is dialled without an entry or in place of the entry's") {
    const Computer computer(std::string(acceptingPeer) + "[10.1.1.2]\n");
    computer.addEntry("a");
    RASDIALPARAMSA params = dialParams(GENERATE(as<std::string>(), "", "a"));
    const std::string entry = params.szEntryName;
    std::strcpy(params.szPhoneNumber, "10.1.1.2");
    HRASCONN handle = nullptr;
    CHECK(dialWith(computer, params, handle) == 0);
    CHECK(statusOf(handle).number == "10.1.1.2");
    CHECK(connectedEntries() == std::vector<std::string>{entry.empty() ? ".10.1.1.2" : "a"});
    CHECK(RasHangUpA(handle) == 0);
}

TEST_CASE("every error of remote access has a text, which is never cut") {
    for (UINT code = 600; code <= 899; ++code) {
        char text[512];
        REQUIRE(RasGetErrorStringA(code, text, sizeof text) == 0);
        const auto length = static_cast<DWORD>(std::string(text).size());
        REQUIRE(length > 0);
        CHECK(RasGetErrorStringA(code, text, length + 1) == 0);
        text[0] = 'x';
        CHECK(RasGetErrorStringA(code, text, length) == ERROR_INSUFFICIENT_BUFFER);
        CHECK(text[0] == 'x');
    }
    char text[512];
    for (const UINT code : {0U, 5U, 87U, 599U, 900U, 0x80004005U})
        CHECK(RasGetErrorStringA(code, text, sizeof text) == ERROR_INVALID_PARAMETER);
    CHECK(RasGetErrorStringA(691, nullptr, 512) == ERROR_INVALID_PARAMETER);
    CHECK(RasGetErrorStringA(800, text, 512) == 0);
    CHECK(std::string(text).size() > 128);
}
