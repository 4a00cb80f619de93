// The lines of a phonebook section with the group that each stands in.
#pragma once

#include "standin/ras/entry_keys.h"
#include "standin/ras/section_file.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace standin {

// Looks into the section it was made from, which has to outlive it unchanged.
class EntryLines {
  public:
    explicit EntryLines(const Section& section);

    // The first value of a key.
    std::optional<std::string> value(Group group, std::string_view key) const;
    // The same, and the line no longer belongs to the rest.
    std::optional<std::string> take(Group group, std::string_view key);
    // What nobody has taken of a group, blank lines left out.
    std::vector<Line> rest(Group group) const;

  private:
    struct Placed {
        Group group;
        const Line* line;
        bool taken;
    };

    std::vector<Placed>::const_iterator find(Group group, std::string_view key) const;

    std::vector<Placed> lines;
};

} // namespace standin
