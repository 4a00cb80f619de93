// Each play with every call failing in turn: once and from there on, with every code that the call plausibly
// gives. What holds then holds for all situations alike.
#include "play.h"

namespace {

using Words = std::vector<std::string>;

const Words ownResults = {"87", "756", "true", "false", "\"\""}; // of what could be done or not

// How a code is marked in the table of imports: it is told in the log unless it has one of these.
constexpr char toldOtherwise = '!', silent = '~', answer = '=';

bool isAmong(const Words& all, const std::string& one) {
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
Rules general(const Usual& usual, const Import& failed, Outcome& came) {
    const std::string& operation = usual.step.operation;
    Outcome first = usual.first;
    const bool mayTellAll = operation == "clean" || operation.starts_with("init");
    const auto isStrange = [&](const std::string& id) {
        return !mayTellAll && !id.starts_with("Node") && !isAmong(first.lines["told"], id);
    };
    const std::string left = joined(came.lines["left"], "; ");
    return {{came.result != "throws" || failed.failing == Failing::byThrowing, "it throws"},
            {!came.passwordLeft, "the password is left in memory"},
            {usual.situation.may("strangers") || !boost::contains(left, "stranger"),
             "a stranger is touched: " + left},
            {std::ranges::none_of(came.lines["told"], isStrange), "the host is told of another peer"}};
}

// What holds when the library takes no other road than the usual one.
Rules particular(const Usual& usual, const std::string& code, char mark, Outcome& came) {
    Outcome first = usual.first;
    const auto tells = [&](const std::string& line) {
        return !line.starts_with('3') &&
               (mark == toldOtherwise
                    ? boost::contains(line, "fail") || boost::contains(line, "Can't")
                    : boost::contains(line + " ", code + " ") || line.ends_with("4294967295"));
    };
    const auto isNews = [&](const std::string& line) {
        return line.starts_with('2') && !isAmong(first.lines["log"], line);
    };
    const auto isLogged = [&](const auto& what) {
        return LOG::level < 2 || std::ranges::any_of(came.lines["log"], what);
    };
    Words results = {first.result, code};
    std::ranges::copy(ownResults, std::back_inserter(results));
    std::ranges::copy(words(boost::replace_all_copy(usual.step.course, ",", " ")),
                      std::back_inserter(results));
    return {{mark == silent || isLogged(tells), "the log does not tell of it"},
            {isAmong(results, came.result), "the result is " + came.result},
            {came.result != first.result || came.lines["left"] == first.lines["left"] || isLogged(isNews),
             "the usual result, but another state: " + joined(came.lines["left"], "; ")}};
}

// Whether the failure came about at all.
bool disturb(const Usual& usual, const Fault& fault, char mark) {
    const auto& [situation, before, step, first, second] = usual;
    const auto& [import, nth, lasting, number] = fault;
    report::begin(fmt::format("{}: {}, {}, {} #{}{} fails with {}", situation.name, step.operation,
                              step.course, import->name, nth, lasting ? " on" : "", number));
    Run run(situation, Run::coarsePoll, before);
    Outcome came = run.perform(step, {fault});
    if (import->calls < nth)
        return false;
    // Another road may be taken after an answer, where the text says so, and where the course has failures.
    const bool mayDiffer =
        mark == answer || situation.may(import->name) || boost::contains("; " + step.course, "; fails ");
    const auto keep = [&](const Rules& rules) {
        for (const auto& [holds, rule] : rules)
            if (!holds)
                came.offences.push_back(rule);
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
    report::end(came.offences);
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
