// Which entries have an active connection.
#include "tests/kit/varnel_test.h"

#include <raserror.h>

class Status : public VarnelTest {
  protected:
    Lines active() {
        const auto names = privates::getAllActiveEntry();
        return {names.begin(), names.end()};
    }
};

TEST_CASE_METHOD(Status,
                 "a peer's current entry is that of the first of three connections that is the peer's") {
    for (const char* name : {"other #0", "Node #3", "node #4", "last #0"})
        ras.connect(name);
    CHECK(VARNEL::getCurrentEntryNameById("NODE") == "Node #3");
    CHECK(trace() == Lines{"3 ==>>VARNEL::getCurrentEntryNameById(NODE)\n",
                           "3 <<== VARNEL::getCurrentEntryNameById(NODE),period = 0(ms)\n"});
    CHECK(VARNEL::getCurrentEntryNameById("last") == "");
    CHECK(VARNEL::getCurrentEntryNameById("nobody") == "");
    CHECK(log() == Lines{});
    CHECK(heap.lastSize() == 178'176);
    CHECK(heap.lastFlags() == 0);
}

TEST_CASE_METHOD(Status, "an empty id has no entry, and the service is not asked") {
    CHECK(VARNEL::getCurrentEntryNameById("") == "");
    CHECK_FALSE(privates::getEntryStatus(""));
    CHECK(calls() == Lines{});
    CHECK(trace().size() == 2);
}

TEST_CASE_METHOD(Status, "all connections of peers are active entries, in lower case") {
    Lines expected;
    for (int i = 0; i < 256; ++i) {
        ras.connect("Node" + std::to_string(i) + " #0");
        expected.push_back("node" + std::to_string(i) + " #0");
    }
    ras.connections[1].entryName = "..";
    expected.erase(expected.begin() + 1);
    CHECK(active() == expected);
    CHECK(privates::getEntryStatus("NODE255"));
    CHECK_FALSE(privates::getEntryStatus("node256"));
    ras.connect("one too many");
    CHECK(active() == Lines{});
    CHECK(log() == Lines{"2 RasEnumConnections fail, error 603"});
}

TEST_CASE_METHOD(Status, "an enumeration that fails leaves nothing active") {
    ras.connect("node #0");
    whenRasAnswers("RasEnumConnectionsA", {711, 711, 711});
    CHECK(VARNEL::getCurrentEntryNameById("node") == "");
    CHECK(active() == Lines{});
    CHECK_FALSE(privates::getEntryStatus("node"));
    CHECK(log() == Lines(3, "2 RasEnumConnections fail, error 711"));
}

TEST_CASE_METHOD(Status,
                 "connections whose names have no end, and a count too great, are read as far as they go") {
    const std::string name(256, 'n');
    for (int i = 0; i < 256; ++i)
        ras.connect(std::string(300, 'n'));
    const auto enumerate = current<"RasEnumConnectionsA">();
    on<"RasEnumConnectionsA">([=](LPRASCONNA first, LPDWORD size, LPDWORD count) {
        const DWORD code = enumerate(first, size, count);
        *count = 1'000;
        return code;
    });
    on<"CheckIdFormat">([](const auto&...) { return true; });
    CHECK(VARNEL::getCurrentEntryNameById(name) == name);
    CHECK(active() == Lines(256, name));
}
