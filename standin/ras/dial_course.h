// The course that a dial takes: the states it passes through, with the time that passes before each, to its
// outcome.
#pragma once

#include "standin/ras/peers.h"

#include <windows.h>
#include <ras.h>

#include <string_view>
#include <vector>

namespace standin {

struct DialStep {
    RASCONNSTATE state;
    DWORD error;
    DWORD pause; // ms before it; INFINITE: it comes only by a hang-up
};

struct DialCourse {
    // Non-zero: the call returns this, and nothing is dialled.
    DWORD refusal = ERROR_SUCCESS;
    // The last one is the outcome: RASCS_Connected without an error, RASCS_Disconnected, or an error.
    std::vector<DialStep> steps;
    DWORD denial = ERROR_SUCCESS; // what the status says of a success
    unsigned dropAfter = 0;       // ms after the connection; 0: the link stays
};

// The states in their usual order, from RASCS_OpenPort to RASCS_Connected.
const std::vector<RASCONNSTATE>& usualStates();

struct DialFacts {
    bool hasPort;    // one of the computer's ports was free
    bool isAdmitted; // the peer knows the user and the password
    bool isAffected; // the behaviour applies to this dial, by its number
};

// The course of a dial of `peer`, null when nobody described the address.
DialCourse planDial(const Peer* peer, const Service& service, const DialFacts& facts);

} // namespace standin
