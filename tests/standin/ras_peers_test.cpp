// peers.ini: how it is read, and what is said of mistakes in it.
#include "tests/standin/ras_kit.h"

#include <catch2/catch.hpp>

#include <cstdio>

#include <fcntl.h>
#include <io.h>

using namespace standin_test;

namespace {

// Catches what goes to standard error while it lives.
class StandardError {
  public:
    explicit StandardError(std::string file) : path(std::move(file)), former(_dup(2)) {
        const int target = _open(path.c_str(), _O_CREAT | _O_TRUNC | _O_WRONLY, 0600);
        _dup2(target, 2);
        _close(target);
    }
    ~StandardError() {
        if (former != -1)
            text();
    }
    std::string text() {
        std::fflush(stderr);
        _dup2(former, 2);
        _close(former);
        former = -1;
        return readText(path);
    }

  private:
    std::string path;
    int former;
};

DWORD dialResult(const Computer& computer) {
    Dial dial(computer, "a");
    return dial.result;
}

} // namespace

TEST_CASE("a mistake in the file is said with its line, and nothing is dialled") {
    const auto [text, line, complaint] = GENERATE(table<std::string, int, std::string>({
        {"[service]\nport = 3\n", 2, "unknown key \"port\""},
        {"[service]\nports = 1001\n", 2, "\"1001\" is not a number from 0 to 1000"},
        {"[service]\nlatency = -1\n", 2, "\"-1\" is not a number"},
        {"[service]\n; a remark\n\nrunning = maybe\n", 4, "\"maybe\" is neither yes nor no"},
        {"[service]\n[10.1.1.1]\nbehaviour = accept\n", 3, "unknown behaviour \"accept\""},
        {"[service]\n[10.1.1.1]\nbehaviour = fails 651 at Home\n", 3, "unknown state \"Home\""},
        {"[service]\n[10.1.1.1]\nbehaviour = fails 651\n", 3, "\"at\" is missing"},
        {"[service]\n[10.1.1.1]\nbehaviour = busy\n", 3, "\"\" is not a number"},
        {"[service]\n[10.1.1.1]\nbehaviour = refuses today\n", 3, "unexpected \"today\""},
        {"[service]\n[10.1.1.1]\naccount = user secret\n", 3, "USER:PASSWORD"},
        {"[service]\n[10.1.1.1]\nlatency = 1\nlatency = 2\n", 4, "a second time"},
        {"[service]\n[10.1.1.1]\n[10.1.1.1]\n", 3, "a second time"},
        {"latency = 1\n[service]\n", 1, "outside any section"},
        {"[service]\nnonsense\n", 2, "neither a section, a key nor a remark"},
    }));
    const Computer computer;
    computer.addEntry("a");
    computer.describe(text);
    StandardError said(computer.path("stderr.txt"));
    const DWORD first = dialResult(computer);
    const DWORD second = dialResult(computer);
    const std::string spoken = said.text();
    CHECK(first == ERROR_RASMAN_CANNOT_INITIALIZE);
    CHECK(second == ERROR_RASMAN_CANNOT_INITIALIZE);
    const std::string start = computer.path("peers.ini") + ":" + std::to_string(line) + ": ";
    CHECK_THAT(spoken, Catch::StartsWith(start) && Catch::Contains(complaint));
    CHECK(spoken.find(start, 1) == std::string::npos);
    CHECK(spoken.find("secret") == std::string::npos);
}

TEST_CASE("a changed file is read afresh") {
    const Computer computer("[service]\nrunning = no\n");
    computer.addEntry("a");
    CHECK(dialResult(computer) == ERROR_RASMAN_CANNOT_INITIALIZE);
    DWORD bytes = 0, count = 0;
    CHECK(RasEnumConnectionsA(nullptr, &bytes, &count) == ERROR_RASMAN_CANNOT_INITIALIZE);
    computer.describe("[10.1.1.1]\nbehaviour = refuses\n");
    Dial refused(computer, "a");
    CHECK(refused.waitForEnd().back().second == ERROR_AUTHENTICATION_FAILURE);
    computer.describe("[10.1.1.1]\nbehaviour = accepts\n");
    Dial accepted(computer, "a");
    CHECK(accepted.waitForEnd().back().second == 0);
}

TEST_CASE("the peers may be described in another file, or nowhere") {
    const Computer computer("[10.1.1.1]\nbehaviour = refuses\n");
    computer.addEntry("a");
    writeText(computer.path("other.ini"),
              "# hand-written\r\n\r\n[10.1.1.9]\r\n[10.1.1.1]\r\n  latency=0  \r\n");
    SetEnvironmentVariableA("STANDIN_RAS_PEERS", computer.path("other.ini").c_str());
    const DWORD described = dialResult(computer);
    Dial connected(computer, "a");
    const auto outcome = connected.waitForEnd().back();
    SetEnvironmentVariableA("STANDIN_RAS_PEERS", computer.path("none.ini").c_str());
    Computer another;
    another.addEntry("a");
    Dial unreachable(another, "a");
    const auto elsewhere = unreachable.waitForEnd().back();
    SetEnvironmentVariableA("STANDIN_RAS_PEERS", nullptr);
    CHECK(described == 0);
    CHECK(outcome == std::pair(RASCS_Connected, DWORD{0}));
    CHECK(elsewhere == std::pair(RASCS_ConnectDevice, DWORD{800}));
}

TEST_CASE("the example is right") {
    const Computer computer;
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    const std::string folder = std::string(program).substr(0, std::string(program).rfind('\\'));
    computer.describe(readText(folder + "\\peers.example.ini"));
    computer.addEntry("a", "203.0.113.7");
    Dial dial(computer, dialParams("a", "node8", "another secret"));
    REQUIRE(dial.result == 0);
    CHECK(dial.waitForEnd().back() == std::pair(RASCS_Connected, DWORD{0}));
}
