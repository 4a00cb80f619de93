// What a code means, what usually causes it and what to try, in the words of a person's language.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

enum class Language { english, chinese };

// That of the system.
Language systemLanguage();

// Who has to put a failure right, or where to look for it.
enum class Cause { none, nobodyAnswers, refused, busyHere, service, computer };

// How far a dial came, as the log names it; its entry comes before the dial.
enum class Phase { entry, port, connection, authentication, link, confirmation, unknown };

struct Explanation {
    std::string name;    // symbolic; empty when it is not known
    std::string meaning; // in a form that continues "error 691, ..."; empty when nobody knows the code
    std::string causes;  // these two are empty when nothing is wrong
    std::string advice;
};

// The codes of RAS, of Windows and of the library. Texts are UTF-8.
Explanation explain(std::uint32_t code, Language language);
Cause causeOf(std::uint32_t code);

// The phase that a dial ends in with the code. Most codes can come in several: unknown.
Phase phaseOf(std::uint32_t code);

// Whether a service that dialling needs is disabled, stopped or not there.
bool tellsOfMissingService(std::uint32_t code);

std::string nameOf(Cause cause, Language language);
std::string nameOf(Phase phase, Language language);

// The same in one word, for programs.
std::string wordOf(Cause cause);
std::string wordOf(Phase phase);

// The code that a person means: a decimal or hexadecimal (0x) number, or a symbolic name in any letter case.
std::optional<std::uint32_t> codeFrom(std::string_view text);
