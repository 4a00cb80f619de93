// Connections as they are listed, shared and looked at.
#include "tests/standin/ras_kit.h"

#include <catch2/catch.hpp>

#include <cstring>
#include <memory>
#include <thread>

using namespace standin_test;

namespace {

constexpr char onePeer[] = "[10.1.1.1]\naddress = 10.9.0.2\nserver-address = 10.9.0.1\n";

struct Enumeration {
    DWORD result;
    DWORD bytes;
    DWORD count;
    std::vector<char> buffer;
};

// Enumerates into a buffer of `room` bytes whose first record says `size`; the bytes behind it stay 'x'.
Enumeration enumerate(DWORD size, DWORD room) {
    Enumeration all{0, room, MAXDWORD, std::vector<char>(4096, 'x')};
    std::memcpy(all.buffer.data(), &size, sizeof size);
    all.result = RasEnumConnectionsA(reinterpret_cast<RASCONNA*>(all.buffer.data()), &all.bytes, &all.count);
    return all;
}

void connect(Dial& dial) {
    REQUIRE(dial.waitForEnd().back() == std::pair(RASCS_Connected, DWORD{0}));
}

} // namespace

TEST_CASE("connections are listed in the order in which they came to stand") {
    const Computer computer(
        "[service]\nlatency = 1\nhang-up-linger = 1\n[10.1.1.1]\n[10.1.1.2]\nlatency = 150\n");
    computer.addEntry("slow", "10.1.1.2");
    computer.addEntry("quick");
    computer.addEntry("last");
    Dial slow(computer, "slow");
    Dial quick(computer, "quick");
    connect(quick);
    CHECK(connectedEntries() == std::vector<std::string>{"quick"});
    connect(slow);
    Dial last(computer, "last");
    connect(last);
    CHECK(connectedEntries() == std::vector<std::string>{"quick", "slow", "last"});
}

TEST_CASE("if wanted, connections still being dialled are listed behind those that stand") {
    const Computer computer("[service]\nlist-dialing = yes\nhang-up-linger = 1\n"
                            "[10.1.1.1]\n[10.1.1.2]\nbehaviour = never-answers\n");
    computer.addEntry("dialling", "10.1.1.2");
    computer.addEntry("standing");
    Dial first(computer, "dialling");
    Dial second(computer, "standing");
    connect(second);
    CHECK(connectedEntries() == std::vector<std::string>{"standing", "dialling"});
}

TEST_CASE("a dial of a connected entry joins its connection") {
    const Computer computer(onePeer);
    computer.addEntry("a");
    Dial first(computer, "a");
    connect(first);
    Dial second(computer, "a");
    REQUIRE(second.result == 0);
    CHECK(second.handle == first.handle);
    CHECK(second.waitForEnd() == Dial::Heard{{RASCS_Connected, 0}});
    CHECK(connectedEntries().size() == 1);

    CHECK(RasHangUpA(second.handle) == 0);
    CHECK(statusOf(first.handle).state == RASCS_Connected);
    CHECK(RasHangUpA(first.handle) == 0);
    CHECK(isGoneInTime(first.handle));
}

TEST_CASE("an entry that is being dialled cannot be dialled") {
    const Computer computer("[10.1.1.1]\nbehaviour = never-answers\n");
    computer.addEntry("a");
    Dial first(computer, "a");
    Dial second(computer, "A");
    CHECK(second.result == ERROR_DIAL_ALREADY_IN_PROGRESS);
    CHECK(second.handle == nullptr);
    CHECK(second.heard().empty());
}

