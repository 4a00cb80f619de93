// Dialling: what RasDial and RasHangUp do once their arguments are in order.
#pragma once

#include "standin/ras/notifier.h"

#include <windows.h>
#include <ras.h>

#include <string>

namespace standin {

struct DialRequest {
    const char* phonebook; // null: the default ones
    std::string entryName; // empty: only the number counts
    std::string number;    // empty: the entry's
    std::string user;
    std::string password; // or the handle of the stored one
    Notifier notifier;
};

// Dials on a thread of its own, or without a notifier on this one. The result is what RasDial returns;
// `handle` is set before the notifier is called, and left alone when there is no connection to hang up.
DWORD dial(DialRequest& request, HRASCONN& handle);

// Hangs up. From within the notifier of the same dial it takes effect when the notifier has returned.
DWORD hangUp(HRASCONN handle);

} // namespace standin
