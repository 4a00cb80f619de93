// Dials as text for a console of 80 columns.
#pragma once

#include "log/dials.h"

#include <string>
#include <vector>

namespace logs {

// What came of a dial, in a few words.
std::string outcomeText(const Dial& dial);

// A line for each of some dials, and one above them.
class DialTable {
  public:
    DialTable(const std::vector<std::size_t>& numbers, const std::vector<Dial>& of);

    std::string heading() const;
    std::string line(std::size_t number) const; // from 0

  private:
    const std::vector<Dial>& dials;
    std::size_t peerWidth = 4;
};

// The dial's phases with bars, and what went wrong. Its last line has no end.
std::string timeline(std::size_t number, const std::vector<Dial>& dials);

} // namespace logs
