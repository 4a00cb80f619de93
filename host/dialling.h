// A dial, from the request to its outcome.
#pragma once

#include "claim.h"
#include "outcome.h"
#include "password.h"

#include <string>

struct DialRequest {
    std::string id; // checked
    std::string address;
    unsigned long ip; // the same in host byte order
    bool usePublicPhoneBook;
    bool requireEncryption;
    Password password;
    Claim claim = {};        // while it lasts nobody else dials the peer
    bool madeFolder = false; // the peer had none before
};

// Blocks until the library's dial has ended, and looks what came of it. A dial that never reached the service
// leaves no folder that was not there before. Any thread.
Outcome runDial(const DialRequest& request);
