// Which records and dials of a log are wanted.
#pragma once

#include "log/dials.h"

#include <optional>
#include <string>
#include <vector>

namespace logs {

struct Filter {
    std::string peer;
    std::string thread; // "thread" or "process/thread"
    int level = 3;
    std::optional<Time> since, until;

    // `about` is the peer that the dials' reader says the record is about.
    bool takes(const Record& record, std::string_view about) const;
    bool takes(const Dial& dial) const;
};

// The dials that the filter takes, by their numbers from 0.
std::vector<std::size_t> chosen(const std::vector<Dial>& dials, const Filter& filter);

} // namespace logs
