#include "facts.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

bool equal(std::string_view one, std::string_view other) {
    return one.size() == other.size() && _strnicmp(one.data(), other.data(), one.size()) == 0;
}

} // namespace

std::string* Facts::find(std::string_view name) {
    const auto found =
        std::ranges::find_if(facts, [name](const Fact& fact) { return equal(fact.first, name); });
    return found == facts.end() ? nullptr : &found->second;
}

unsigned long Facts::number(std::string_view name) {
    return std::strtoul(get(name).c_str(), nullptr, 0);
}

void Facts::set(std::string_view name, std::string_view value) {
    if (std::string* const known = find(name))
        *known = value;
    else
        facts.emplace_back(name, value);
}

bool Facts::erase(std::string_view name) {
    return std::erase_if(facts, [name](const Fact& fact) { return equal(fact.first, name); }) != 0;
}

std::vector<std::string> Facts::endings(std::string_view start) const {
    std::vector<std::string> found;
    for (const auto& [name, value] : facts)
        if (name.size() > start.size() && equal(name.substr(0, start.size()), start))
            found.push_back(name.substr(start.size()));
    return found;
}

std::vector<std::string> differences(Facts before, Facts after) {
    std::vector<std::string> lines;
    for (const auto& [name, value] : before.all())
        if (!after.has(name))
            lines.push_back("no " + name);
    for (const auto& [name, value] : after.all())
        if (!before.has(name) || before.get(name) != value)
            lines.push_back(value.empty() ? name : name + " = " + value);
    return lines;
}

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> all;
    for (std::size_t from = 0; (from = text.find_first_not_of(' ', from)) < text.size(); ++from) {
        const char end = text[from] == '"' ? text[from++] : ' ';
        all.emplace_back(text.substr(from, text.find(end, from) - from));
        from += all.back().size();
    }
    return all;
}

bool says(std::string_view text, std::string_view word) {
    return std::ranges::count(words(text), word) != 0;
}

std::string wordAfter(std::string_view text, std::string_view word, const std::string& otherwise) {
    const std::vector<std::string> said = words(text);
    const auto found = std::ranges::find(said, word);
    return found != said.end() && found + 1 != said.end() ? *(found + 1) : otherwise;
}

unsigned long numberAfter(std::string_view text, std::string_view word, unsigned long otherwise) {
    return std::stoul(wordAfter(text, word, std::to_string(otherwise)));
}

bool countDown(std::string& text, std::string_view word) {
    const unsigned long number = numberAfter(text, word);
    if (number != 0)
        boost::replace_all(text, fmt::format("{} {}", word, number), fmt::format("{} {}", word, number - 1));
    return number != 0;
}

std::vector<std::string> pieces(std::string_view text, char separator) {
    std::vector<std::string> all;
    boost::split(all, text, [=](char character) { return character == separator; });
    for (std::string& piece : all)
        boost::trim(piece);
    std::erase(all, "");
    return all;
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    return fmt::format("{}", fmt::join(parts, separator));
}
