#include "tests/campaigns/lies.h"

#include <fmt/format.h>

namespace {

constexpr const FieldKind* fieldKinds[] = {&entryNameField, &phoneBookField,  &addressField,
                                           &errorField,     &shortErrorField, &fileNameField,
                                           &folderField,    &keyNameField,    &foreignField};

std::string lowCase(std::string text) {
    for (char& c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    return text;
}

} // namespace

bool withinFields(const std::string& text) {
    return std::ranges::all_of(fieldKinds, [&text](const FieldKind* kind) {
        return text.find(std::string(kind->longest + 1, kind->filler)) == std::string::npos;
    });
}

std::string readable(const std::string& text) {
    std::string result;
    for (std::size_t start = 0, end = 0; start < text.size(); start = end) {
        end = std::min(text.find_first_not_of(text[start], start), text.size());
        const bool printable = text[start] >= ' ' && text[start] <= '~';
        result += printable && end - start < 9
                      ? text.substr(start, end - start)
                      : fmt::format("<{:02X} {}x>", static_cast<unsigned char>(text[start]), end - start);
    }
    return result;
}

bool serves(const std::string& entryName, const std::string& id) {
    const std::string name = lowCase(entryName);
    return name == lowCase(id) || name.starts_with(lowCase(id) + " #");
}

void expect(bool holds, const std::string& offence) {
    if (!holds)
        complain(offence);
}

void Lies::begin(std::uint32_t seed, unsigned long run) {
    random.seed(seed * 2654435761u + static_cast<std::uint32_t>(run));
    wanted.clear();
    anyConnection = unreadable = false;
    connections.clear();
    entries.clear();
    dialled.clear();
    codes.clear();
}

DWORD Lies::number() {
    static const std::vector<DWORD> edges = {0,   1,   2,          79,         80,       255,
                                             256, 257, 0x7FFFFFFF, 0x80000000, ~DWORD{0}};
    return oneIn(2) ? oneOf(edges) : static_cast<DWORD>(random()) >> below(32);
}

DWORD Lies::code(std::initializer_list<DWORD> likely) {
    ++answers;
    if (oneIn(2))
        return 0;
    return oneIn(8) ? number() : oneOf(std::vector<DWORD>(likely));
}

DWORD Lies::count(DWORD room) {
    return oneIn(3) ? number() : oneIn(2) ? room + below(3) : below(5);
}

std::string Lies::noise(DWORD longest) {
    std::string text(below(longest + 1), '\0');
    for (char& c : text)
        c = static_cast<char>(below(0xC0));
    return text;
}

std::string Lies::peer() {
    static const std::vector<std::string> good = {
        "node7", "Node7", "node77", "a", "user@example.com", std::string(128, 'p')};
    static const std::vector<std::string> bad = {
        "",    "..",     "con",  std::string("node7\0x", 7), "node7 #1",
        "a/b", "node7 ", "%s%n", std::string(244, 'q'),      std::string(257, 'q')};
    return oneIn(12) ? noise(300) : oneIn(6) ? oneOf(bad) : oneOf(good);
}

std::string Lies::entryName() {
    static const std::vector<std::string> tails = {"",     " #0",    " #1",   " #", "#0", " #9999999999",
                                                   "x #0", " #1 #2", " #%s%n"};
    return peer() + oneOf(tails);
}

std::string Lies::fill(char* field, std::size_t room, const FieldKind& kind, const std::string& text) {
    std::memset(field, kind.filler, room);
    if (!oneIn(4))
        text.copy(field, room);
    if (text.size() < room && !oneIn(3))
        field[text.size()] = '\0';
    return std::string(field, strnlen(field, std::min(room - 1, kind.longest)));
}

bool Lies::isWanted(const std::string& entryName) const {
    return std::ranges::any_of(wanted, [&](const std::string& id) { return serves(entryName, id); });
}

bool Lies::mayHangUp(HRASCONN conn) const {
    const auto [first, last] = connections.equal_range(conn);
    return dialled.contains(conn) || (anyConnection && first != last) ||
           std::any_of(first, last, [this](const auto& shown) { return isWanted(shown.second); });
}
