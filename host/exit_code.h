// How the program tells a script what came of a command.
#pragma once

enum class ExitCode {
    done = 0,
    failed = 1,        // anything that no other code names
    usage = 2,         // the command or one of its arguments is wrong
    nobodyAnswers = 3, // by the error, or since no connection came in time
    notConnected = 4,  // refused, or for no cause that is known
    notHungUp = 5,     // the connection is still there
    service = 6,       // the remote-access service is not there, or does not work
    notFound = 7,      // no such peer or connection
    foundDoubtful = 8, // the doctor found something doubtful, and nothing wrong
    foundWrong = 9,    // the doctor found something wrong
    busyHere = 10,     // no free port, or another dial or program is at it
    computer = 11,     // something of this computer
};
