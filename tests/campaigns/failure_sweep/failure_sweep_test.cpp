// Every call that can fail is made to fail, in every situation: alone, and with all later calls of its
// function; with each code that the function plausibly gives. What was promised must hold all the same, and
// the next undisturbed call must work.
#include "plausible_failures.h"
#include "situations.h"
#include "tests/campaigns/campaign.h"
#include "tests/campaigns/watchdog.h"
#include "tests/kit/complaints.h"

#include <algorithm>

namespace {

constexpr std::size_t maxShown = 20;
constexpr long maxCalls = 3'000; // of one function in one run
constexpr int doubles = 120;     // runs with two failures at once, of each situation
constexpr int soakDoubles = 750;

const std::set<std::string, std::less<>> throwing = {
    "operator new",   "CheckIdFormat", "GetFileVersion", "GetPrivateConfigPathName",
    "GetWorkingPath", "PathName2Name", "int2strd",       "int2stru",
    "ip2string",      "uin2string",    "unicode2utf8",   "utf82unicode"};

std::string textOf(const Situation& situation, const Disturbance& disturbance) {
    std::string text = situation.operation.name + " (" + situation.name + ")";
    for (const Fault& fault : disturbance.all())
        text += fmt::format("; {} #{}{} with {}", fault.function, fault.nth, fault.lasting ? " on" : "",
                            static_cast<long>(fault.code));
    return text;
}

void act(World& world, const Situation& situation, const Disturbance& disturbance, Breaches& breaches) {
    try {
        situation.operation.act(world);
    } catch (const std::bad_alloc&) {
        world.outcome.threw = true;
        breaches.expect(std::any_of(disturbance.all().begin(), disturbance.all().end(),
                                    [](const Fault& fault) { return throwing.contains(fault.function); }),
                        "nothing is thrown");
    } catch (...) {
        world.outcome.threw = true;
        breaches.expect(false, "nothing but a want of memory is thrown");
    }
}

void expectTold(World& world, const Situation& situation, const Fault& fault, Breaches& breaches) {
    const PlausibleFailure failure = plausibleFailure(fault.function);
    const auto has = [](const auto& all, const auto& one) {
        return std::find(all.begin(), all.end(), one) != all.end();
    };
    if (failure.told.empty() || has(failure.untold, fault.code) || has(situation.silent, fault.function))
        return;
    const Lines lines = world.log(2);
    breaches.expect(std::any_of(lines.begin(), lines.end(),
                                [&](const std::string& line) {
                                    return std::any_of(failure.told.begin(), failure.told.end(),
                                                       [&](std::string_view pattern) {
                                                           return tells(line, pattern, fault.code);
                                                       });
                                }),
                    "the log tells of it");
}

void expectSilence(World& world, Breaches& breaches) {
    for (const std::string& line : world.log(2))
        breaches.expect(false, "the log tells of no failure where there is none: " + line);
}

void judge(World& world, const Situation& situation, const Disturbance& disturbance, Breaches& breaches) {
    situation.operation.promises(world, disturbance, breaches);
    if (disturbance.all().size() == 1 && !world.outcome.threw)
        expectTold(world, situation, disturbance.all().front(), breaches);
    breaches.expect(world.strangersEntriesUntouched(), "entries of others stay as they were");
    breaches.expect(!situation.operation.sparesStrangers || world.strangersUntouched(),
                    "connections of others stay up");
    breaches.expect(privates::s1723 == INVALID_SOCKET, "the port is let go");
    world.settle();
    for (const std::string& complaint : takeComplaints())
        breaches.expect(false, complaint);
}

void tryAgain(World& world, const Situation& situation, Breaches& breaches) {
    world.calm();
    act(world, situation, {}, breaches);
    situation.operation.works(world, breaches);
    world.settle();
    for (const std::string& complaint : takeComplaints())
        breaches.expect(false, "of the next call: " + complaint);
}

class Sweep {
  public:
    explicit Sweep(const Campaign& campaign_) : campaign(campaign_), random(campaign_.seed) {}

    void run(const Situation& situation);
    void report() const;
    bool failed() const { return broken != 0; }

  private:
    // One run; whether a planned failure struck.
    bool disturb(const Situation& situation, const Disturbance& planned);
    void sweepFunction(const Situation& situation, const std::string& function);
    void sweepPairs(const Situation& situation);
    void show(const std::string& run, const Breaches& breaches);

