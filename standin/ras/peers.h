// The peers that can be dialled and the computer's remote-access service, as peers.ini describes them.
#pragma once

#include <windows.h>
#include <ras.h>
#include <raserror.h>

#include <string>
#include <vector>

namespace standin {

struct Account {
    std::string user;
    std::string password;
};

// How a dial goes.
struct Behaviour {
    enum class Ending {
        told,    // in `state`, with `error` or none
        refused, // the call gives the error, and nothing is dialled
        never,   // the dial stays in `state` until it is hung up
        denied,  // success is told, of which the status then says `error`
    };

    RASCONNSTATE state = RASCS_Connected;
    DWORD error = ERROR_SUCCESS;
    Ending ending = Ending::told;
    unsigned times = 0;     // the first so many dials; 0: all
    unsigned dropAfter = 0; // ms after which a connection breaks by itself; 0: it stays
    std::string text = {};  // as the peer is described
};

struct Peer {
    std::string address;           // as entries give it: a number or a name
    std::vector<Account> accounts; // none: anyone may dial
    unsigned latency = 0;          // ms from the call to its outcome
    std::string clientAddress;     // this side's on the link; empty: no IP was agreed
    std::string serverAddress;     // empty: the peer keeps it to itself
    Behaviour behaviour;

    bool admits(const std::string& user, const std::string& password) const;
};

struct Service {
    bool isRunning = true;
    unsigned ports = 128;
    unsigned latency = 20;         // ms, of peers that give none and of addresses that nobody described
    unsigned hangUpLinger = 200;   // ms for which a handle outlives its hang-up
    unsigned brokenLinkLinger = 0; // ms for which a handle outlives a link that broke by itself
    DWORD unreachableCode = ERROR_AUTOMATIC_VPN_FAILED;
    bool listsDialing = false;        // enumeration shows connections still being dialled
    bool failedDialHoldsPort = false; // until it is hung up
    bool notifiesHangUp = false;      // a last RASCS_Disconnected when a dial is hung up
};

struct Peers {
    Service service;
    std::vector<Peer> peers;
    std::string mistake; // "file:line: what is wrong"; empty when all is well
    bool isFileThere = true;

    const Peer* find(const std::string& address) const;
    // Whether the service that keeps connections does its work.
    bool isServiceUp() const;
};

// The present description, read afresh. A mistake in it is told.
Peers currentPeers();

// Says something on standard error, once in the life of the process.
void tellOnce(const std::string& text);

} // namespace standin
