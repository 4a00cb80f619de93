// Each run calls one operation of the library in a system that lies. Whatever it is told, the library neither
// crashes nor hangs, stays within its buffers, releases what it was lent, and touches nothing foreign.
#include "lying_system.h"
#include "tests/campaigns/campaign.h"
#include "tests/campaigns/watchdog.h"
#include "tests/kit/record_sizes.h"
#include "tests/kit/scripted_networks.h"
#include "tests/kit/varnel_test.h"

namespace {

constexpr std::chrono::seconds patience{20};
constexpr unsigned long runsPerFixture = 100;
constexpr DWORD pollTakes = 250; // ms, instead of no time

} // namespace

class LyingRecords : public VarnelTest {
  public:
    explicit LyingRecords(Lies& lies_);

    // Run `number`; what was wrong with it, line by line.
    Lines run(const Campaign& campaign, Watchdog& watchdog, unsigned long number);

  private:
    struct Operation {
        const char* name;
        void (*perform)(LyingRecords&);
    };
    static const std::vector<Operation> operations;

    bool coin() { return lies.oneIn(2); }
    // Ids and passwords that the operation gets as arguments.
    std::string peer() { return lies.wanted.emplace_back(lies.peer()); }
    const std::string& password() { return lies.password = lies.noise(lies.oneIn(9) ? 300 : 9); }
    void initialise();
    void dialUp3();
    void checkDial(DWORD result) const;
    void checkName(const std::string& name, const std::string& id) const;
    void checkActive(const std::list<std::string>& names) const;
    void checkAfter();

    Lies& lies;
    LyingRas lyingRas{lies, clock};
    LyingComputer lyingComputer{lies};
};

const std::vector<LyingRecords::Operation> LyingRecords::operations = {
    {"init", [](LyingRecords& my) { my.initialise(); }},
    {"clean", [](LyingRecords&) { VARNEL::clean(); }},
    {"dialUp",
     [](LyingRecords& my) {
         my.checkDial(VARNEL::dialUp(my.peer(), my.password(), my.coin(), my.coin(), 1));
     }},
    {"dialUp2",
     [](LyingRecords& my) {
         my.checkDial(privates::dialUp2(my.peer(), my.password(), my.coin(), my.coin(), 1));
     }},
    {"dialUp3", [](LyingRecords& my) { my.dialUp3(); }},
    {"dialDown", [](LyingRecords& my) { VARNEL::dialDown(my.peer()); }},
    {"getCurrentEntryNameById",
     [](LyingRecords& my) {
         const std::string id = my.peer();
         my.checkName(VARNEL::getCurrentEntryNameById(id), id);
     }},
    {"getCurrentEntryName",
     [](LyingRecords& my) {
         const std::string id = my.peer();
         my.checkName(privates::getCurrentEntryName("C:\\book", id), id);
     }},
    {"getAllEntries", [](LyingRecords&) { privates::getAllEntries(""); }},
    {"removeEntries",
     [](LyingRecords& my) {
         privates::removeEntries({my.peer(), my.peer()});
     }},
    {"dialDownSameIp",
     [](LyingRecords& my) {
         my.lies.anyConnection = true;
         privates::dialDownSameIp(my.lies.number());
     }},
    {"dialDownAllPptp",
     [](LyingRecords& my) {
         my.lies.anyConnection = true;
         privates::dialDownAllPptp();
     }},
    {"getAllActiveEntry", [](LyingRecords& my) { my.checkActive(privates::getAllActiveEntry()); }},
    {"getEntryStatus", [](LyingRecords& my) { privates::getEntryStatus(my.peer()); }},
    {"chgWanEndPoints", [](LyingRecords&) { privates::chgWanEndPoints(); }},
    {"setPptpPorts", [](LyingRecords&) { privates::setPptpPorts(false, 32, 10, 5); }},
    {"tryinstallDriverAndLaunchKestrin", [](LyingRecords&) { privates::tryinstallDriverAndLaunchKestrin(); }},
    {"tryinstallDriverAndLaunchOmbrel", [](LyingRecords&) { privates::tryinstallDriverAndLaunchOmbrel(); }},
    {"removeDriver", [](LyingRecords&) { privates::removeDriver("Kestrin"); }},
    {"setLocation",
     [](LyingRecords& my) {
         privates::isWin6Plus = true;
         privates::setLocation(my.peer());
     }},
    {"rasDialFunc2",
     [](LyingRecords& my) {
         privates::rasDialFunc2(my.lies.number(), 1, my.lies.handle(), my.lies.number(),
                                static_cast<RASCONNSTATE>(my.lies.number()), my.lies.number(),
                                my.lies.number());
     }},
};

