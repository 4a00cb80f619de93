#include "peer_states.h"

#include "connections.h"
#include "peer_folders.h"
#include "phonebook_file.h"
#include "text.h"

#include <algorithm>
#include <set>

namespace {

std::string addressOf(const std::string& id, const std::string& entry) {
    for (const auto& file : {privatePhonebook(id), publicPhonebook()}) {
        const Phonebook phonebook = readPhonebook(file);
        const auto found = std::ranges::find(phonebook.entries, entry, &PhonebookEntry::name);
        if (found != phonebook.entries.end())
            return found->address;
    }
    return {};
}

PeerState stateOf(const std::string& id, const Connections& connections, const PeerStates& before) {
    const auto place = connections.placeOf(id);
    if (!place)
        return {};
    const std::string entry = utf8FromAnsi(connections.list[*place].entry);
    const auto known = before.peers.find(id);
    if (known != before.peers.end() && known->second.entry == entry)
        return known->second;
    return {true, entry, addressOf(id, entry)};
}

} // namespace

PeerStates peerStates(const PeerStates& before) {
    const Connections connections = activeConnections();
    if (connections.error != 0)
        return {connections.error, before.peers};
    PeerStates now;
    std::set<std::string> seen;
    for (const std::string& id : knownPeers().ids) {
        now.peers.emplace(id, stateOf(id, connections, before));
        seen.insert(lowCase(id));
    }
    for (const Connections::Connection& connection : connections.list)
        if (!connection.peer.empty() && seen.insert(connection.peer).second)
            now.peers.emplace(connection.peer, stateOf(connection.peer, connections, before));
    return now;
}
