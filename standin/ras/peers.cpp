#include "standin/ras/peers.h"

#include "standin/ras/section_file.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <optional>
#include <set>

namespace standin {
namespace {

std::optional<DWORD> startTypeOf(const std::string& service) {
    const std::string key = "SYSTEM\\CurrentControlSet\\Services\\" + service;
    DWORD startType = 0;
    DWORD size = sizeof startType;
    const LSTATUS error =
        RegGetValueA(HKEY_LOCAL_MACHINE, key.c_str(), "Start", RRF_RT_REG_DWORD, nullptr, &startType, &size);
    return error == ERROR_SUCCESS ? std::optional(startType) : std::nullopt;
}

// A prefix that was never made into a computer with remote access has none of the services, and lacks none.
bool isManagerUsable() {
    const std::optional<DWORD> startType = startTypeOf("RasMan");
    return startType ? *startType != SERVICE_DISABLED : !startTypeOf("RemoteAccess");
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

bool Peers::canConnect() const {
    return mistake.empty() && service.isRunning && isManagerUsable();
}

void tellOnce(const std::string& text) {
    static std::mutex lock;
    static std::set<std::string> told;
    const std::lock_guard guard(lock);
    if (told.insert(text).second)
        std::fprintf(stderr, "%s\n", text.c_str());
}

} // namespace standin
