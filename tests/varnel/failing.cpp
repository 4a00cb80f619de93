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

// The rules, and whether what came keeps them.
using Rules = std::vector<std::pair<bool, std::string>>;

// What holds always.
Rules general(const Usual& usual, const Import& failed, const Outcome& came) {
    const Step& step = usual.step;
    const auto isStrange = [&](const std::string& id) {
        return !id.starts_with("Node") && !isAmong(usual.first.lines.at("told"), id);
    };
    const bool mayTellAll = step.operation == "clean" || step.operation.starts_with("init");
    const std::string left = joined(came.lines.at("left"), "; ");
    return {{came.result != "throws" || failed.throws, "it throws"},
            {!came.passwordLeft, "the password is left in memory"},
            {usual.situation.may("strangers") || !has(left, "stranger"), "a stranger is touched: " + left},
            {mayTellAll || std::ranges::none_of(came.lines.at("told"), isStrange),
             "the host is told of another peer"}};
}

// What holds when the library takes no other road than the usual one.
Rules particular(const Usual& usual, const std::string& code, char mark, const Outcome& came) {
    const Outcome& first = usual.first;
    const auto tells = [&](const std::string& line) {
        if (line.starts_with('3'))
            return false;
        return mark == toldOtherwise
                   ? has(line, "fail") || has(line, "Can't")
                   : line.ends_with(code) || has(line, code + " ") || line.ends_with("4294967295");
    };
    const auto isNews = [&](const std::string& line) {
        return line.starts_with('2') && !isAmong(first.lines.at("log"), line);
    };
    const auto isLogged = [&](const auto& what) {
        return LOG::level < 2 || std::ranges::any_of(came.lines.at("log"), what);
    };
    std::string course = usual.step.course;
    replaceAll(course, ",", " ");
    return {
        {mark == silent || isLogged(tells), "the log does not tell of it"},
        {came.result == first.result || came.result == code || isAmong(ownResults, came.result) ||
             isAmong(words(course), came.result),
         "the result is " + came.result},
        {came.result != first.result || came.lines.at("left") == first.lines.at("left") || isLogged(isNews),
         "the usual result, but another state: " + joined(came.lines.at("left"), "; ")}};
}

// Whether the failure came about at all.
bool disturb(const Usual& usual, const Fault& fault, char mark) {
    const auto& [situation, before, step, first, second] = usual;
    const auto& [import, nth, lasting, number] = fault;
    report::begin(fmt::format("{}: {}, {}, {} #{}{} fails with {}", situation.name, step.operation,
                              step.course, import->name, nth, lasting ? " on" : "", number));
    Run run(situation, Run::coarsePoll, before);
    const Outcome came = run.perform(step, {fault});
    if (import->calls < nth)
        return false;
    // Another road may be taken after an answer, where the text says so, and where the course has failures.
    const bool mayDiffer =
        mark == answer || situation.may(import->name) || has("; " + step.course, "; fails ");
    std::vector<std::string> offences = came.offences;
    const auto keep = [&](const Rules& rules) {
        for (const auto& [holds, rule] : rules)
            if (!holds)
                offences.push_back(rule);
    };
    keep(general(usual, *import, came));
    if (!mayDiffer && came.result != "throws")
        keep(particular(usual, std::to_string(number), mark, came));
    run.computer.dials.clear();
    const Outcome next = run.perform({"", step.operation});
    const Outcome fresh = Run(situation, Run::coarsePoll, before).perform(step);
    keep({{next.offences.empty(), "the next one: " + joined(next.offences, ", ")},
          {mayDiffer || next.result == first.result || next.result == second.result,
           "the next one gives " + next.result},
          {fresh.sections == first.sections, "on a fresh computer it goes another way afterwards"}});
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
