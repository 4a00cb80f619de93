// What several processes see of each other's connections.
#include "tests/standin/ras_kit.h"

#include <catch2/catch.hpp>

#include <cstring>
#include <fstream>

using namespace standin_test;

namespace {

// The test's phonebook in the folder that the parent has set.
std::string inheritedPhonebook() {
    char folder[MAX_PATH]{};
    GetEnvironmentVariableA("STANDIN_RAS_FOLDER", folder, MAX_PATH);
    return std::string(folder) + "\\test.pbk";
}

DWORD dialInherited(const std::string& entry, HRASCONN& handle) {
    RASDIALPARAMSA params = dialParams(entry);
    return RasDialA(nullptr, inheritedPhonebook().c_str(), &params, 0, nullptr, &handle);
}

DWORD CALLBACK signalAtDevice(ULONG_PTR, DWORD, HRASCONN, UINT, RASCONNSTATE state, DWORD, DWORD) {
    if (state == RASCS_ConnectDevice)
        Child::signalParent();
    return 1;
}

HRASCONN onlyConnection() {
    RASCONNA connection{};
    connection.dwSize = sizeof connection;
    DWORD bytes = sizeof connection, count = 0;
    CHECK(RasEnumConnectionsA(&connection, &bytes, &count) == 0);
    CHECK(count == 1);
    return connection.hrasconn;
}

} // namespace

TEST_CASE("child: connects and ends", "[.]") {
    HRASCONN handle = nullptr;
    REQUIRE(dialInherited("a", handle) == 0);
}

TEST_CASE("child: dials until it is hung up", "[.]") {
    RASDIALPARAMSA params = dialParams("a");
    HRASCONN handle = nullptr;
    REQUIRE(RasDialA(nullptr, inheritedPhonebook().c_str(), &params, 2,
                     reinterpret_cast<void*>(&signalAtDevice), &handle) == 0);
    REQUIRE(isGoneInTime(handle));
}

TEST_CASE("child: waits in the middle of writing", "[.]") {
    const HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, "RasPbFile");
    REQUIRE(WaitForSingleObject(mutex, patience) == WAIT_OBJECT_0);
    writeText(inheritedPhonebook() + ".tmp", "[half\r\n");
    Child::signalParent();
    Child::waitForParent();
}

TEST_CASE("a connection outlives its process and is everybody's") {
    const Computer computer("[10.1.1.1]\n");
    computer.addEntry("a");
    const Child child("child: connects and ends");
    REQUIRE(child.exitCode() == 0);
    CHECK(connectedEntries() == std::vector<std::string>{"a"});
    const HRASCONN handle = onlyConnection();
    CHECK(statusOf(handle).state == RASCS_Connected);

    Dial joined(computer, "a");
    CHECK(joined.handle == handle);
    CHECK(RasHangUpA(handle) == 0);
    CHECK(statusOf(handle).state == RASCS_Connected);
    CHECK(RasHangUpA(handle) == 0);
    CHECK(isGoneInTime(handle));
}

TEST_CASE("a dial is hung up from another process") {
    const Computer computer("[service]\nlist-dialing = yes\nhang-up-linger = 1\n"
                            "[10.1.1.1]\nbehaviour = never-answers\n");
    computer.addEntry("a");
    const Child child("child: dials until it is hung up");
    REQUIRE(child.isReadyInTime());
    CHECK(RasHangUpA(onlyConnection()) == 0);
    CHECK(child.exitCode() == 0);
}

TEST_CASE("a dial ends with its process") {
    const Computer computer("[service]\nlist-dialing = yes\n[10.1.1.1]\nbehaviour = never-answers\n");
    computer.addEntry("a");
    const Child child("child: dials until it is hung up");
    REQUIRE(child.isReadyInTime());
    CHECK(connectedEntries().size() == 1);
    CHECK(Dial(computer, "a").result == ERROR_DIAL_ALREADY_IN_PROGRESS);
    child.kill();
    CHECK(connectedEntries().empty());
    CHECK(Dial(computer, "a").result == 0);
}

TEST_CASE("the first dials are counted across processes") {
    const Computer computer("[10.1.1.1]\nbehaviour = busy 1\n");
    computer.addEntry("a");
    CHECK(Dial(computer, "a").result == ERROR_DIAL_ALREADY_IN_PROGRESS);
    CHECK(Child("child: connects and ends").exitCode() == 0);
}

TEST_CASE("a writer that dies in the middle harms nothing") {
    const Computer computer("[10.1.1.1]\n");
    computer.addEntry("a");
    const std::string before = readText(computer.phonebook());
    const Child child("child: waits in the middle of writing");
    REQUIRE(child.isReadyInTime());
    child.kill();

    // Its mutex is abandoned now, and its unfinished file lies there.
    CHECK(Dial(computer, "a").result == 0);
    CHECK(readText(computer.phonebook()) == before);
    computer.addEntry("b");
    CHECK(readText(computer.phonebook()).starts_with(before));
    CHECK(readText(computer.phonebook()).ends_with("TryNextAlternateOnFail=1\r\n\r\n"));
    CHECK(GetFileAttributesA((computer.phonebook() + ".tmp").c_str()) == INVALID_FILE_ATTRIBUTES);
}

TEST_CASE("child: writes without end", "[.]") {
    Child::signalParent();
    for (unsigned i = 0;; ++i) {
        RASENTRYA entry = pptpEntry("10.1.1." + std::to_string(i % 200));
        REQUIRE(RasSetEntryPropertiesA(inheritedPhonebook().c_str(), "a", &entry, entrySize, nullptr, 0) ==
                0);
    }
}

TEST_CASE("a phonebook is whole at whatever moment its writer is killed") {
    const Computer computer;
    computer.addEntry("a");
    computer.addEntry("b");
    const std::size_t length = readText(computer.phonebook()).size();
    for (const DWORD moment : {0UL, 3UL, 7UL, 12UL}) {
        const Child child("child: writes without end");
        REQUIRE(child.isReadyInTime());
        Sleep(moment);
        child.kill();
        const std::string text = readText(computer.phonebook());
        CHECK(text.size() <= length + 2);
        CHECK(text.size() >= length - 2);
        CHECK(text.ends_with("TryNextAlternateOnFail=1\r\n\r\n"));
        computer.addEntry("b");
    }
}

TEST_CASE("a restart of the computer ends all connections") {
    const Computer computer("[10.1.1.1]\n");
    computer.addEntry("a");
    Dial dial(computer, "a");
    dial.waitForEnd();
    {
        // The uptime of the last use, at offset 8 of the table: one that this computer will not reach soon.
        std::fstream table(computer.path("connections.bin"), std::ios::binary | std::ios::in | std::ios::out);
        const long long later = 1LL << 50;
        table.seekp(8).write(reinterpret_cast<const char*>(&later), sizeof later);
        REQUIRE(table.good());
    }
    CHECK(connectedEntries().empty());
    CHECK(statusOf(dial.handle).result == ERROR_INVALID_HANDLE);
    dial.handle = nullptr;
    Dial again(computer, "a");
    CHECK(again.waitForEnd().back() == std::pair(RASCS_Connected, DWORD{0}));
}
