// The TCP port of PPTP's control connections.
#pragma once

#include <string>

inline constexpr unsigned short pptpControlPort = 1723;

struct PortHolder {
    bool isFree;
    std::string words; // "free", or who holds it
};

// On this computer, on every address.
PortHolder holderOfControlPort();
