// Many threads of a host dial, hang up and ask at once, while notifications come early, late, twice or never,
// and the host ends the library's work in the middle of hang-ups. Each dial gets its own outcome, names and
// ids stay unique, nobody is told after the end, and nothing is left.
#include "busy_ras.h"
#include "tests/campaigns/campaign.h"
#include "tests/campaigns/lies.h"
#include "tests/campaigns/watchdog.h"
#include "tests/kit/varnel_test.h"

#include <climits>

namespace {

constexpr std::size_t hosts = 64;
constexpr std::size_t cleaner = hosts; // its number as a thread
constexpr std::chrono::seconds patience{20};
constexpr DWORD tellingPause = 100; // ms that the library waits before it tells the host
constexpr DWORD firstOutcome = 10'000;
constexpr DWORD tooLate = 9'999;       // the outcome of attempts that nobody waits for any more
constexpr long idsBeforeWrap = 50'000; // within the first burst of all threads
constexpr std::size_t closedHandlesKept = 4096;
constexpr DWORD idBurst = 5'000;
constexpr unsigned int burst = 50; // calls in a row that are else too short to meet others
constexpr unsigned int firstSpareId = 0x4000'0000;
constexpr ULONG_PTR firstSpareHandle = 0x4000'0000;

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

// The library in a computer that is quick to sleep and never slow to answer, and its host's threads.
class Threads : public VarnelTest {
  public:
    Threads(const Campaign& campaign_, long firstId_);
    ~Threads() {
        tellers = nullptr;
        for (HANDLE handle : closed)
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
    void nameEntries(std::size_t number);
    void takeIds(std::size_t number);
    void checkCounts();
    void registerAttempts(std::size_t number);
    void endAndBeginAgain();
    HANDLE createEvent(BOOL manualReset);
    void closeHandle(HANDLE handle);

    const Campaign& campaign;
    Tellers theTellers;
    BusyRas busyRas;
    Watchdog watchdog{campaign, patience};
    std::atomic<bool> over = false;
    std::atomic<unsigned long> operations = 0;
    std::atomic<DWORD> lastOutcome = firstOutcome;

    std::atomic<unsigned int> wave = 0; // all threads make their bursts at once, each time that it changes
    const long firstId;
    std::atomic<DWORD> idsTaken = 0;
    const std::string sharedPeer;
    std::atomic<unsigned int> namesGiven = 0;

    std::atomic<ULONG_PTR> lastSpareHandle = firstSpareHandle;
    static inline thread_local bool withoutEvent = false;
    std::mutex closedLock;
    std::deque<HANDLE> closed;
};

Threads::Threads(const Campaign& campaign_, long firstId_)
    : campaign(campaign_), firstId(firstId_), sharedPeer(fmt::format("shared{}", firstId_)) {
    Watchdog::noteImports();
    tellers = &theTellers;
    privates::callbackIdIndex = firstId;
    privates::pptpsrvDialDownCallback = &tellHost;
    privates::onlyClient = true; // clean() looks for no folders
    LOG::level = 0;
    on<"Sleep">([](DWORD ms) { ms == tellingPause ? tellers->pause() : Sleep(ms / 1000); });
    on<"GetTickCount">([] { return GetTickCount() * 1000; });
    on<"HeapAlloc">(&HeapAlloc);
    on<"HeapFree">(&HeapFree);
    on<"CreateEventA">(
        [this](LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL, LPCSTR) { return createEvent(manualReset); });
    on<"CloseHandle">([this](HANDLE handle) { return closeHandle(handle), TRUE; });
}

// Attempts that nobody dials for need no event; their handles are numbers that the system never gives.
HANDLE Threads::createEvent(BOOL manualReset) {
    return withoutEvent && manualReset != FALSE ? reinterpret_cast<HANDLE>(++lastSpareHandle)
                                                : CreateEventA(nullptr, manualReset, FALSE, nullptr);
}

// A closed handle's value is not given out again for a while, so that its use is known for what it is.
void Threads::closeHandle(HANDLE handle) {
    if (reinterpret_cast<ULONG_PTR>(handle) > firstSpareHandle)
        return;
    const std::scoped_lock locked(closedLock);
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

// A name given twice leaves its number behind the count of all that were given.
void Threads::nameEntries(std::size_t number) {
    const std::string newPeer = fmt::format("new{}x{}", number, operations.load());
    const Watchdog::Call call(watchdog, number, "getEntryNameWithSuffix", operations);
    for (unsigned int i = 0; i < burst; ++i) {
        privates::getEntryNameWithSuffix(sharedPeer, true);
        privates::getEntryNameWithSuffix(newPeer + (i % 8 == 0 ? "a" : "b"), false);
    }
    namesGiven += burst;
}

// An id given twice leaves the last one behind the count of all that were given.
void Threads::takeIds(std::size_t number) {
    const Watchdog::Call call(watchdog, number, "getCallbackIdIndex", operations);
    bool isZero = false;
    for (DWORD i = 0; i < idBurst; ++i)
        isZero = privates::getCallbackIdIndex() == 0 || isZero;
    expect(!isZero, "an attempt's id is 0");
    idsTaken += idBurst;
}

// What was registered is there until it is removed, unless everything has been.
void Threads::registerAttempts(std::size_t number) {
    const Watchdog::Call call(watchdog, number, "addItem, findItem, removeItem", operations);
    DIALUP_CALLBACK registry;
    withoutEvent = true;
    for (unsigned int id = firstSpareId + static_cast<unsigned int>(number) * burst, end = id + burst;
         id < end; ++id) {
        const unsigned int clearings = busyRas.clearingsSoFar();
        const auto item = registry.addItem(id);
        const bool found = registry.findItem(id) == item;
        expect(found || busyRas.mayBeCleared(clearings), "a registered attempt is not found");
        registry.removeItem(id);
        expect(!registry.findItem(id), "a removed attempt is found");
    }
    withoutEvent = false;
}

void Threads::operate(Plan& plan, std::size_t number, DWORD choice) {
    if (choice < 6)
        dialUp(plan, number);
    else if (choice < 8)
        dialDown(plan, number);
    else
        ask(plan, number);
}

void Threads::host(std::size_t number) {
    std::mt19937 random(campaign.seed + static_cast<std::uint32_t>(number));
    for (unsigned int waveSeen = 0; !over;) {
        if (const unsigned int now = wave; std::exchange(waveSeen, now) != now) {
            takeIds(number);
            nameEntries(number);
            registerAttempts(number);
        }
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
        busyRas.clearing();
        VARNEL::clean();
        busyRas.clearing();
    });
    privates::pptpsrvDialDownCallback = &tellHost;
}

void Threads::checkCounts() {
    CHECK(privates::getEntryNameWithSuffix(sharedPeer, false) ==
          fmt::format("{} #{}", sharedPeer, namesGiven));
    const DWORD zeroSkipped = firstId < 0 && privates::callbackIdIndex > 0 ? 1UL : 0UL;
    CHECK(static_cast<DWORD>(privates::callbackIdIndex) ==
          static_cast<DWORD>(firstId) + idsTaken + busyRas.dialsSoFar() + zeroSkipped);
}

unsigned long Threads::run(std::chrono::milliseconds length) {
    const auto end = std::chrono::steady_clock::now() + length;
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < hosts; ++number)
        threads.emplace_back([this, number] { host(number); });
    std::set<std::string> offences;
    while (std::chrono::steady_clock::now() < end && offences.empty()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        endAndBeginAgain();
        ++wave;
        Journal::clear();
        forgetLog();
        std::ranges::copy(takeComplaints(), std::inserter(offences, offences.end()));
    }
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    INFO("seed " << campaign.seed);
    CHECK(offences == std::set<std::string>{});
    checkCounts();
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
