// Clearing what an earlier run of the host left behind.
#include "tests/kit/scripted_computer.h"
#include "tests/kit/varnel_test.h"

class StaleEntries : public VarnelTest {
  protected:
    ScriptedComputer computer;

    Lines entriesOf(const std::string& phoneBook) {
        Lines names;
        for (const ScriptedRas::Entry& entry : ras.phoneBooks[phoneBook])
            names.push_back(entry.name);
        return names;
    }
};

TEST_CASE_METHOD(StaleEntries, "the peers that have a folder lose connection, phonebook and entries") {
    const bool win6 = GENERATE(false, true);
    privates::isWin6Plus = win6;
    computer.makePeerFolder("p1");
    computer.makePeerFolder("p2");
    computer.makePeerFolder("no peer");
    computer.makePeerFolder("..x");
    ScriptedComputer::writeFile(computer.peersFolder + "\\p3", "a file");
    for (const char* name : {"p1 #0", "p3 #0", "other"})
        ras.connect(name);
    ras.phoneBooks[""] = {{"p1 #0"}, {"p2 #4"}, {"p3 #0"}, {"p10 #0"}};
    CHECK(privates::clearAllEntry());
    CHECK(ras.connections[0].hungUp);
    CHECK_FALSE(ras.connections[1].hungUp);
    CHECK_FALSE(ras.connections[2].hungUp);
    CHECK(told() == Lines{"p1", "p2"});
    const Lines all = {"p1 #0", "p2 #4", "p3 #0", "p10 #0"};
    CHECK(entriesOf("") == (win6 ? all : Lines{"p3 #0", "p10 #0"}));
    const Lines deleted = calls({"DeleteFileA"});
    const std::string one = "DeleteFileA(" + bookOf("p1") + ")";
    const std::string two = "DeleteFileA(" + bookOf("p2") + ")";
    CHECK(deleted == (win6 ? Lines{} : Lines{one, one, two, two}));
    CHECK(trace().front() == "1 ==>>VARNEL::clearAllEntry()\n");
    // All hang-ups and files before any entry.
    const Lines order = calls({"host told", "RasEnumEntriesA"});
    CHECK(order[1] == "host told(p2)");
}

TEST_CASE_METHOD(StaleEntries, "a host that only dials has nothing cleared, and nothing traced") {
    privates::onlyClient = true;
    CHECK(privates::clearAllEntry());
    CHECK(calls() == Lines{});
    CHECK(trace() == Lines{});
}

TEST_CASE_METHOD(StaleEntries, "a search that cannot be made, or breaks off, leaves everything") {
    computer.makePeerFolder("p1");
    ras.connect("p1 #0");
    SECTION("cannot be made") {
        on<"GetWorkingPath">([] { return std::string("C:\\nowhere"); });
    }
    SECTION("breaks off") {
        on<"FindNextFileA">([](HANDLE, LPWIN32_FIND_DATAA) {
            SetLastError(ERROR_NOT_READY);
            return FALSE;
        });
    }
    SECTION("too long a pattern") {
        on<"GetWorkingPath">([] { return std::string(258, 'x'); });
    }
    SECTION("no folder known") {
        on<"GetWorkingPath">([] { return std::string(); });
    }
    CHECK_FALSE(privates::clearAllEntry());
    CHECK(calls({"Ras", "DeleteFileA", "host"}) == Lines{});
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(StaleEntries, "the pattern has one backslash before its star, and may fill its room") {
    struct Case {
        std::string folder, pattern;
    };
    const std::string longest(257, 'x');
    const Case c = GENERATE_COPY(Case{"C:\\work", "C:\\work\\*"}, Case{"C:\\work\\", "C:\\work\\*"},
                                 Case{longest, longest + "\\*"});
    on<"GetWorkingPath">([&] { return c.folder; });
    on<"FindFirstFileA">([](LPCSTR, LPWIN32_FIND_DATAA) { return INVALID_HANDLE_VALUE; });
    CHECK_FALSE(privates::clearAllEntry());
    CHECK(calls() == Lines{"FindFirstFileA(" + c.pattern + ")"});
}

TEST_CASE_METHOD(StaleEntries, "a failed hang-up does not keep the rest from being cleared") {
    computer.makePeerFolder("p1");
    ras.phoneBooks[""] = {{"p1 #0"}};
    whenRasAnswers("RasEnumConnectionsA", {711});
    CHECK(privates::clearAllEntry());
    CHECK(entriesOf("") == Lines{});
}

TEST_CASE_METHOD(StaleEntries, "without peers nothing but the search is done") {
    CHECK(privates::clearAllEntry());
    CHECK(calls({"RasEnumConnections", "RasHangUp", "RasDelete", "DeleteFile", "host"}) == Lines{});
}
