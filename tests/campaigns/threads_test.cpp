// Many threads of a host dial, hang up and ask at once, while notifications come early, late, twice or never,
// and the host ends the library's work in the middle of hang-ups. Each dial gets its own outcome, names and
// ids stay unique, nobody is told after the end, and nothing is left.
#include "busy_ras.h"
#include "campaign.h"
#include "lies.h"
#include "tests/kit/varnel_test.h"
#include "watchdog.h"

#include <climits>

namespace {

constexpr std::size_t hosts = 64;
constexpr std::size_t cleaner = hosts; // its number as a thread
constexpr std::chrono::seconds patience{30};
constexpr DWORD tellingPause = 100; // ms that the library waits before it tells the host
constexpr DWORD firstOutcome = 10'000;
constexpr DWORD tooLate = 9'999; // the outcome of attempts that nobody waits for any more
constexpr long idsBeforeWrap = 200;
constexpr std::size_t closedHandlesKept = 4096;

// Where threads pause that are about to tell the host. While the host ends the library's work they stay
// there.
class Tellers {
  public:
    void pause();
    // The calling thread has come back from the library.
    void back();
    // Holds the tellers, lets `clean` run, and waits until those that were held have come back untold.
    template<class CLEAN>
    void whileHeld(CLEAN clean);
    // Called for the host.
    void told();

  private:
    std::mutex lock;
    std::condition_variable changed;
    bool held = false;
    bool ended = false; // and not yet begun again
    int paused = 0;
    int telling = 0; // past the pause, and not yet back
    static inline thread_local bool tells = false;
};

void Tellers::pause() {
    std::unique_lock locked(lock);
    if (std::exchange(tells, false))
        --telling;
    ++paused;
    changed.notify_all();
    changed.wait(locked, [this] { return !held; });
    --paused;
    ++telling;
    tells = true;
}

void Tellers::back() {
    const std::scoped_lock locked(lock);
    if (std::exchange(tells, false))
        --telling;
    changed.notify_all();
}

void Tellers::told() {
    const std::scoped_lock locked(lock);
    expect(!ended, "the host is told after the end");
}

template<class CLEAN>
void Tellers::whileHeld(CLEAN clean) {
    std::unique_lock locked(lock);
    held = true;
    changed.wait(locked, [this] { return telling == 0; });
    changed.wait_for(locked, std::chrono::milliseconds(50), [this] { return paused > 2; });
    locked.unlock();
    clean();
    locked.lock();
    ended = true;
    held = false;
    changed.notify_all();
    changed.wait(locked, [this] { return paused == 0 && telling == 0; });
    ended = false;
}

Tellers* tellers = nullptr;

void tellHost(const std::string& id) {
    expect(id == BusyRas::peerOfThread(), "a hang-up is told on another thread, or of another peer");
    tellers->told();
}

} // namespace

class Threads : public VarnelTest {
  public:
    Threads(const Campaign& campaign_, long firstId);
    ~Threads() {
        tellers = nullptr;
        for (const HANDLE handle : closed)
            CloseHandle(handle);
    }

    // Runs all threads for a time; how many operations they made.
    unsigned long run(std::chrono::milliseconds length);

  private:
    void host(std::size_t number);
    void operate(Plan& plan, std::size_t number, DWORD choice);
    void dialUp(Plan& plan, std::size_t number);
    void dialDown(const Plan& plan, std::size_t number);
    void ask(const Plan& plan, std::size_t number);
    void nameEntry(std::size_t number);
    void endAndBeginAgain();
    void keepClosed(HANDLE handle);

    const Campaign& campaign;
    Tellers theTellers;
    BusyRas busyRas;
    Watchdog watchdog{campaign, patience};
    std::atomic<bool> over = false;
    std::atomic<unsigned long> operations = 0;
    std::atomic<DWORD> lastOutcome = firstOutcome;

    std::mutex lock;
    std::set<std::string> names;
    std::deque<HANDLE> closed;
};

Threads::Threads(const Campaign& campaign_, long firstId) : campaign(campaign_) {
    Watchdog::noteImports();
    tellers = &theTellers;
    privates::callbackIdIndex = firstId;
    privates::pptpsrvDialDownCallback = &tellHost;
    privates::onlyClient = true; // clean() looks for no folders
    LOG::level = 0;
    on<"Sleep">([](DWORD ms) { ms == tellingPause ? tellers->pause() : Sleep(ms / 1000); });
    on<"GetTickCount">([] { return GetTickCount() * 1000; });
    on<"WaitForSingleObjectEx">(&WaitForSingleObjectEx);
    on<"HeapAlloc">(&HeapAlloc);
    on<"HeapFree">(&HeapFree);
    on<"CloseHandle">([this](HANDLE handle) { return keepClosed(handle), TRUE; });
}

