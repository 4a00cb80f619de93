// The commands: what a person can say, on the program's command line and in a session alike. Each has a
// source of its name in commands/.
#pragma once

#include "claim.h"
#include "exit_code.h"
#include "library.h"
#include "outcome.h"

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
    bool inBackground = false;
    bool leaving = false; // the session is to end
    Library library = {};
    Claim computer = {};     // from init on
    bool alwaysJson = false; // of the whole session
    Telling telling = {console};
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

extern const Command dialCommand;
extern const Command hangUpCommand;
extern const Command entryCommand;
extern const Command forgetCommand;
extern const Command initCommand;
extern const Command statusCommand;
extern const Command watchCommand;
extern const Command cleanCommand;
extern const Command logCommand;
extern const Command doctorCommand;
extern const Command explainCommand;
extern const Command bundleCommand;
extern const Command sessionCommand; // of the program alone
extern const Command waitCommand;    // of a session alone, as those that follow
extern const Command helpCommand;
extern const Command quitCommand;

using Commands = std::span<const Command* const>;

// Those that the program and a session have, and those that a session has beside them.
Commands commonCommands();
Commands sessionCommands();

// The command of that name in a session; null when there is none.
const Command* findCommand(const std::string& name);

// For init and clean, which want nothing else to run beside them: with the rights for it and nobody else at
// it, after the dials in the background. Otherwise it tells why not.
bool mayWorkTheComputer(Context& context, const Command& command);
