#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "console.h"
#include "hanging_up.h"
#include "outcome.h"
#include "peer_folders.h"

#include <fmt/format.h>

namespace {

Outcome outcomeOf(const std::string& id, const HangUp& hungUp) {
    switch (hungUp.end) {
    case HangUp::End::unknown:
        return failure(id, "not surely hung up", hungUp.error);
    case HangUp::End::stillThere:
        return {ExitCode::notHungUp, id,
                fmt::format("still connected, though hung up {} times", hungUp.times)};
    case HangUp::End::outOfReach:
        return {.exit = ExitCode::notHungUp,
                .subject = id,
                .text = "still connected: the library looks at the first three active connections alone",
                .advice = "hang up another one first"};
    case HangUp::End::gone:
        break;
    }
    if (const std::string phonebook = phonebookLeft(id); !phonebook.empty())
        return {ExitCode::failed, id, fmt::format("hung up, but \"{}\" cannot be removed", phonebook)};
    return {ExitCode::done, id,
            hungUp.times > 1 ? fmt::format("hung up, {} times, as often as it was dialled", hungUp.times)
                             : "hung up"};
}

ExitCode hangUpPeer(const std::string& id, Context& context) {
    const Connections connections = activeConnections();
    if (connections.error != 0)
        return tell(failure(id, "not hung up", connections.error), context.telling);
    if (!connections.has(id))
        return tell({ExitCode::notFound, id, "nothing to hang up: it is not connected"}, context.telling);
    context.library.initForDialling(context.console);
    const HangUp hungUp = [&] {
        const ProgressLine progress(context.console, id + ": hanging up");
        return hangUp(id);
    }();
    return tell(outcomeOf(id, hungUp), context.telling);
}

constexpr const char* examples =
    R"(Hangs up as often as the peer was dialled. Before Windows Vista its entry and its
phonebook go as well. The library finds it among the first three active
connections.

Example:
  varnel-host hangup node7

Exit codes: 0 hung up, 2 wrong arguments, 5 still connected, 7 not
connected, 1 its phonebook stays; for an error as with "dial")";

} // namespace

const Command hangUpCommand = {"hangup", "Hangs up a peer's connection", examples, false,
                               declareForPeer<hangUpPeer>};
