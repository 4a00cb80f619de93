#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "outcome.h"
#include "text.h"

#include <fmt/format.h>

namespace {

Outcome entryOf(const std::string& id) {
    const Connections connections = activeConnections();
    const auto place = connections.placeOf(id);
    if (connections.error != 0)
        return failure(id, "entry unknown", connections.error);
    if (!place)
        return {ExitCode::notFound, id, "no entry: it is not connected"};
    return {.exit = ExitCode::done,
            .subject = id,
            .text = "",
            .entry = utf8FromAnsi(connections.list[*place].entry)};
}

ExitCode showEntry(const std::string& id, Context& context) {
    return tell(entryOf(id), context.telling);
}

constexpr const char* examples =
    R"(Asks the service for its active connections and changes nothing.

Example:
  varnel-host entry node7

Exit codes: 0 found, 2 wrong arguments, 7 not connected; for an
error as with "dial")";

} // namespace

const Command entryCommand = {"entry", "Tells the entry of a peer's active connection", examples, false,
                              declareForPeer<showEntry>};
