// A log's dials as a description for the stand-in of remote access (docs/standin-ras.md), with which they
// come out the same way on a developer's computer.
#pragma once

#include "log/dials.h"

#include <span>
#include <string>

struct Replay {
    std::string peers;   // peers.ini: each dial has an address of its own
    std::string session; // a script for the host
    std::string dials;   // what must come of it, a dial a line
};

Replay replayOf(std::span<const logs::Dial> dials);
