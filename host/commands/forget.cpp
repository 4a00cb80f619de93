#include "claim.h"
#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "outcome.h"
#include "peer_folders.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

bool isKnown(const std::string& id) {
    return std::ranges::any_of(knownPeers().ids,
                               [&](const std::string& known) { return lowCase(known) == lowCase(id); });
}

Outcome forgetPeer(const std::string& id) {
    Claim dial;
    if (!isKnown(id))
        return {ExitCode::notFound, id, "not known: it has no folder in the working folder"};
    if (!dial.take(dialOf(id)))
        return failure(id, "not forgotten: it is being dialled", Cause::busyHere);
    if (activeConnections().has(id))
        return {.exit = ExitCode::notHungUp,
                .subject = id,
                .text = "not forgotten: it is connected",
                .advice = "hang it up first"};
    if (const std::string why = removeFolder(id); !why.empty())
        return {ExitCode::failed, id, "not forgotten: " + why};
    return {ExitCode::done, id, "forgotten"};
}

ExitCode forget(const std::string& id, Context& context) {
    return tell(forgetPeer(id), context.telling);
}

constexpr const char* examples =
    R"(Removes the peer's folder from the working folder, and its phonebook with it. An
entry in the phonebook of all users stays.

Example:
  varnel-host forget nodd7

Exit codes: 0 forgotten, 2 wrong arguments, 5 still connected, 7 no such peer,
10 it is being dialled, 1 anything else)";

} // namespace

const Command forgetCommand = {"forget", "Removes a peer's folder, so that it is no known peer", examples,
                               false, declareForPeer<forget>};
