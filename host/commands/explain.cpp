#include "words/explain.h"

#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "usage_error.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <memory>

namespace {

struct ExplainArguments {
    std::string code;
    std::string language;
};

Language languageFrom(const std::string& text) {
    if (text.empty())
        return systemLanguage();
    if (text == "en")
        return Language::english;
    if (text == "zh")
        return Language::chinese;
    throw UsageError(fmt::format("\"{}\" is no language: en or zh", text));
}

struct Labels {
    const char* cause;
    const char* usually;
    const char* toTry;
    const char* unknown;
};

constexpr Labels labels[] = {{"cause", "usually", "try", "nobody here knows this code"},
                             {"原因", "通常", "建议", "没有人认识这个代码"}};

void show(std::uint32_t code, const Explanation& found, Language language, Console& console) {
    const Labels& label = labels[static_cast<int>(language)];
    console.result(fmt::format("{}{}{}: {}", code, found.name.empty() ? "" : " ", found.name,
                               found.meaning.empty() ? label.unknown : found.meaning));
    if (found.meaning.empty() || found.advice.empty())
        return;
    console.result(fmt::format("  {}: {}", label.cause, nameOf(causeOf(code), language)));
    console.result(fmt::format("  {}: {}", label.usually, found.causes));
    console.result(fmt::format("  {}: {}", label.toTry, found.advice));
}

nlohmann::ordered_json jsonOf(std::uint32_t code, const Explanation& found) {
    const bool isKnown = !found.meaning.empty();
    return {{"code", code},
            {"name", found.name},
            {"meaning", found.meaning},
            {"class", wordOf(isKnown ? causeOf(code) : Cause::none)},
            {"causes", isKnown ? found.causes : ""},
            {"advice", isKnown ? found.advice : ""}};
}

ExitCode explain(const ExplainArguments& arguments, Context& context) {
    const auto code = codeFrom(arguments.code);
    if (!code)
        throw UsageError(
            fmt::format("\"{}\" is no code: give a number, such as 691 or 0x2b3, or the name of a "
                        "code, such as ERROR_ACCESS_DENIED",
                        arguments.code));
    const Language language = languageFrom(arguments.language);
    const Explanation found = ::explain(*code, language);
    if (context.telling.json)
        tellJson(jsonOf(*code, found), context.telling);
    else
        show(*code, found, language, context.console);
    return found.meaning.empty() ? ExitCode::notFound : ExitCode::done;
}

Action declare(Options& options) {
    const auto arguments = std::make_shared<ExplainArguments>();
    options.requiredWord("CODE", arguments->code, "The code: a number, or its symbolic name");
    options.word("--language", arguments->language, "en or zh; that of the system without it");
    return [arguments](Context& context) { return explain(*arguments, context); };
}

constexpr const char* examples =
    R"(The codes of the remote-access service, of Windows and of the library, as dials
and the log tell them.

Examples:
  varnel-host explain 691
  varnel-host explain ERROR_PPP_TIMEOUT --language zh

Exit codes: 0 explained, 2 wrong arguments, 7 nobody knows the code)";

} // namespace

const Command explainCommand = {"explain", "Tells what a code means, what usually causes it and what to try",
                                examples, false, declare};
