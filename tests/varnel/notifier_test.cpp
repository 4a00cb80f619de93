// The registry of dial attempts, and the notifier through which the service completes them.
#include "tests/kit/varnel_test.h"

#include <climits>
#include <future>
#include <thread>

namespace {

constexpr DWORD id = 77;
const HRASCONN conn = reinterpret_cast<HRASCONN>(5);

DWORD notify(long state, DWORD error = 0, DWORD error2 = 0) {
    return privates::rasDialFunc2(id, 1, conn, WM_RASDIALEVENT, static_cast<RASCONNSTATE>(state), error,
                                  error2);
}

bool isSet(const DIALUP_CALLBACK::ITEM& item) {
    return WaitForSingleObject(item.hEvent, 0) == WAIT_OBJECT_0;
}

} // namespace

TEST_CASE_METHOD(VarnelTest, "callback ids count up through the negative numbers and leave out 0") {
    struct {
        long last, next;
    } const steps[] = {{0, 1}, {41, 42}, {LONG_MAX, LONG_MIN}, {-2, -1}, {-1, 1}};
    for (const auto& step : steps) {
        privates::callbackIdIndex = step.last;
        CHECK(privates::getCallbackIdIndex() == step.next);
        CHECK(privates::callbackIdIndex == step.next);
    }
}

TEST_CASE_METHOD(VarnelTest, "an attempt lives in the registry, and on while somebody holds it") {
    DIALUP_CALLBACK registry;
    const auto first = registry.addItem(id);
    CHECK(first->callbackId == id);
    CHECK(first->hConn == nullptr);
    CHECK((first->error == 0 && first->error2 == 0));
    CHECK_FALSE(isSet(*first));

    const auto second = registry.addItem(id);
    CHECK(registry.findItem(id) == second);
    SetEvent(first->hEvent);
    CHECK(isSet(*first));
    CHECK(isSet(*first)); // it stays set
    CHECK_FALSE(isSet(*second));

    registry.addItem(id + 1);
    registry.removeItem(id);
    registry.removeItem(id);
    CHECK(registry.findItem(id) == nullptr);
    CHECK(registry.findItem(id + 1) != nullptr);
    registry.clearItems();
    CHECK(registry.findItem(id + 1) == nullptr);
}

TEST_CASE_METHOD(VarnelTest, "a notification ends an attempt by an error, a connection or a disconnection") {
    struct Case {
        long state;
        DWORD error, error2;
        DWORD answer, kept;
        Lines log;
    };
    const std::string about = "rasDialFunc2: callback id 77, state ";
    const Case cases[] = {
        {RASCS_Authenticate, 0, 0, 1, 0, {"3 " + about + "Authenticating..., error 0, erro2 0"}},
        {RASCS_Authenticate, 0, 7, 1, 0, {"2 " + about + "Authenticating..., error 0, error2 7"}},
        {RASCS_Connected,
         0,
         0,
         0,
         0,
         {"3 " + about + "Connection completed., error 0, erro2 0", "3 Connection completed."}},
        {RASCS_Connected,
         0,
         7,
         0,
         0,
         {"2 " + about + "Connection completed., error 0, error2 7", "3 Connection completed."}},
        {RASCS_Disconnected,
         0,
         0,
         0,
         617,
         {"3 " + about + "Disconnecting..., error 0, erro2 0", "3 Disconnecting..."}},
        {RASCS_Disconnected,
         629,
         0,
         0,
         629,
         {"2 " + about + "Disconnecting..., error 629, error2 0", "2 Error: 629 -  text of 629"}},
        {RASCS_Connected,
         645,
         9,
         0,
         645,
         {"2 " + about + "Connection completed., error 645, error2 9", "2 Error: 645 -  text of 645"}},
        {RASCS_AuthNotify,
         0xFFFFFFFF,
         0,
         0,
         0xFFFFFFFF,
         {"2 " + about + "Authentication notify., error 4294967295, error2 0",
          "2 Error: 4294967295 -  text of 4294967295"}},
    };
    for (const Case& c : cases) {
        const auto item = DIALUP_CALLBACK().addItem(id);
        forgetLog();
        CHECK(notify(c.state, c.error, c.error2) == c.answer);
        CHECK(log() == c.log);
        CHECK(trace() ==
              Lines{"3 ==>>VARNEL::rasDialFunc2(77)\n", "3 <<== VARNEL::rasDialFunc2(77),period = 0(ms)\n"});
        CHECK(item->error == c.kept);
        CHECK(item->error2 == c.error2);
        CHECK(item->hConn == conn);
        CHECK(isSet(*item) == (c.answer == 0));
    }
    DIALUP_CALLBACK().clearItems();
}

