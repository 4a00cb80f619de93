// How the program tells a script what came of a command.
#pragma once

enum class ExitCode {
    done = 0,
    failed = 1,         // anything that no other code names
    usage = 2,          // the command or one of its arguments is wrong
    timedOut = 3,       // no error, but no connection after the wait
    notConnected = 4,   // the service gave an error
    notHungUp = 5,      // the connection is still there
    serviceMissing = 6, // the remote-access service is not there
    notFound = 7,       // no such peer or connection
    foundDoubtful = 8,  // the doctor found something doubtful, and nothing wrong
    foundWrong = 9,     // the doctor found something wrong
};
