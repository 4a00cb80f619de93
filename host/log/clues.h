// What a dial says of itself, and what the other dials of the log say of it.
#pragma once

#include "log/dials.h"

#include <string>
#include <vector>

namespace logs {

// The word for a stage, and for an outcome, as tables and documents have it.
const char* nameOf(Stage stage);
const char* nameOf(Outcome outcome);

// A sentence: what came of the dial.
std::string whatHappened(const Dial& dial);

// The code whose usual causes may be those of this dial, which need not have failed with it; 0 when there is none.
unsigned codeOfCauses(const Dial& dial);

// A sentence: how far the dial came before it ended.
std::string howFar(const Dial& dial);

// Of the dial numbered (from 0), sentences that help to tell the usual causes apart: did the peer ever connect, do others, was it dialled
// twice at once.
std::vector<std::string> cluesOn(std::size_t number, const std::vector<Dial>& dials);

// "6 ms", "1.7 s", "3 min 20 s", "2 h 5 min".
std::string spanText(std::int64_t milliseconds);

} // namespace logs
