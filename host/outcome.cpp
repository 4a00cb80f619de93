#include "outcome.h"

#include "console.h"
#include "meanings.h"

#include <fmt/format.h>

Outcome failure(const std::string& subject, const std::string& text, unsigned long error) {
    return {exitCodeOf(error), subject, text, error};
}

ExitCode tell(const Outcome& outcome, Console& console) {
    std::string line = fmt::format("{}: {}", outcome.subject, outcome.text);
    std::string advice = outcome.advice;
    if (outcome.error != 0) {
        line += ": " + describe(outcome.error);
        if (advice.empty())
            advice = adviceOn(outcome.error);
    }
    console.result(line);
    if (!advice.empty())
        console.message(fmt::format("{}: {}", outcome.subject, advice));
    return outcome.exit;
}
