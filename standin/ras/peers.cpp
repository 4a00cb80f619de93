#include "standin/ras/peers.h"

#include "standin/ras/section_file.h"

#include <algorithm>

namespace standin {

bool Peer::admits(std::string_view user, std::string_view password) const {
    return accounts.empty() || std::any_of(accounts.begin(), accounts.end(), [&](const Account& account) {
               return equalNames(account.user, user) && account.password == password;
           });
}

const Peer* Peers::find(std::string_view address) const {
    const auto peer = std::find_if(peers.begin(), peers.end(),
                                   [&](const Peer& each) { return equalNames(each.address, address); });
    return peer == peers.end() ? nullptr : &*peer;
}

std::uint64_t hashOf(std::string_view text) {
    std::uint64_t hash = 0xCBF29CE484222325; // FNV-1a
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return hash;
}

} // namespace standin
