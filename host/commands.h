// The commands: what a person can say, on the program's command line and in a session alike.
#pragma once

#include "exit_code.h"
#include "sole_host.h"

#include <functional>
#include <span>
#include <string>

class BackgroundDials;
class Console;
class Options;

enum class PasswordFrom { console, standardInput, fileOnly };

// What a command runs in.
struct Context {
    Console& console;
    BackgroundDials& background;
    PasswordFrom passwordFrom;     // where a dial finds its password when no file is named
    std::string passwordFile = {}; // of the whole session; may be empty
    std::string where = {};        // begins a message about a wrong command: the script and line
    int line = 0;
    bool inBackground = false;
    bool leaving = false; // the session is to end
    SoleHost soleHost = {};
};

using Action = std::function<ExitCode(Context&)>;

struct Command {
    const char* name;
    const char* summary;
    const char* examples;
    bool mayRunInBackground;
    // Adds the command's arguments to `options`; the action finds in them what was given.
    Action (*declare)(Options& options);
};

// Those that do something for a peer, those for the whole computer, and those that only a session has.
std::span<const Command> peerCommands();
std::span<const Command> computerCommands();
std::span<const Command> sessionCommands();

// The command of that name among all; null when there is none.
const Command* findCommand(const std::string& name);
