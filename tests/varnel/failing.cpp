// Each play with every call failing in turn: once and from there on, with every code that the call plausibly
// gives. What holds then holds for all situations alike.
#include "play.h"

namespace {

const std::vector<std::string> ownResults = {"87", "756", "true", "false",
                                             "\"\""}; // of what could be done or not

// How a code is marked in the table of imports: it is told in the log unless it has one of these.
constexpr char toldOtherwise = '!', silent = '~', answer = '=';

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool isAmong(const std::vector<std::string>& all, const std::string& one) {
    return std::ranges::count(all, one) != 0;
}

// A step of a situation as it goes undisturbed, and again after it.
struct Usual {
    const Situation& situation;
    std::span<const Step> before;
    const Step& step;
    Outcome first, second;
};

// What is not as it must be, whatever the failure was.
std::vector<std::string> judge(const Usual& usual, const Fault& fault, char mark, const Outcome& came,
                               bool mayDiffer) {
    const Situation& situation = usual.situation;
    const auto& usualLines = usual.first.lines;
    const std::string code = std::to_string(fault.code), left = joined(came.lines.at("left"), "; ");
    const auto isStrange = [&](const std::string& id) {
        return !id.starts_with("Node") && !isAmong(usualLines.at("told"), id);
    };
    const auto tells = [&](const std::string& line) {
        if (line.starts_with('3'))
            return false;
        return mark == toldOtherwise
                   ? has(line, "fail") || has(line, "Can't")
                   : line.ends_with(code) || has(line, code + " ") || line.ends_with("4294967295");
    };
    const auto isNews = [&](const std::string& line) {
        return line.starts_with('2') && !isAmong(usualLines.at("log"), line);
    };
    const auto isLogged = [&](const auto& what) {
        return LOG::level < 2 || std::ranges::any_of(came.lines.at("log"), what);
    };
    std::string course = usual.step.course;
    replaceAll(course, ",", " ");
    const bool throws = came.result == "throws";
    const bool hostMayHearOfAll = usual.step.operation == "clean" || usual.step.operation.starts_with("init");
    const std::pair<bool, std::string> rules[] = {
        {!throws || fault.import->throws, "it throws"},
        {!came.passwordLeft, "the password is left in memory"},
        {situation.may("strangers") || !has(left, "stranger"), "a stranger is touched: " + left},
        {hostMayHearOfAll || std::ranges::none_of(came.lines.at("told"), isStrange),
         "the host is told of another peer"},
        {mayDiffer || throws || mark == silent || isLogged(tells), "the log does not tell of it"},
        {mayDiffer || throws || came.result == usual.first.result || came.result == code ||
             isAmong(ownResults, came.result) || isAmong(words(course), came.result),
         "the result is " + came.result},
        {mayDiffer || came.result != usual.first.result || came.lines.at("left") == usualLines.at("left") ||
             isLogged(isNews),
         "the usual result, but another state: " + left}};
    std::vector<std::string> offences = came.offences;
    for (const auto& [holds, rule] : rules)
        if (!holds)
            offences.push_back(rule);
    return offences;
}

// Whether the failure came about at all.
bool disturb(const Usual& usual, const Fault& fault, char mark) {
    const Situation& situation = usual.situation;
    const Step& step = usual.step;
    report::begin(fmt::format("{}: {}, {}, {} #{}{} fails with {}", situation.name, step.operation,
                              step.course, fault.import->name, fault.nth, fault.lasting ? " on" : "",
                              fault.code));
    Run run(situation, Run::coarsePoll, usual.before);
    const Outcome came = run.perform(step, {fault});
    if (fault.import->calls < fault.nth)
        return false;
    // Another road than the usual one may be taken after an answer, where the text says so, and where the
    // course has failures already.
    const bool mayDiffer =
        mark == answer || situation.may(fault.import->name) || has("; " + step.course, "; fails ");
    std::vector<std::string> offences = judge(usual, fault, mark, came, mayDiffer);
    run.computer.dials.clear();
    const Outcome next = run.perform({"", step.operation});
    for (const std::string& offence : next.offences)
        offences.push_back("the next one: " + offence);
    if (!mayDiffer && next.result != usual.first.result && next.result != usual.second.result)
        offences.push_back("the next one gives " + next.result);
    if (Run(situation, Run::coarsePoll, usual.before).perform(step).sections != usual.first.sections)
        offences.push_back("on a fresh computer it goes another way afterwards");
    report::end(offences);
    return true;
}

void failEachCall(const Situation& situation, std::span<const Step> before, const Step& step) {
    Run run(situation, Run::coarsePoll, before);
    Usual usual = {situation, before, step, run.perform(step), {}};
    std::vector<Import*> called = allImports();
    std::erase_if(called, [](const Import* import) { return import->calls == 0; });
    run.computer.dials.clear();
    usual.second = run.perform({"", step.operation});
    for (Import* import : called)
        for (const std::string& code : words(import->codes))
            for (const bool lasting : {false, true}) {
                const DWORD number = std::stoul(code.substr(code.find_first_of("0123456789")));
                for (long nth = 1; disturb(usual, {import, nth, lasting, number}, code[0]); ++nth) {
                }
            }
}

} // namespace

void playFailing(Situation& situation) {
    const std::span<const Step> steps = situation.steps;
    for (std::size_t i = 0; i < steps.size(); ++i)
        failEachCall(situation, steps.first(i), steps[i]);
}