TEST_CASE("records are listed in the size of the caller's generation") {
    const Computer computer(onePeer);
    computer.addEntry("a");
    computer.addEntry("b");
    Dial first(computer, "a");
    connect(first);
    Dial second(computer, "b");
    connect(second);

    const DWORD size = GENERATE(as<DWORD>(), 696, 708, 724);
    const Enumeration all = enumerate(size, 4096);
    CHECK(all.result == 0);
    CHECK(all.count == 2);
    CHECK(all.bytes == 2 * size);
    for (DWORD i = 0; i < 2; ++i) {
        RASCONNA connection{};
        std::memcpy(&connection, all.buffer.data() + i * size, connSize);
        CHECK(connection.dwSize == size);
        CHECK(connection.hrasconn == (i == 0 ? first : second).handle);
        CHECK(std::string(connection.szEntryName) == (i == 0 ? "a" : "b"));
        CHECK(std::string(connection.szDeviceType) == "vpn");
        CHECK(std::string(connection.szPhonebook) == computer.phonebook());
        CHECK(connection.dwSubEntry == 1);
        CHECK(connection.guidEntry.Data1 != 0);
    }
    CHECK(std::string(all.buffer.data() + size + connSize, size - connSize) ==
          std::string(size - connSize, '\0'));
    CHECK(all.buffer[2 * size] == 'x');
}

TEST_CASE("room and size of an enumeration are checked") {
    const Computer computer(onePeer);
    computer.addEntry("a");
    DWORD bytes = 0, count = 7;
    CHECK(RasEnumConnectionsA(nullptr, &bytes, &count) == 0);
    CHECK(count == 0);
    CHECK(enumerate(connSize, connSize).count == 0);
    CHECK(enumerate(connSize + 1, 4096).result == ERROR_INVALID_SIZE);

    Dial dial(computer, "a");
    connect(dial);
    CHECK(RasEnumConnectionsA(nullptr, nullptr, &count) == ERROR_INVALID_PARAMETER);
    CHECK(RasEnumConnectionsA(nullptr, &bytes, nullptr) == ERROR_INVALID_PARAMETER);
    CHECK(RasEnumConnectionsA(nullptr, &bytes, &count) == ERROR_BUFFER_TOO_SMALL);
    CHECK(bytes >= connSize);
    CHECK(count == 1);
    for (const DWORD room : {DWORD{0}, connSize - 1}) {
        const Enumeration tight = enumerate(connSize, room);
        CHECK(tight.result == ERROR_BUFFER_TOO_SMALL);
        CHECK(tight.bytes == connSize);
        CHECK(tight.buffer[4] == 'x');
    }
    CHECK(enumerate(0, 0).result == ERROR_INVALID_SIZE);
    CHECK(enumerate(connSize - 1, 4096).result == ERROR_INVALID_SIZE);
    CHECK(enumerate(connSize, connSize).result == 0);
}

TEST_CASE("the status is given in the size of the caller's generation") {
    const Computer computer(onePeer);
    computer.addEntry("a");
    Dial dial(computer, "a");
    connect(dial);
    std::vector<char> room(400, 'x');
    auto* status = reinterpret_cast<RASCONNSTATUSA*>(room.data());
    status->dwSize = 332;
    CHECK(RasGetConnectStatusA(dial.handle, status) == 0);
    CHECK(status->dwSize == 332);
    CHECK(std::string(status->szDeviceType) == "vpn");
    CHECK(std::string(room.data() + statusSize, 332 - statusSize) == std::string(332 - statusSize, '\0'));
    CHECK(room[332] == 'x');
    status->dwSize = 289;
    CHECK(RasGetConnectStatusA(dial.handle, status) == ERROR_INVALID_SIZE);
    CHECK(RasGetConnectStatusA(dial.handle, nullptr) == ERROR_INVALID_PARAMETER);
    CHECK(statusOf(nullptr).result == ERROR_INVALID_HANDLE);
}