TEST_CASE_METHOD(VarnelTest, "a notification of an attempt that nobody waits for changes nothing") {
    CHECK(notify(RASCS_Connected) == 0);
    CHECK(log() == Lines{"3 rasDialFunc2: callback id 77, state Connection completed., error 0, erro2 0",
                         "2 Can't find item, callbackid 77"});
    CHECK(privates::items.empty());
}

TEST_CASE_METHOD(VarnelTest, "an error's text comes from the service, as far as it gives one") {
    DIALUP_CALLBACK().addItem(id);
    std::string expected;
    SECTION("a text without an end") {
        on<"RasGetErrorStringA">([](UINT, LPSTR text, DWORD room) {
            std::fill_n(text, room, 'x');
            return room == 256 ? DWORD{0} : DWORD{ERROR_INVALID_PARAMETER};
        });
        expected = std::string(255, 'x');
    }
    SECTION("no text") {
        on<"RasGetErrorStringA">([](UINT, LPSTR, DWORD) { return DWORD{ERROR_INVALID_PARAMETER}; });
    }
    CHECK(notify(RASCS_OpenPort, 691) == 0);
    CHECK(logged(2, "Error: 691 - " + expected));
    DIALUP_CALLBACK().clearItems();
}

TEST_CASE_METHOD(VarnelTest,
                 "no exception reaches the service, and the attempt gets its outcome all the same") {
    bool struck = true;
    for (long nth = 1; struck; ++nth) {
        const auto item = DIALUP_CALLBACK().addItem(id);
        Faults::plan(Fault{"int2stru", nth, false});
        CHECK(notify(RASCS_OpenPort, 691, 3) == 0);
        struck = Faults::struck();
        Faults::plan(std::nullopt);
        CHECK(isSet(*item));
        CHECK(item->error == 691);
        CHECK(nth < 20);
    }
    DIALUP_CALLBACK().clearItems();
}

TEST_CASE_METHOD(VarnelTest, "the registry is waited for with nothing that the system may refuse") {
    DIALUP_CALLBACK().addItem(id);
    std::promise<void> held;
    std::promise<void> enough;
    std::thread other([&] {
        const boost::recursive_mutex::scoped_lock locked(privates::itemsLock);
        held.set_value();
        enough.get_future().wait();
    });
    held.get_future().wait();
    bool isWaitedFor = false;
    clock.in(1, [&] {
        isWaitedFor = true;
        enough.set_value();
        other.join();
    });
    Faults::plan(Fault{"CreateEventA", 1, true});
    CHECK_NOTHROW(DIALUP_CALLBACK().removeItem(id));
    CHECK(isWaitedFor);
    if (!isWaitedFor) {
        enough.set_value();
        other.join();
    }
    CHECK(privates::items.empty());
}

TEST_CASE_METHOD(VarnelTest, "states have the names that the log knows them by, unknown ones their number") {
    const std::map<long, std::string> texts = {
        {0, "Opening port..."},
        {7, "Retrying authentication..."},
        {11, "Negoting speed..."},
        {13, "Retrying Authentication..."},
        {23, "Subentry disconnected."},
        {24, "Unknown Status=24"},
        {0x0FFF, "Unknown Status=4095"},
        {0x1000, "In Paused state: Interactive mode."},
        {0x1003, "In Paused state: Password has expired..."},
        {0x1004, "Unknown Status=4100"},
        {0x2001, "Disconnecting..."},
        {0x2002, "Unknown Status=8194"},
        {-1, "Unknown Status=4294967295"},
    };
    for (const auto& [state, text] : texts)
        CHECK(privates::getStateString(static_cast<RASCONNSTATE>(state)) == text);
}
