#include "words/explain.h"

#include "outside/Helper.h"
#include "text.h"

#include <windows.h>

#include <algorithm>
#include <charconv>

namespace {

constexpr std::uint32_t firstRasCode = 600;
constexpr std::uint32_t lastRasCode = 899;

// A text in both languages, in the order of `Language`.
struct Text {
    const char* languages[2];

    std::string in(Language language) const { return languages[static_cast<int>(language)]; }
};

struct Kind {
    Cause cause;
    Phase phase;
    Text causes;
    Text advice;
};

namespace kinds {
#define KIND(name, cause, phase, causes, advice, causesInChinese, adviceInChinese)                           \
    constexpr Kind name = {                                                                                  \
        Cause::cause, Phase::phase, {{causes, causesInChinese}}, {{advice, adviceInChinese}}};
#include "words/kinds.inc"
#undef KIND
} // namespace kinds

struct Code {
    std::uint32_t code;
    const char* name;
    const Kind* kind;
    Text meaning;
};

constexpr Code codes[] = {
#define CODE(code, name, kind, english, chinese) {code##U, #name, &kinds::kind, {{english, chinese}}},
#include "words/codes.inc"
#undef CODE
};

constexpr Text unknownRasCode = {{"an error of the remote-access service", "远程访问服务的错误"}};

struct Name {
    const char* word;
    Text text;
};

constexpr Name causeNames[] = {
    {"none", {{"nothing is wrong", "没有问题"}}},
    {"nobodyAnswers", {{"nobody answers", "无人应答"}}},
    {"refused", {{"refused", "被拒绝"}}},
    {"busyHere", {{"busy here", "本机忙"}}},
    {"service", {{"the remote-access service", "远程访问服务"}}},
    {"computer", {{"this computer", "本机"}}},
};

constexpr Name phaseNames[] = {
    {"entry", {{"before the dial", "拨号之前"}}},
    {"port", {{"port", "端口"}}},
    {"connection", {{"connection to the server", "连接服务器"}}},
    {"authentication", {{"authentication", "身份验证"}}},
    {"link", {{"agreeing on the link", "协商链路"}}},
    {"confirmation", {{"confirmation", "确认"}}},
    {"unknown", {{"an unknown phase", "未知阶段"}}},
};

// Windows' codes come as results of COM, too.
std::uint32_t withoutComFacility(std::uint32_t code) {
    return code >> 16 == 0x8007 ? code & 0xFFFF : code;
}

const Code* find(std::uint32_t code) {
    const auto found = std::ranges::find(codes, withoutComFacility(code), &Code::code);
    return found == std::end(codes) ? nullptr : found;
}

const Kind& kindOf(std::uint32_t code) {
    if (const Code* known = find(code))
        return *known->kind;
    return code >= firstRasCode && code <= lastRasCode ? kinds::inside : kinds::caller;
}

// What others call it, for want of a word of our own.
std::string meaningElsewhere(std::uint32_t code, Language language) {
    if (code >= firstRasCode && code <= lastRasCode)
        return unknownRasCode.in(language);
    return systemMessage(code);
}

} // namespace

Language systemLanguage() {
    return IsChineseOs() ? Language::chinese : Language::english;
}

Explanation explain(std::uint32_t code, Language language) {
    const Code* known = find(code);
    const Kind& kind = kindOf(code);
    return {known ? known->name : "", known ? known->meaning.in(language) : meaningElsewhere(code, language),
            kind.causes.in(language), kind.advice.in(language)};
}

Cause causeOf(std::uint32_t code) {
    return kindOf(code).cause;
}

Phase phaseOf(std::uint32_t code) {
    return kindOf(code).phase;
}

bool tellsOfMissingService(std::uint32_t code) {
    return &kindOf(code) == &kinds::serviceOff;
}

std::string nameOf(Cause cause, Language language) {
    return causeNames[static_cast<int>(cause)].text.in(language);
}

std::string nameOf(Phase phase, Language language) {
    return phaseNames[static_cast<int>(phase)].text.in(language);
}

std::string wordOf(Cause cause) {
    return causeNames[static_cast<int>(cause)].word;
}

std::string wordOf(Phase phase) {
    return phaseNames[static_cast<int>(phase)].word;
}

std::optional<std::uint32_t> codeFrom(std::string_view text) {
    const auto named = std::ranges::find_if(
        codes, [&](const Code& code) { return _stricmp(code.name, std::string(text).c_str()) == 0; });
    if (named != std::end(codes))
        return named->code;
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal)
        text.remove_prefix(2);
    std::uint32_t code = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), code, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return code;
}