TEST_CASE("the addresses of a link are known once they are agreed") {
    const Computer computer(std::string(onePeer) + "[10.1.1.2]\nbehaviour = never-answers\n" +
                            "[10.1.1.3]\naddress = none\n[10.1.1.4]\nserver-address = none\n");
    for (int i = 1; i <= 4; ++i)
        computer.addEntry(std::to_string(i), "10.1.1." + std::to_string(i));
    RASPPPIPA addresses{};
    addresses.dwSize = pppIpSize;
    DWORD bytes = pppIpSize;

    Dial dial(computer, "1");
    connect(dial);
    SECTION("in full") {
        CHECK(RasGetProjectionInfoA(dial.handle, RASP_PppIp, &addresses, &bytes) == 0);
        CHECK(std::string(addresses.szIpAddress) == "10.9.0.2");
        CHECK(std::string(addresses.szServerIpAddress) == "10.9.0.1");
        CHECK(addresses.dwError == 0);
    }
    SECTION("in an older record") {
        std::memset(&addresses, 'x', sizeof addresses);
        addresses.dwSize = 24;
        CHECK(RasGetProjectionInfoA(dial.handle, RASP_PppIp, &addresses, &bytes) == 0);
        CHECK(bytes == 24);
        CHECK(std::string(addresses.szIpAddress) == "10.9.0.2");
        CHECK(addresses.szServerIpAddress[0] == 'x');
    }
    SECTION("not into too little room, nor for what cannot be asked") {
        bytes = pppIpSize - 1;
        CHECK(RasGetProjectionInfoA(dial.handle, RASP_PppIp, &addresses, &bytes) == ERROR_BUFFER_TOO_SMALL);
        CHECK(bytes == pppIpSize);
        CHECK(RasGetProjectionInfoA(dial.handle, RASP_PppIp, nullptr, &bytes) == ERROR_BUFFER_TOO_SMALL);
        CHECK(RasGetProjectionInfoA(dial.handle, RASP_PppIp, &addresses, nullptr) == ERROR_INVALID_PARAMETER);
        CHECK(RasGetProjectionInfoA(dial.handle, RASP_PppCcp, &addresses, &bytes) ==
              ERROR_PROTOCOL_NOT_CONFIGURED);
        CHECK(RasGetProjectionInfoA(nullptr, RASP_PppIp, &addresses, &bytes) == ERROR_INVALID_HANDLE);
        addresses.dwSize = 47;
        CHECK(RasGetProjectionInfoA(dial.handle, RASP_PppIp, &addresses, &bytes) == ERROR_INVALID_SIZE);
    }
    SECTION("not while dialling") {
        Dial dialling(computer, "2");
        CHECK(RasGetProjectionInfoA(dialling.handle, RASP_PppIp, &addresses, &bytes) ==
              ERROR_PROJECTION_NOT_COMPLETE);
    }
    SECTION("not when none were agreed") {
        Dial without(computer, "3");
        connect(without);
        CHECK(RasGetProjectionInfoA(without.handle, RASP_PppIp, &addresses, &bytes) ==
              ERROR_PROTOCOL_NOT_CONFIGURED);
    }
    SECTION("without the server's, when it does not send its own") {
        Dial shy(computer, "4");
        connect(shy);
        CHECK(RasGetProjectionInfoA(shy.handle, RASP_PppIp, &addresses, &bytes) == 0);
        CHECK(std::string(addresses.szServerIpAddress).empty());
    }
}

TEST_CASE("64 threads dial 64 entries at once") {
    constexpr int count = 64;
    const Computer computer("[service]\nlatency = 20\nhang-up-linger = 1\n[10.1.1.1]\n");
    for (int i = 0; i < count; ++i)
        computer.addEntry("peer" + std::to_string(i));
    std::vector<std::unique_ptr<Dial>> dials;
    for (int i = 0; i < count; ++i)
        dials.push_back(std::make_unique<Dial>());
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            dials[static_cast<std::size_t>(i)]->start(computer, dialParams("peer" + std::to_string(i)));
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& dial : dials) {
        REQUIRE(dial->result == 0);
        connect(*dial);
        CHECK(statusOf(dial->handle).state == RASCS_Connected);
    }
    CHECK(connectedEntries().size() == count);
}
