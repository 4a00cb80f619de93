// Each run calls one operation of the library in a system that lies. Whatever it is told, the library neither
// crashes nor hangs, stays within its buffers, releases what it was lent, and touches nothing foreign.
#include "campaign.h"
#include "lying_system.h"
#include "tests/kit/scripted_networks.h"
#include "tests/kit/varnel_test.h"
#include "watchdog.h"

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
    using Operation = void (LyingRecords::*)();
    struct Named {
        const char* name;
        Operation operation;
    };
    static const std::vector<Named> operations;

    void initialise();
    void clean() { VARNEL::clean(); }
    void dialUp() { checkDial(VARNEL::dialUp(newPeer(), newPassword(), lies.oneIn(2), lies.oneIn(2), 1)); }
    void dialUp2() {
        checkDial(privates::dialUp2(newPeer(), newPassword(), lies.oneIn(2), lies.oneIn(2), 1));
    }
    void dialUp3();
    void dialDown() { VARNEL::dialDown(newPeer()); }
    void getCurrentEntryNameById();
    void getCurrentEntryName();
    void getAllEntries();
    void removeEntries() { privates::removeEntries({newPeer(), newPeer()}); }
    void dialDownSameIp();
    void dialDownAllPptp();
    void getAllActiveEntry();
    void getEntryStatus() { privates::getEntryStatus(lies.peer()); }
    void chgWanEndPoints() { privates::chgWanEndPoints(); }
    void setPptpPorts() { privates::setPptpPorts(false, 32, 10, 5); }
    void kestrin() { privates::tryinstallDriverAndLaunchKestrin(); }
    void ombrel() { privates::tryinstallDriverAndLaunchOmbrel(); }
    void removeDriver() { privates::removeDriver("Kestrin"); }
    void setLocation();
    void notify();

    const std::string& newPeer();
    const std::string& newPassword() { return lies.password = lies.noise(lies.oneIn(9) ? 300 : 9); }
    void checkDial(DWORD result);
    void checkName(const std::string& name, const std::string& id);
    void checkAfter();

    Lies& lies;
    LyingRas lyingRas{lies, clock};
    LyingComputer lyingComputer{lies};
};

const std::vector<LyingRecords::Named> LyingRecords::operations = {
    {"init", &LyingRecords::initialise},
    {"clean", &LyingRecords::clean},
    {"dialUp", &LyingRecords::dialUp},
    {"dialUp2", &LyingRecords::dialUp2},
    {"dialUp3", &LyingRecords::dialUp3},
    {"dialDown", &LyingRecords::dialDown},
    {"getCurrentEntryNameById", &LyingRecords::getCurrentEntryNameById},
    {"getCurrentEntryName", &LyingRecords::getCurrentEntryName},
    {"getAllEntries", &LyingRecords::getAllEntries},
    {"removeEntries", &LyingRecords::removeEntries},
    {"dialDownSameIp", &LyingRecords::dialDownSameIp},
    {"dialDownAllPptp", &LyingRecords::dialDownAllPptp},
    {"getAllActiveEntry", &LyingRecords::getAllActiveEntry},
    {"getEntryStatus", &LyingRecords::getEntryStatus},
    {"chgWanEndPoints", &LyingRecords::chgWanEndPoints},
    {"setPptpPorts", &LyingRecords::setPptpPorts},
    {"tryinstallDriverAndLaunchKestrin", &LyingRecords::kestrin},
    {"tryinstallDriverAndLaunchOmbrel", &LyingRecords::ombrel},
    {"removeDriver", &LyingRecords::removeDriver},
    {"setLocation", &LyingRecords::setLocation},
    {"rasDialFunc2", &LyingRecords::notify},
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
    const bool ready = VARNEL::init(privates::pptpsrvDialDownCallback, lies.oneIn(2), lies.oneIn(2),
                                    lies.oneIn(2), lies.oneIn(4), lies.oneIn(2), message);
    expect(!ready || message.empty(), "a host that is ready gets a message");
    for (std::size_t start = 0, end = 0; end != std::wstring::npos; start = end + 1) {
        end = message.find(L'\n', start);
        expect(end == std::wstring::npos || end - start <= 256, "a line of the message is too long");
    }
}

