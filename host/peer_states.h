// How the peers stand: those with a folder in the working folder, and any others that are connected.
#pragma once

#include <map>
#include <string>

struct PeerState {
    bool isConnected = false;
    std::string entry = {};   // in UTF-8
    std::string address = {}; // empty when no phonebook tells it

    bool operator==(const PeerState&) const = default;
};

struct PeerStates {
    unsigned long error = 0; // why the service does not tell
    std::map<std::string, PeerState> peers = {};
};

// How they stand now; as they stood before while the service does not tell. Phonebooks are read for what has
// connected since then alone.
PeerStates peerStates(const PeerStates& before);
