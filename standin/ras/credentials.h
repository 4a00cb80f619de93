// The credentials stored with entries, in credentials.dat of the state folder. An entry names its own by the
// key DialParamsUID. The caller holds the phonebook lock. Results are Windows error codes.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace standin {

// What callers get in place of a stored password, and may hand back in place of one.
inline constexpr char passwordHandle[] = "****************";

struct Credentials {
    std::string user;
    std::string domain;
    std::string callbackNumber;
    std::string sealedPassword; // empty: none is stored

    bool operator==(const Credentials&) const = default;
};

// What is stored under `id`; empty when nothing is.
Credentials storedCredentials(const std::string& id);
DWORD storeCredentials(const std::string& id, const Credentials& credentials);
DWORD forgetCredentials(const std::string& id);

// A password as it may lie in a file, readable on this computer only, and back. Both give nothing on failure.
std::string sealPassword(std::string_view password);
std::string openPassword(const std::string& sealed);

// Overwrites a text that held a secret.
void wipe(std::string& secret);

} // namespace standin
