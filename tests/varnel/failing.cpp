// Each play with every call failing in turn: once and from there on, with every code that the call plausibly
// gives. What holds then holds for all situations alike.
#include "play.h"

namespace {

constexpr const char* ownResults[] = {"87", "756", "true", "false", "\"\""}; // of what could be done or not

// How a code is marked in the table of imports: it is told in the log unless it has one of these.
enum Mark : char { toldOtherwise = '!', silent = '~', answer = '=' };

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// One step of a play, disturbed in every way.
class Disturbed {
  public:
    Disturbed(const Situation& situation, std::size_t index);
    void failEach();

  private:
    bool disturb(const Fault& fault, char mark);
    void judge(const Outcome& came, const Fault& fault);
    void judgeClosely(const Outcome& came, const Fault& fault, char mark);
    void expect(bool holds, const std::string& rule) {
        if (!holds)
            offences.push_back(rule);
    }

    const Situation& situation;
    const std::span<const Step> before;
    const Step& step;
    Outcome first, second; // the undisturbed step, and again after it
    std::vector<Import*> called;
    std::vector<std::string> offences;
};

Disturbed::Disturbed(const Situation& situation_, std::size_t index)
    : situation(situation_), before(situation.steps.begin(), index), step(situation.steps[index]) {
    Run run(situation, Run::coarsePoll, before);
    first = run.perform(step);
    std::ranges::copy_if(allImports(), std::back_inserter(called),
                         [](const Import* import) { return import->calls != 0; });
    run.computer.dials.clear();
    second = run.perform({"", step.operation});
}

void Disturbed::failEach() {
    for (Import* import : called)
        for (const std::string& code : words(import->codes))
            for (const bool lasting : {false, true}) {
                const DWORD number = std::stoul(code.substr(code.find_first_of("0123456789")));
                for (long nth = 1; disturb({import, nth, lasting, number}, code[0]); ++nth) {
                }
            }
}

// Whether the failure came about at all.
bool Disturbed::disturb(const Fault& fault, char mark) {
    report::begin(fmt::format("{}: {}, {}, {} #{}{} fails with {}", situation.name, step.operation,
                              step.course, fault.import->name, fault.nth, fault.lasting ? " on" : "",
                              fault.code));
    Run run(situation, Run::coarsePoll, before);
    const Outcome came = run.perform(step, {fault});
    if (fault.import->calls < fault.nth)
        return false;
    // Another road than the usual one may be taken, so that only what holds always is asked, after an answer,
    // where the text says so, and where its course has failures already.
    const bool isLoose =
        mark == answer || situation.may(fault.import->name) || has("; " + step.course, "; fails ");
    offences = came.offences;
    judge(came, fault);
    if (!isLoose)
        judgeClosely(came, fault, mark);
    run.computer.dials.clear();
    const Outcome after = run.perform({"", step.operation});
    expect(after.offences.empty(), "the next one: " + joined(after.offences, ", "));
    expect(isLoose || after.result == first.result || after.result == second.result,
           "the next one gives " + after.result);
    expect(Run(situation, Run::coarsePoll, before).perform(step).sections == first.sections,
           "on a fresh computer it goes another way afterwards");
    report::end(offences);
    return true;
}

void Disturbed::judge(const Outcome& came, const Fault& fault) {
    expect(came.result != "throws" || fault.import->throws, "it throws");
    expect(!came.passwordLeft, "the password is left in memory");
    for (const std::string& change : came.lines.at("left"))
        expect(situation.may("strangers") || !has(change, "stranger"), "a stranger is touched: " + change);
    for (const std::string& id : came.lines.at("told"))
        expect(step.operation == "clean" || step.operation.starts_with("init") || id.starts_with("Node") ||
                   std::ranges::count(first.lines.at("told"), id) != 0,
               "the host is told of " + id);
}

void Disturbed::judgeClosely(const Outcome& came, const Fault& fault, char mark) {
    if (came.result == "throws")
        return;
    const std::vector<std::string>& log = came.lines.at("log");
    const std::string code = std::to_string(fault.code);
    const auto tells = [&](const std::string& line) {
        return !line.starts_with('3') &&
               (mark == toldOtherwise
                    ? has(line, "fail") || has(line, "Can't")
                    : line.ends_with(code) || has(line, code + " ") || line.ends_with("4294967295"));
    };
    const auto isNews = [&](const std::string& line) {
        return line.starts_with('2') && std::ranges::count(first.lines.at("log"), line) == 0;
    };
    std::string course = step.course;
    replaceAll(course, ",", " ");
    const bool isSilenced = LOG::level < 2;
    expect(mark == silent || isSilenced || std::ranges::any_of(log, tells), "the log does not tell of it");
    expect(came.result == first.result || came.result == code ||
               std::ranges::count(ownResults, came.result) != 0 ||
               std::ranges::count(words(course), came.result) != 0,
           "the result is " + came.result);
    expect(came.result != first.result || came.lines.at("left") == first.lines.at("left") || isSilenced ||
               std::ranges::any_of(log, isNews),
           "the usual result, but another state: " + joined(came.lines.at("left"), "; "));
}

} // namespace

void playFailing(std::vector<SituationFile>& files) {
    report::eachSituation(files, [](Situation& situation) {
        for (std::size_t step = 0; step < situation.steps.size(); ++step)
            Disturbed(situation, step).failEach();
    });
}
