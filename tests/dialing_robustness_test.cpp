// What holds of every dial-up: no password left, no exception that leaves something open, no text that nobody
// wants, and no peer in the way of another.
#include "tests/kit/varnel_test.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <set>
#include <thread>

// The parameters lie on the stack of the call that has just returned: they are read before anything
// overwrites them.
TEST_CASE_METHOD(VarnelTest, "no dial leaves the password behind") {
    static volatile char left[257];
    static const volatile char* field;
    before<"RasDialA">([](LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, DWORD, LPVOID, LPHRASCONN) {
        field = params->szPassword;
    });
    const std::vector<std::vector<ScriptedRas::Dial>> ways = {
        {connects()}, {fails(691)}, {refused(633)}, {refused(756), connects()}, {refused(756), fails(691)}};
    const auto way = GENERATE_REF(from_range(ways));
    ras.dials.assign(way.begin(), way.end());
    const std::string password = "long enough to be known again";
    field = nullptr;
    privates::dialUp2(peer, password, true, false, 1);
    for (std::size_t i = 0; i < sizeof left; ++i)
        left[i] = field[i];
    std::string found;
    for (std::size_t i = 0; i < sizeof left; ++i)
        found += left[i];
    CHECK(found.find("enough") == std::string::npos);
}

TEST_CASE_METHOD(VarnelTest, "an exception that passes through finds everything released") {
    const std::vector<std::vector<ScriptedRas::Dial>> ways = {
        {connects()}, {fails(691)}, {connectsButReports(629), connects()}, {refused(756), fails(691)}};
    const auto way = GENERATE_REF(from_range(ways));
    const std::string function =
        GENERATE(as<std::string>(), "int2stru", "ip2string", "CheckIdFormat", "GetPrivateConfigPathName");
    privates::isWin6Plus = true;
    bool struck = true;
    for (long nth = 1; struck; ++nth) {
        INFO(function << ", call " << nth);
        REQUIRE(nth < 100);
        ras.dials.assign(way.begin(), way.end());
        Faults::plan(Fault{function, nth, false});
        try {
            dialOnce(inPublicBook);
        } catch (const std::bad_alloc&) {
            checkHandles(1);
        }
        struck = Faults::struck();
        Faults::plan(std::nullopt);
        VARNEL::dialDown(peer);
    }
}

TEST_CASE_METHOD(VarnelTest, "with logging off no text is built, and the traces are still handed over") {
    LOG::level = 0;
    whenRasDials({refused(633), refused(633)});
    CHECK(dial() == 633);
    CHECK(timesCalled<"int2stru">() == 0);
    whenRasDials({connects()});
    CHECK(dial() == 0);
    CHECK(timesCalled<"int2stru">() == ras.answers.size()); // each names its callback id in its trace
    CHECK(log() == Lines{});
    CHECK(trace().front() == "3 ==>>VARNEL::dialUp(" + peer + " ip 10.0.0.1)\n");
}

TEST_CASE_METHOD(VarnelTest, "several peers are dialled at once") {
    constexpr int threads = 6;
    constexpr int rounds = 4;
    clock.useRealTime();
    std::mutex lock;
    std::set<ULONG_PTR> callbackIds;
    before<"RasDialA">([&](LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, DWORD, LPVOID, LPHRASCONN) {
        const std::scoped_lock locked(lock);
        callbackIds.insert(params->dwCallbackId);
    });
    std::atomic<int> connected = 0;
    std::vector<std::thread> hosts;
    for (int i = 0; i < threads; ++i)
        hosts.emplace_back([&, id = peer + "x" + std::to_string(i)] {
            for (int round = 0; round < rounds; ++round) {
                connected += VARNEL::dialUp(id, "secret", false, true, 1) == 0;
                connected += VARNEL::getCurrentEntryNameById("nobody").empty();
                VARNEL::dialDown(id);
            }
        });
    for (std::thread& host : hosts)
        host.join();
    CHECK(connected == 2 * threads * rounds);
    CHECK(callbackIds.size() == threads * rounds);
    CHECK(told().size() == threads * rounds);
    Lines failures = log(2);
    std::erase(failures, "2 Wait RasPbFile return 258"); // one probe meets another
    CHECK(failures == Lines{});
}
