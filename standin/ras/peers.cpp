#include "standin/ras/peers.h"

#include "standin/ras/section_file.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <set>

namespace standin {
namespace {

// The system starts the connection manager for whoever calls, unless it is disabled or not installed.
bool isManagerStartable() {
    DWORD startType = SERVICE_DISABLED;
    DWORD size = sizeof startType;
    RegGetValueA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\RasMan", "Start", RRF_RT_REG_DWORD,
                 nullptr, &startType, &size);
    return startType != SERVICE_DISABLED;
}

} // namespace

bool Peer::admits(const std::string& user, const std::string& password) const {
    return accounts.empty() || std::any_of(accounts.begin(), accounts.end(), [&](const Account& account) {
               return equalNames(account.user, user) && account.password == password;
           });
}

const Peer* Peers::find(const std::string& address) const {
    const auto peer = std::find_if(peers.begin(), peers.end(),
                                   [&](const Peer& each) { return equalNames(each.address, address); });
    return peer == peers.end() ? nullptr : &*peer;
}

bool Peers::isServiceUp() const {
    return service.isRunning && isManagerStartable();
}

void tellOnce(const std::string& text) {
    static std::mutex lock;
    static std::set<std::string> told;
    const std::lock_guard guard(lock);
    if (told.insert(text).second)
        std::fprintf(stderr, "%s\n", text.c_str());
}

} // namespace standin
