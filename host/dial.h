// A dial, from the request to the line that tells its outcome.
#pragma once

#include "exit_code.h"
#include "password.h"

#include <string>

class Console;

struct DialRequest {
    std::string id; // checked
    std::string address;
    unsigned long ip; // the same in host byte order
    bool usePublicPhoneBook;
    bool requireEncryption;
    Password password;
};

struct DialEnd {
    unsigned long code;
    std::string entry; // of the active connection, in the ANSI code page; empty when none is found
    double seconds;
};

// Blocks until the library's dial has ended. Any thread.
DialEnd runDial(const DialRequest& request);

// Tells the outcome and what can be done about it.
ExitCode reportDial(const DialRequest& request, const DialEnd& end, Console& console);
