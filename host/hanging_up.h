// Hanging up by the library, and looking what came of it.
#pragma once

#include <set>
#include <string>

struct HangUp {
    enum class End { gone, stillThere, outOfReach, unknown };
    End end;
    int times = 0;           // that the library hung it up
    unsigned long error = 0; // why it is unknown
};

// A peer that was dialled more than once has as many references in the service, each of which a hang-up
// drops; so it is hung up until it has gone, a few times. An init came before.
HangUp hangUp(const std::string& id);

// Those of `ids` that are connected. Hanging up one can bring another into the library's reach.
void hangUpAll(const std::set<std::string>& ids);
