#pragma once

#include "Varnel.h"

// The hang-up by peer id, for the operation of the host and for a dial-up that gives its first dial up.
class VARNEL::HangingUp {
  public:
    // As VARNEL::dialDown(id). The caller's own `dialled` connection becomes null when it is the one that is
    // hung up: that happens whatever is thrown, and to happen once it must not be the caller's any more.
    static bool peer(const std::string& id, HRASCONN& dialled);
};
