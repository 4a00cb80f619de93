// Each play with every call failing in turn: once and from there on, with every code that the call plausibly
// gives. What holds then holds for all situations alike.
#include "play.h"

#include <algorithm>

namespace {

constexpr DWORD coarsePoll = 250; // ms, so that a wait of 3 s polls 12 times
constexpr const char* ownResults[] = {"87", "756", "true", "false", "\"\""}; // of what could be done or not

enum class Kind { told, toldOtherwise, silent, answer };

struct Code {
    Kind kind;
    DWORD number;
};

// "8 !731 ~2 =183", as the table of imports has them.
std::vector<Code> codesOf(const Import& import) {
    std::vector<Code> codes;
    for (std::string word : words(import.codes)) {
        const std::size_t mark = std::string("!~=").find(word.front());
        const Kind kinds[] = {Kind::toldOtherwise, Kind::silent, Kind::answer};
        codes.push_back({mark == std::string::npos ? Kind::told : kinds[mark],
                         static_cast<DWORD>(std::stoul(word.substr(mark == std::string::npos ? 0 : 1)))});
    }
    return codes;
}

bool isStrangers(const std::string& change) {
    return change.find("stranger") != std::string::npos;
}

// One step of a play, disturbed in every way.
class Disturbed {
  public:
    Disturbed(const Situation& situation, const Play& play, std::size_t step, Tally& tally);
    void failEach();

  private:
    bool disturb(const Fault& fault, Kind kind);
    void judge(const Outcome& came, const Fault& fault, Kind kind);
    void judgeResult(const Outcome& came, const Fault& fault);
    void expect(bool holds, const std::string& rule) {
        if (!holds)
            offences.push_back(rule);
    }
    // Whether another road than the usual one may be taken, so that only what holds always is asked: after an
    // answer, where the text says so, and where its course has failures already.
    bool isLoose(const Fault& fault, Kind kind) const {
        return kind == Kind::answer || may(fault.import->name) ||
               std::ranges::any_of(pieces(step().course, ';'),
                                   [](const std::string& item) { return item.starts_with("fails "); });
    }
    bool may(std::string_view what) const { return std::ranges::count(situation.may, what) != 0; }
    const Step& step() const { return play.steps[index]; }
    // The run up to the step.
    Run upToStep();

    const Situation& situation;
    const Play& play;
    const std::size_t index;
    Tally& tally;
    Outcome first, second; // the undisturbed step, and again after it
    std::map<Import*, long> calls;
    std::vector<std::string> offences;
};

Disturbed::Disturbed(const Situation& situation_, const Play& play_, std::size_t index_, Tally& tally_)
    : situation(situation_), play(play_), index(index_), tally(tally_) {
    Run run(situation);
    run.computer.clock.yieldTakes = coarsePoll;
    for (std::size_t i = 0; i < index; ++i)
        run.perform(play.steps[i]);
    first = run.perform(step());
    for (Import* import : allImports())
        calls[import] = import->calls;
    run.computer.dials.clear();
    second = run.perform({"", step().operation, {}});
}

void Disturbed::failEach() {
    for (const auto& [import, undisturbed] : calls)
        if (undisturbed != 0)
            for (const Code& code : codesOf(*import))
                for (const bool lasting : {false, true})
                    for (long nth = 1; disturb({import, nth, lasting, code.number}, code.kind); ++nth) {
                    }
}

// Whether the failure came about at all.
bool Disturbed::disturb(const Fault& fault, Kind kind) {
    const std::string name = situation.name + ": " + step().operation +
                             (step().course.empty() ? "" : ", " + step().course) + ", " +
                             std::string(fault.import->name) + " #" + std::to_string(fault.nth) +
                             (fault.lasting ? " on" : "") + " fails with " + std::to_string(fault.code);
    watchdog::watch(name);
    offences.clear();
    Run run(situation);
    run.computer.clock.yieldTakes = coarsePoll;
    for (std::size_t i = 0; i < index; ++i)
        run.perform(play.steps[i]);
    const Outcome came = run.perform(step(), {fault});
    const bool struck = fault.import->calls >= fault.nth;
    ++tally.runs;
    if (struck) {
        judge(came, fault, kind);
        run.computer.dials.clear();
        const Outcome after = run.perform({"", step().operation, {}});
        expect(after.offences.empty(), "the next one: " + joined(after.offences, ", "));
        expect(isLoose(fault, kind) || after.result == first.result || after.result == second.result,
               "the next one gives " + after.result);
        Run fresh(situation);
        fresh.computer.clock.yieldTakes = coarsePoll;
        for (std::size_t i = 0; i < index; ++i)
            fresh.perform(play.steps[i]);
        expect(fresh.perform(step()).sections == first.sections,
               "on a fresh computer it goes another way afterwards");
    }
    if (!offences.empty())
        tally.failure(name + "\n    " + joined(offences, "\n    "));
    return struck;
}

void Disturbed::judge(const Outcome& came, const Fault& fault, Kind kind) {
    offences = came.offences;
    expect(!came.threw || fault.import->throws, "it throws");
    expect(!came.passwordLeft, "the password is left in memory");
    expect(may("strangers") || std::ranges::none_of(came.left, &isStrangers), "a stranger is touched");
    for (const std::string& id : came.told)
        expect(step().operation.starts_with("init") || step().operation.starts_with("clean") ||
                   std::ranges::count(first.told, id) != 0 || id.starts_with("Node"),
               "the host is told of " + id);
    if (isLoose(fault, kind))
        return;
    const auto tells = [&](const std::string& line) {
        if (line.starts_with("3"))
            return false;
        return kind == Kind::toldOtherwise
                   ? line.find("fail") != std::string::npos || line.find("Can't") != std::string::npos
                   : line.ends_with(std::to_string(fault.code)) || line.ends_with("4294967295") ||
                         line.find(std::to_string(fault.code) + " ") != std::string::npos;
    };
    if (kind != Kind::silent && !came.threw && LOG::level >= 2)
        expect(std::ranges::any_of(came.log, tells), "the log does not tell of it");
    if (!came.threw)
        judgeResult(came, fault);
}

void Disturbed::judgeResult(const Outcome& came, const Fault& fault) {
    const std::vector<std::string> course = words(step().course);
    const auto isNumberOf = [&](const std::string& word) {
        return word == came.result || word == came.result + ",";
    };
    expect(came.result == first.result || came.result == std::to_string(fault.code) ||
               std::ranges::count(ownResults, came.result) != 0 || std::ranges::any_of(course, isNumberOf),
           "the result is " + came.result);
    const auto isNews = [&](const std::string& line) {
        return line.starts_with("2") && std::ranges::count(first.log, line) == 0;
    };
    expect(came.result != first.result || came.left == first.left || LOG::level < 2 ||
               std::ranges::any_of(came.log, isNews),
           "the usual result, but another state: " + joined(came.left, "; "));
}

} // namespace

void playFailing(std::vector<SituationFile>& files, Tally& tally) {
    for (const SituationFile& file : files)
        for (const Situation& situation : file.situations) {
            const unsigned long failedBefore = tally.failed;
            for (const Play& play : situation.plays)
                for (std::size_t step = 0; step < play.steps.size(); ++step)
                    Disturbed(situation, play, step, tally).failEach();
            tally.passed += tally.failed == failedBefore ? 1 : 0;
        }
    watchdog::watch("");
}
