#include "outcome.h"

#include "console.h"
#include "words/explain.h"

#include <fmt/format.h>

ExitCode exitCodeOf(unsigned long code) {
    return tellsOfMissingService(code) ? ExitCode::serviceMissing : ExitCode::notConnected;
}

Outcome failure(const std::string& subject, const std::string& text, unsigned long error) {
    return {exitCodeOf(error), subject, text, error};
}

ExitCode tell(const Outcome& outcome, Console& console) {
    std::string line = fmt::format("{}: {}", outcome.subject, outcome.text);
    std::string advice = outcome.advice;
    if (outcome.error != 0) {
        const Explanation why = explain(outcome.error, Language::english);
        line += fmt::format(": error {}, {}", outcome.error, why.meaning);
        if (advice.empty())
            advice = why.advice;
    }
    console.result(line);
    if (!advice.empty())
        console.message(fmt::format("{}: {}", outcome.subject, advice));
    return outcome.exit;
}
