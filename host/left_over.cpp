#include "left_over.h"

#include "connections.h"
#include "console.h"
#include "outside/Helper.h"
#include "peer_folders.h"
#include "text.h"

#include <fmt/format.h>

namespace {

// Whether anything has.
bool hasStayed(const std::string& id, const Connections& connections, Console& console) {
    if (const auto place = connections.placeOf(id)) {
        console.message(fmt::format("{}: still connected{}", id,
                                    *place < Connections::libraryReach
                                        ? ""
                                        : ": the library looks at the first three active connections alone"));
        return true;
    }
    const std::string phonebook = phonebookLeft(id);
    if (!phonebook.empty())
        console.message(fmt::format("{}: \"{}\" cannot be removed", id, phonebook));
    return !phonebook.empty();
}

} // namespace

Outcome whatStayed(const std::string& subject, const std::string& done, Console& console) {
    const KnownPeers known = knownPeers();
    if (known.error != 0)
        return {ExitCode::failed, subject,
                fmt::format("{}, but no peer was hung up: the working folder \"{}\" cannot be read: {}", done,
                            utf8FromAnsi(GetWorkingPath()), systemMessage(known.error))};
    const Connections connections = activeConnections();
    if (connections.error != 0)
        return failure(subject, done + ", but who is connected is unknown", connections.error);
    size_t stayed = 0;
    bool connected = false;
    for (const std::string& id : known.ids) {
        stayed += hasStayed(id, connections, console);
        connected = connected || connections.has(id);
    }
    if (stayed == 0)
        return {ExitCode::done, subject, done};
    return {connected ? ExitCode::notHungUp : ExitCode::failed, subject,
            fmt::format("{}, but something of {} peer{} has stayed", done, stayed, stayed == 1 ? "" : "s")};
}
