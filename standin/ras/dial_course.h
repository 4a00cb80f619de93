// The course that a dial takes: its states up to the outcome, with the time that passes before each.
#pragma once

#include "standin/ras/peers.h"

#include <windows.h>
#include <ras.h>

#include <vector>

namespace standin {

// The states in their usual order, and how peers.ini calls them.
struct DialState {
    const char* name;
    RASCONNSTATE state;
};

inline constexpr DialState usualStates[] = {
    {"OpenPort", RASCS_OpenPort},
    {"PortOpened", RASCS_PortOpened},
    {"ConnectDevice", RASCS_ConnectDevice},
    {"DeviceConnected", RASCS_DeviceConnected},
    {"AllDevicesConnected", RASCS_AllDevicesConnected},
    {"Authenticate", RASCS_Authenticate},
    {"AuthNotify", RASCS_AuthNotify},
    {"Authenticated", RASCS_Authenticated},
    {"AuthProject", RASCS_AuthProject},
    {"Projected", RASCS_Projected},
    {"Connected", RASCS_Connected},
};

struct DialStep {
    RASCONNSTATE state;
    DWORD error;
    DWORD pause; // ms before it; INFINITE: it comes only by a hang-up
};

// Half the latency passes while the device connects and half while the peer authenticates; a course that ends
// early has waited the whole latency all the same. The last step is the outcome.
std::vector<DialStep> courseOf(const Behaviour& behaviour, unsigned latency);

} // namespace standin
