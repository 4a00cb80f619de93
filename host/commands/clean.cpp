#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "console.h"
#include "hanging_up.h"
#include "left_over.h"
#include "outcome.h"
#include "peer_folders.h"
#include "varnel/Varnel.h"

namespace {

// What the library's clean does for the known peers after a full init alone. Hanging up by id removes a
// phonebook even of a peer that is not connected.
void hangUpAndRemove(Context& context) {
    const bool prepared = context.library.isPrepared();
    context.library.initForDialling(context.console);
    const KnownPeers known = knownPeers();
    hangUpAll(known.ids);
    const Connections left = activeConnections();
    for (const std::string& id : known.ids)
        if (!prepared && !left.has(id) && !phonebookLeft(id).empty())
            VARNEL::dialDown(id);
}

ExitCode clean(Context& context) {
    if (!mayWorkTheComputer(context, cleanCommand))
        return ExitCode::failed;
    const bool onlyDials = context.library.onlyDials();
    {
        const ProgressLine progress(context.console, "clean: hanging up the known peers");
        const ToldHangUps told(context.console);
        if (!onlyDials)
            hangUpAndRemove(context);
        context.library.clean();
    }
    return tell(onlyDials ? Outcome{ExitCode::done, "clean", "done, nothing hung up after init --only-client"}
                          : whatStayed("clean", "done", context.console),
                context.telling);
}

constexpr const char* examples =
    R"(Hangs up the peers in the working folder. Before Windows Vista their entries and
phonebooks go as well; but entries of the phonebook of all users only if "init"
ran in the same session before, or while they are connected. After "init
--only-client" nothing is touched.

Example:
  varnel-host clean

Exit codes: 0 done, 2 wrong arguments, 5 a peer is still connected, for an
error as with "dial", 1 anything else)";

} // namespace

const Command cleanCommand = {"clean", "Hangs up all known peers and removes what was made for them",
                              examples, false, declareBare<clean>};
