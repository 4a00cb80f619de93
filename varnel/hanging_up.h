#pragma once

#include "Varnel.h"

// What the hang-ups share: that of a peer, for the operation of the host and for a dial-up that gives its first
// dial up, and that of several connections.
class VARNEL::HangingUp {
  public:
    // As VARNEL::dialDown(id). The caller's own `dialled` connection becomes null when it is the one that is
    // hung up: that happens whatever is thrown, and to happen once it must not be the caller's any more.
    static bool peer(const std::string& id, HRASCONN& dialled);

    // Hangs up those of the first connections that `wanted` picks, by handle and entry name.
    template<class Wanted>
    static bool each(Wanted wanted);
};
