// The active connections as the remote-access service lists them. Asking changes nothing and needs no init.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

struct Connections {
    struct Connection {
        std::string entry; // in the ANSI code page
        std::string peer;  // its id in lower case; empty for a connection that is no peer's
    };

    unsigned long error = 0; // why there is no list
    std::vector<Connection> list = {};

    // Where in the list the peer's connection stands, whatever the id's letter case.
    std::optional<size_t> placeOf(const std::string& id) const;
    bool has(const std::string& id) const { return placeOf(id).has_value(); }

    // The library looks at this many, the first ones.
    static constexpr size_t libraryReach = 3;
};

Connections activeConnections();
