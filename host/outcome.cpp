#include "outcome.h"

#include "console.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <vector>

namespace {

ExitCode exitCodeOf(Cause cause) {
    switch (cause) {
    case Cause::nobodyAnswers:
        return ExitCode::nobodyAnswers;
    case Cause::busyHere:
        return ExitCode::busyHere;
    case Cause::service:
        return ExitCode::service;
    case Cause::computer:
        return ExitCode::computer;
    default:
        return ExitCode::notConnected;
    }
}

Cause classOf(const Outcome& outcome) {
    return outcome.error != 0 ? causeOf(outcome.error) : outcome.cause;
}

// What its error means, and what to try, which need not be that of the error.
Explanation explanationOf(const Outcome& outcome) {
    Explanation why = outcome.error != 0 ? explain(outcome.error, Language::english) : Explanation();
    if (!outcome.advice.empty())
        why.advice = outcome.advice;
    return why;
}

std::string endText(Phase endedIn, double seconds) {
    const std::string phase = endedIn == Phase::unknown ? "" : nameOf(endedIn, Language::english) + " ";
    const char* in = endedIn == Phase::unknown || endedIn == Phase::entry ? "" : "in ";
    return fmt::format("ended {}{}after {:.1f} s", in, phase, seconds);
}

// What stands behind the outcome: the code's name, the class of cause, where and when a dial ended.
std::string details(const Outcome& outcome, const std::string& name) {
    std::vector<std::string> parts;
    if (!name.empty())
        parts.push_back(name);
    if (const Cause cause = classOf(outcome); cause != Cause::none)
        parts.push_back(nameOf(cause, Language::english));
    if (outcome.endedIn)
        parts.push_back(endText(*outcome.endedIn, outcome.seconds.value_or(0)));
    if (!parts.empty())
        return fmt::format(" ({})", fmt::join(parts, "; "));
    return outcome.seconds ? fmt::format(", {:.1f} s", *outcome.seconds) : std::string();
}

} // namespace

Outcome failure(const std::string& subject, const std::string& text, unsigned long error) {
    return {exitCodeOf(causeOf(error)), subject, text, error};
}

Outcome failure(const std::string& subject, const std::string& text, Cause cause) {
    return {.exit = exitCodeOf(cause), .subject = subject, .text = text, .cause = cause};
}

ExitCode tell(const Outcome& outcome, const Telling& telling) {
    if (telling.json) {
        tellJson(jsonOf(outcome), telling);
        return outcome.exit;
    }
    const Explanation why = explanationOf(outcome);
    std::string line = fmt::format("{}: {}", outcome.subject, outcome.text);
    if (!outcome.entry.empty())
        line += fmt::format("{}entry \"{}\"", outcome.text.empty() ? "" : ", ", outcome.entry);
    if (outcome.error != 0)
        line += fmt::format(": error {}, {}", outcome.error, why.meaning);
    telling.console.result(line + details(outcome, why.name));
    if (!why.advice.empty())
        telling.console.message(fmt::format("{}: {}", outcome.subject, why.advice));
    return outcome.exit;
}

ExitCode tellFault(ExitCode exit, const std::string& where, const std::string& text, const Telling& telling) {
    if (telling.json)
        tellJson(jsonOf({exit, telling.command, text}), telling);
    else
        telling.console.message(where + text);
    return exit;
}

void tellText(const std::string& subject, const std::string& text, const Telling& telling) {
    if (telling.json)
        tellJson(jsonOf({ExitCode::done, subject, text}), telling);
    else
        telling.console.result(text);
}

nlohmann::ordered_json jsonOf(const Outcome& outcome) {
    using Json = nlohmann::ordered_json;
    const Explanation why = explanationOf(outcome);
    return {{"subject", outcome.subject},
            {"exit", static_cast<int>(outcome.exit)},
            {"text", outcome.text},
            {"entry", outcome.entry},
            {"took", outcome.seconds ? Json(std::lround(*outcome.seconds * 1000)) : Json()},
            {"endedIn", outcome.endedIn ? Json(wordOf(*outcome.endedIn)) : Json()},
            {"code", outcome.error},
            {"name", why.name},
            {"meaning", why.meaning},
            {"class", wordOf(classOf(outcome))},
            {"advice", why.advice}};
}

void tellJson(const nlohmann::ordered_json& object, const Telling& telling) {
    nlohmann::ordered_json told;
    if (telling.line != 0)
        told = {{"line", telling.line}, {"command", telling.command}};
    told.update(object);
    telling.console.result(told.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}