    const Campaign& campaign;
    std::mt19937 random;
    Watchdog watchdog{campaign, std::chrono::seconds(30)};
    Faults::Calls reached; // in the present situation: the most calls of each function in one run
    std::size_t situations = 0, runs = 0, failingCalls = 0, pairs = 0, broken = 0;
};

bool Sweep::disturb(const Situation& situation, const Disturbance& planned) {
    const std::string name = textOf(situation, planned);
    const Watchdog::Call call(watchdog, 0, name.c_str(), ++runs);
    World world;
    Breaches breaches;
    situation.arrange(world);
    const bool calm = world.isCalm();
    Faults::plan(planned.all());
    Faults::count();
    act(world, situation, planned, breaches);
    const Disturbance struck(Faults::thatStruck());
    for (const auto& [function, calls] : Faults::counted())
        reached[function] = std::max(reached[function], calls);
    Faults::plan(std::nullopt);
    if (calm && struck.none())
        expectSilence(world, breaches);
    judge(world, situation, struck, breaches);
    tryAgain(world, situation, breaches);
    show(name, breaches);
    return !struck.none();
}

void Sweep::sweepFunction(const Situation& situation, const std::string& function) {
    for (const DWORD code : plausibleFailure(function).codes)
        for (const bool lasting : {false, true}) {
            long nth = 1;
            while (disturb(situation, Disturbance({Fault{function, nth, lasting, code}}))) {
                ++failingCalls;
                if (++nth == maxCalls)
                    FAIL(textOf(situation, {}) << ": " << function << " fails for ever");
            }
        }
}

// Among them functions that are called only after another failure.
void Sweep::sweepPairs(const Situation& situation) {
    const std::vector<std::pair<std::string, long>> calls(reached.begin(), reached.end());
    const auto pick = [this](std::size_t count) { return random() % count; };
    const auto fault = [&] {
        const auto& [function, count] = calls[pick(calls.size())];
        const auto codes = plausibleFailure(function).codes;
        return Fault{function, static_cast<long>(1 + pick(static_cast<std::size_t>(count))), pick(2) == 0,
                     codes[pick(codes.size())]};
    };
    for (int i = campaign.soak ? soakDoubles : doubles; i > 0 && !calls.empty(); --i, ++pairs)
        disturb(situation, Disturbance({fault(), fault()}));
}

void Sweep::run(const Situation& situation) {
    ++situations;
    reached.clear();
    disturb(situation, {});
    for (const auto& [function, calls] : Faults::Calls(reached))
        sweepFunction(situation, function);
    sweepPairs(situation);
}

void Sweep::show(const std::string& run, const Breaches& breaches) {
    if (breaches.all().empty())
        return;
    ++broken;
    if (broken > maxShown)
        return;
    std::string text = run;
    for (const std::string& breach : breaches.all())
        text += "\n    broken: " + breach;
    FAIL_CHECK(text);
}

void Sweep::report() const {
    campaign.report(
        fmt::format("{} runs of {} situations, {} failing calls, {} pairs of failures, {} runs broken", runs,
                    situations, failingCalls, pairs, broken));
}

} // namespace

bool Disturbance::hits(std::string_view function) const {
    return std::any_of(faults.begin(), faults.end(),
                       [function](const Fault& fault) { return fault.function == function; });
}

bool Disturbance::hits(std::string_view function, DWORD code) const {
    return std::any_of(faults.begin(), faults.end(),
                       [=](const Fault& fault) { return fault.function == function && fault.code == code; });
}

bool Disturbance::hitsOnly(const std::set<std::string_view>& functions) const {
    return std::all_of(faults.begin(), faults.end(),
                       [&functions](const Fault& fault) { return functions.contains(fault.function); });
}

bool Disturbance::hitsAny(std::initializer_list<std::string_view> functions) const {
    return std::any_of(functions.begin(), functions.end(),
                       [this](std::string_view function) { return hits(function); });
}

TEST_CASE("whatever fails, what was promised holds and the next call works") {
    const Campaign campaign("failure sweep");
    Sweep sweep(campaign);
    for (const Situations& some : {dialingSituations(), hangUpSituations(), initialisationSituations(),
                                   driverSituations(), networkSituations()})
        for (const Situation& situation : some)
            sweep.run(situation);
    sweep.report();
    CHECK_FALSE(sweep.failed());
}