LyingRecords::LyingRecords(Lies& lies_) : lies(lies_) {
    Watchdog::noteImports();
    on<"Sleep">([pass = current<"Sleep">()](DWORD ms) { pass(ms == 0 ? pollTakes : ms); });
    on<"LOG::prints">(
        [record = current<"LOG::prints">()](int level, const char* file, long line, const std::string& text) {
            expect(withinFields(text), "a record runs past a field: " + text);
            record(level, file, line, text);
        });
}

void LyingRecords::initialise() {
    lies.anyConnection = true;
    std::wstring message = L"of an earlier call";
    const bool ready = VARNEL::init(privates::pptpsrvDialDownCallback, coin(), coin(), coin(), lies.oneIn(4),
                                    coin(), message);
    expect(!ready || message.empty(), "a host that is ready gets a message");
}

// The caller's record ends where its memory ends.
void LyingRecords::dialUp3() {
    void* const block = current<"HeapAlloc">()(nullptr, HEAP_ZERO_MEMORY, dialParamsSize);
    auto& params = *static_cast<RASDIALPARAMSA*>(block);
    params.dwSize = dialParamsSize;
    strcpy(params.szEntryName, "node7 #0");
    strcpy(params.szUserName, "node7");
    strcpy(params.szPassword, "secret");
    lies.wanted = {"node7"};
    lies.password = "secret";
    HRASCONN conn = nullptr;
    const DWORD result = privates::dialUp3("C:\\book", params, lies.below(20'000), &conn);
    expect(conn == nullptr || lies.dialled.contains(conn), "a handle that no dial gave");
    lies.dialled.clear(); // left to the caller
    checkDial(result);
    current<"HeapFree">()(nullptr, 0, block);
}

// Each dial ends as something said that it ended, and no connection is forgotten that could be found again.
void LyingRecords::checkDial(DWORD result) const {
    static const std::set<DWORD> own = {0, ~DWORD{0}, 87, 617, 756};
    expect(own.contains(result) || lies.codes.contains(result), "a dial ends with " + std::to_string(result));
    expect(lies.unreadable || lies.dialled.size() <= (result == 0 ? 1 : 0),
           "a dialled connection is given up");
}

void LyingRecords::checkName(const std::string& name, const std::string& id) const {
    expect(name.empty() || (lies.entries.contains(name) && serves(name, id)), "no such entry: " + name);
}

void LyingRecords::checkActive(const std::list<std::string>& names) const {
    for (const std::string& name : names)
        expect(std::ranges::any_of(
                   lies.entries,
                   [&name](const std::string& shown) { return _stricmp(shown.c_str(), name.c_str()) == 0; }),
               "no such active entry: " + name);
}

void LyingRecords::checkAfter() {
    ledger.settle();
    expect(privates::items.empty(), "a dial attempt is still registered");
    expect(privates::s1723 == INVALID_SOCKET, "port 1723 is still held");
    expect(network_list::script.objects == 0 && network_list::script.texts == 0, "an object of COM is left");
    expect(GuardedHeap::takeForbiddenAccesses() == 0, "a heap block was overrun, or used after it was freed");
}

Lines LyingRecords::run(const Campaign& campaign, Watchdog& watchdog, unsigned long number) {
    lies.begin(campaign.seed, number);
    clock.startAt(lies.number());
    privates::isWin6Plus = coin();
    privates::onlyClient = lies.oneIn(8);
    LOG::level = static_cast<long>(lies.below(4));
    const Operation& operation = lies.oneOf(operations);
    try {
        const Watchdog::Call call(watchdog, 0, operation.name, number);
        operation.perform(*this);
    } catch (const std::exception& exception) {
        complain(std::string("an exception passed: ") + exception.what());
    }
    checkAfter();
    Lines offences = takeComplaints();
    if (!offences.empty()) {
        const Lines journal = calls();
        offences.insert(offences.begin(),
                        fmt::format("{} in run {} of seed {}", operation.name, number, campaign.seed));
        offences.insert(offences.end(), journal.begin(), journal.end());
        std::ranges::transform(offences, offences.begin(), &readable);
    }
    Journal::clear();
    forgetLog();
    return offences;
}

TEST_CASE("whatever the system answers, the library stays within its bounds") {
    const Campaign campaign("lying records");
    const unsigned long long wanted = campaign.soak ? 1'000'000 : 50'000;
    Watchdog watchdog(campaign, patience);
    Lies lies;
    unsigned long runs = 0;
    while (lies.answers < wanted) {
        LyingRecords fixture(lies);
        for (unsigned long end = runs + runsPerFixture; runs < end; ++runs) {
            const Lines offences = fixture.run(campaign, watchdog, runs);
            REQUIRE(offences == Lines{});
        }
    }
    campaign.report(fmt::format("{} answers in {} runs", lies.answers, runs));
}
