// The peers that can be dialled and the computer's remote-access service, as peers.ini describes them.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include <ras.h>
#include <raserror.h>

#include <string>
#include <string_view>
#include <vector>

namespace standin {

struct Account {
    std::string user;
    std::string password;
};

// What a peer does when it is dialled.
struct Behaviour {
    enum class Kind {
        accepts,
        refuses,      // whoever dials
        neverAnswers, // until the dial is hung up
        disconnects,  // while authenticating
        unreachable,
        busy, // this computer is still dialling the entry, for the first `times` dials
        noPort,
        denies, // reports success, which the status then denies
        drops,  // ends the connection by itself
        fails,
    };

    Kind kind = Kind::accepts;
    DWORD code = 0;
    RASCONNSTATE state = RASCS_OpenPort; // of `fails`
    unsigned times = 0;                  // the first so many dials; 0: all
    bool isNotified = false;             // `busy` comes by notification, not as the result of the call
    unsigned milliseconds = 0;           // of `drops`, since the connection
    std::uint64_t fingerprint = 0;       // of the text; dials are counted anew when it changes
};

struct Peer {
    std::string address;           // as entries give it: a number or a name
    std::vector<Account> accounts; // none: anyone may dial
    unsigned latency = 0;          // ms from the call to its outcome
    std::string clientAddress;     // this side's on the link; empty: no IP was agreed
    std::string serverAddress;     // empty: the peer keeps it to itself
    Behaviour behaviour;

    bool admits(std::string_view user, std::string_view password) const;
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
    std::string error; // "file:line: what is wrong"; empty when all is well

    const Peer* find(std::string_view address) const;
};

// The present description, read afresh when its file has changed. A file that is not there describes nobody;
// an error in it is said once on standard error. Any thread may call.
std::shared_ptr<const Peers> currentPeers();

// A hash for names and fingerprints.
std::uint64_t hashOf(std::string_view text);

} // namespace standin
