#include "standin/ras/entry_lines.h"

#include <algorithm>

namespace standin {
namespace {

std::optional<Group> groupHeadedBy(const Line& line) {
    const std::string_view key = line.key();
    if (key == "NETCOMPONENTS")
        return Group::netComponents;
    if (key == "MEDIA")
        return Group::media;
    if (key == "DEVICE")
        return Group::device;
    return std::nullopt;
}

} // namespace

EntryLines::EntryLines(const Section& section) {
    Group group = Group::main;
    for (const Line& line : section.lines) {
        group = groupHeadedBy(line).value_or(group);
        lines.push_back({group, &line, false});
    }
}

std::vector<EntryLines::Placed>::const_iterator EntryLines::find(Group group, std::string_view key) const {
    return std::find_if(lines.begin(), lines.end(), [&](const Placed& placed) {
        return placed.group == group && !placed.taken && placed.line->key() == key;
    });
}

std::optional<std::string> EntryLines::value(Group group, std::string_view key) const {
    const auto found = find(group, key);
    return found == lines.end() ? std::nullopt : std::optional<std::string>(found->line->value());
}

std::optional<std::string> EntryLines::take(Group group, std::string_view key) {
    const auto found = find(group, key);
    if (found == lines.end())
        return std::nullopt;
    lines[static_cast<std::size_t>(found - lines.begin())].taken = true;
    return std::string(found->line->value());
}

std::vector<Line> EntryLines::rest(Group group) const {
    std::vector<Line> result;
    for (const Placed& placed : lines)
        if (placed.group == group && !placed.taken && !placed.line->text.empty())
            result.push_back(*placed.line);
    return result;
}

} // namespace standin
