// Dialling: what RasDial and RasHangUp do once their arguments are in order.
#pragma once

#include <windows.h>
#include <ras.h>

#include <string>

namespace standin {

struct DialRequest {
    const char* phonebook; // null: the default ones
    std::string entryName;
    std::string user;
    std::string password;
    RASDIALFUNC2 notifier;
    ULONG_PTR callbackId;
};

// Dials on a thread of its own. The result is what RasDial returns; `handle` is set before the notifier is
// called, and left alone when there is no connection to hang up.
DWORD dial(const DialRequest& request, HRASCONN& handle);

DWORD hangUp(HRASCONN handle);

} // namespace standin