const std::string& LyingRecords::newPeer() {
    std::string id = lies.peer();
    while (id.empty())
        id = lies.peer();
    return lies.wanted.emplace_back(id);
}

// Each dial ends as something said that it ended, and no connection is forgotten that could be found again.
void LyingRecords::checkDial(DWORD result) {
    static const std::set<DWORD> own = {0, ~DWORD{0}, 87, 617, 756};
    expect(own.contains(result) || lies.codes.contains(result), "a dial ends with " + std::to_string(result));
    expect(lies.unreadable || lies.dialled.size() <= (result == 0 ? 1 : 0),
           "a dialled connection is given up");
}

// The caller's record ends where its memory ends.
void LyingRecords::dialUp3() {
    constexpr DWORD dialParamsSize = 1064;
    const auto block = current<"HeapAlloc">()(nullptr, HEAP_ZERO_MEMORY, dialParamsSize);
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

void LyingRecords::checkName(const std::string& name, const std::string& id) {
    expect(name.empty() || (lies.entries.contains(name) && serves(name, id)), "no such entry: " + name);
}

void LyingRecords::getCurrentEntryNameById() {
    const std::string id = lies.peer();
    checkName(VARNEL::getCurrentEntryNameById(id), id);
}

void LyingRecords::getCurrentEntryName() {
    const std::string id = newPeer();
    checkName(privates::getCurrentEntryName("C:\\book", id), id);
}

void LyingRecords::getAllEntries() {
    for (RASENTRYNAMEA& entry : privates::getAllEntries(""))
        entry.dwSize = 0; // a copy
}

void LyingRecords::dialDownSameIp() {
    lies.anyConnection = true;
    privates::dialDownSameIp(lies.number());
}

void LyingRecords::dialDownAllPptp() {
    lies.anyConnection = true;
    privates::dialDownAllPptp();
}

void LyingRecords::getAllActiveEntry() {
    for (const std::string& name : privates::getAllActiveEntry())
        expect(
            std::ranges::any_of(lies.entries, [&](const std::string& shown) { return serves(name, shown); }),
            "no such active entry: " + name);
}

void LyingRecords::setLocation() {
    privates::isWin6Plus = true;
    privates::setLocation(lies.peer());
    expect(network_list::script.objects == 0 && network_list::script.texts == 0, "an object of COM is left");
}

void LyingRecords::notify() {
    privates::rasDialFunc2(lies.number(), lies.number(), lies.handle(), lies.number(),
                           static_cast<RASCONNSTATE>(lies.number()), lies.code({691}), lies.number());
}

void LyingRecords::checkAfter() {
    ledger.settle();
    expect(privates::items.empty(), "a dial attempt is still registered");
    expect(privates::s1723 == INVALID_SOCKET, "port 1723 is still held");
    expect(GuardedHeap::takeForbiddenAccesses() == 0, "a heap block was overrun, or used after it was freed");
}

Lines LyingRecords::run(const Campaign& campaign, Watchdog& watchdog, unsigned long number) {
    lies.begin(campaign.seed, number);
    clock.startAt(lies.number());
    privates::isWin6Plus = lies.oneIn(2);
    privates::onlyClient = lies.oneIn(8);
    LOG::level = static_cast<long>(lies.below(4));
    const Named& named = lies.oneOf(operations);
    try {
        const Watchdog::Call call(watchdog, 0, named.name, number);
        (this->*named.operation)();
    } catch (const std::exception& exception) {
        complain(std::string("an exception passed: ") + exception.what());
    }
    checkAfter();
    Lines offences = takeComplaints();
    if (!offences.empty()) {
        offences.insert(offences.begin(),
                        fmt::format("{} in run {} of seed {}", named.name, number, campaign.seed));
        const Lines journal = calls();
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