// A closed handle's value is not given out again for a while, so that its use is known for what it is.
void Threads::keepClosed(HANDLE handle) {
    const std::scoped_lock locked(lock);
    closed.push_back(handle);
    if (closed.size() <= closedHandlesKept)
        return;
    CloseHandle(closed.front());
    closed.pop_front();
}

void Threads::dialUp(Plan& plan, std::size_t number) {
    DWORD result = 0;
    {
        const Watchdog::Call call(watchdog, number, "dialUp", operations);
        result = VARNEL::dialUp(plan.peer, "secret", false, false, 1);
    }
    expect(result == plan.outcome, fmt::format("a dial that ends with {} gives {}", plan.outcome, result));
    busyRas.notifyTooLate(plan.callbackIds, tooLate);
}

void Threads::dialDown(const Plan& plan, std::size_t number) {
    const bool connected = !busyRas.connectedEntry(plan.peer).empty();
    const Watchdog::Call call(watchdog, number, "dialDown", operations);
    expect(VARNEL::dialDown(plan.peer) == connected, "a hang-up has another result");
}

void Threads::ask(const Plan& plan, std::size_t number) {
    const std::string entry = busyRas.connectedEntry(plan.peer);
    const Watchdog::Call call(watchdog, number, "getCurrentEntryNameById", operations);
    expect(VARNEL::getCurrentEntryNameById(plan.peer) == entry, "another entry is given for a peer");
}

void Threads::nameEntry(std::size_t number) {
    const Watchdog::Call call(watchdog, number, "getEntryNameWithSuffix", operations);
    for (const char* shared : {"shared1", "shared2"}) {
        const std::string name = privates::getEntryNameWithSuffix(shared, true);
        const std::scoped_lock locked(lock);
        expect(names.insert(name).second, "an entry's name is given twice: " + name);
    }
    privates::getEntryNameWithSuffix("new" + std::to_string(operations), false);
}

void Threads::operate(Plan& plan, std::size_t number, DWORD choice) {
    if (choice < 5)
        dialUp(plan, number);
    else if (choice < 7)
        dialDown(plan, number);
    else if (choice < 9)
        ask(plan, number);
    else
        nameEntry(number);
}

void Threads::host(std::size_t number) {
    std::mt19937 random(campaign.seed + static_cast<std::uint32_t>(number));
    while (!over) {
        Plan plan{.peer = fmt::format("node{}{}", number, random() % 2 == 0 ? "a" : "b"),
                  .outcome = random() % 2 == 0 ? 0 : ++lastOutcome,
                  .timing = static_cast<Timing>(random() % 5),
                  .busyAtFirst = random() % 8 == 0,
                  .lingers = random() % 3};
        const BusyRas::Planned planned(plan);
        operate(plan, number, random() % 10);
        tellers->back();
        ++operations;
    }
    for (const char* which : {"a", "b"}) {
        Plan plan{.peer = fmt::format("node{}{}", number, which)};
        const BusyRas::Planned planned(plan);
        while (!busyRas.connectedEntry(plan.peer).empty())
            dialDown(plan, number);
        tellers->back();
    }
}

void Threads::endAndBeginAgain() {
    const Watchdog::Call call(watchdog, cleaner, "clean", operations);
    tellers->whileHeld([this] {
        busyRas.registryIsCleared();
        VARNEL::clean();
        busyRas.registryIsCleared();
    });
    privates::pptpsrvDialDownCallback = &tellHost;
}

unsigned long Threads::run(std::chrono::milliseconds length) {
    const auto end = std::chrono::steady_clock::now() + length;
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < hosts; ++number)
        threads.emplace_back([this, number] { host(number); });
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        endAndBeginAgain();
        Journal::clear();
        forgetLog();
    }
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    return operations;
}

TEST_CASE("threads of a host never meet one another") {
    const Campaign campaign("many threads");
    const std::chrono::milliseconds length(campaign.soak ? 60'000 : 5'000);
    unsigned long operations = 0;
    for (const long wrap : {LONG_MAX, -1L})
        operations += Threads(campaign, wrap - idsBeforeWrap).run(length / 2);
    CHECK(operations > hosts);
    campaign.report(fmt::format("{} threads, {} operations, {:.0f} a second", hosts, operations,
                                operations / campaign.seconds()));
}
