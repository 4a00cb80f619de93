// What the remote-access service is asked without changing anything.
#pragma once

#include "ras_records.h"

#include <optional>

struct LinkStatus {
    DWORD queryError; // of the query itself
    DWORD linkError;  // of the connection, when the query worked
};

LinkStatus linkStatus(HRASCONN conn);

// The connection's own address on its link, dotted; nothing when it has none or it cannot be read.
std::optional<std::string> pppAddress(HRASCONN conn);

// The service's text for a code, which must fit `Room` characters; empty when it has none.
template<std::size_t Room>
std::string errorText(DWORD error) {
    char text[Room] = {};
    RasGetErrorStringA(error, text, Room);
    return textOfField(text);
}
