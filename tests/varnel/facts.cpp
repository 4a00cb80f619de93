#include "facts.h"

#include <algorithm>
#include <cstring>

namespace {

bool equal(std::string_view one, std::string_view other) {
    return one.size() == other.size() && _strnicmp(one.data(), other.data(), one.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

} // namespace

const Facts::Fact* Facts::find(std::string_view name) const {
    const auto found =
        std::ranges::find_if(facts, [name](const Fact& fact) { return equal(fact.first, name); });
    return found == facts.end() ? nullptr : &*found;
}

std::string Facts::get(std::string_view name) const {
    const Fact* const fact = find(name);
    return fact != nullptr ? fact->second : std::string();
}

unsigned long Facts::number(std::string_view name) const {
    return std::strtoul(get(name).c_str(), nullptr, 0);
}

void Facts::set(std::string_view name, std::string_view value) {
    if (const Fact* const fact = find(name))
        facts[static_cast<std::size_t>(fact - facts.data())].second = value;
    else
        facts.emplace_back(name, value);
}

bool Facts::erase(std::string_view name) {
    return std::erase_if(facts, [name](const Fact& fact) { return equal(fact.first, name); }) != 0;
}

std::vector<std::string> Facts::endings(std::string_view start) const {
    std::vector<std::string> found;
    for (const auto& [name, value] : facts)
        if (name.size() > start.size() && equal(std::string_view(name).substr(0, start.size()), start))
            found.push_back(name.substr(start.size()));
    return found;
}

std::vector<std::string> differences(const Facts& before, const Facts& after) {
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
    for (text = trimmed(text); !text.empty(); text = trimmed(text)) {
        const bool quoted = text.front() == '"';
        const std::size_t end = std::min(text.find(quoted ? '"' : ' ', quoted ? 1 : 0), text.size());
        all.emplace_back(text.substr(quoted ? 1 : 0, end - (quoted ? 1 : 0)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return all;
}

std::vector<std::string> pieces(std::string_view text, char separator) {
    std::vector<std::string> all;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (const std::string_view piece = trimmed(text.substr(0, end)); !piece.empty())
            all.emplace_back(piece);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return all;
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : std::string(separator)) + part;
    return text;
}

void replaceAll(std::string& text, std::string_view what, std::string_view with) {
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
}
