#include "dialling.h"

#include "connections.h"
#include "interruption.h"
#include "peer_folders.h"
#include "text.h"
#include "varnel/Varnel.h"

#include <fmt/format.h>

#include <chrono>

namespace {

// The library's shortest wait for the end of a dial. It reports no error when a wait runs out.
constexpr double shortestWaitSeconds = 10;

bool reachedService(unsigned long code) {
    return code != ERROR_INVALID_PARAMETER && exitCodeOf(code) != ExitCode::serviceMissing;
}

// The entry of the peer's connection: one of the first three, as the library says, or any.
std::string entryOf(const std::string& id, const Connections& connections) {
    std::string entry = VARNEL::getCurrentEntryNameById(id);
    if (const auto place = connections.placeOf(id); entry.empty() && place)
        entry = connections.list[*place].entry;
    return utf8FromAnsi(entry);
}

// Of a dial that ended without an error, which does not say that it connected.
Outcome whatIsThere(const DialRequest& request, double seconds) {
    const std::string& id = request.id;
    const Connections connections = activeConnections();
    if (connections.error != 0)
        return failure(id, fmt::format("unknown, no error after {:.1f} s, but", seconds), connections.error);
    if (const std::string entry = entryOf(request.id, connections); !entry.empty())
        return {ExitCode::done, id, fmt::format("connected, entry \"{}\", {:.1f} s", entry, seconds)};
    if (seconds < shortestWaitSeconds)
        return {.exit = ExitCode::notConnected,
                .subject = id,
                .text = fmt::format("not connected: no error after {:.1f} s, but no connection", seconds),
                .advice = "dial again"};
    return {.exit = ExitCode::timedOut,
            .subject = id,
            .text = fmt::format("not confirmed: no error, but no connection after {:.1f} s", seconds),
            .advice = "most likely it does not answer: check the address, and that the peer's server runs"};
}

} // namespace

Outcome runDial(const DialRequest& request) {
    const Uninterruptible running;
    const auto start = std::chrono::steady_clock::now();
    const DWORD code = VARNEL::dialUp(request.id, request.password.text(), request.usePublicPhoneBook,
                                      request.requireEncryption, request.ip);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (code == 0)
        return whatIsThere(request, elapsed.count());
    if (request.madeFolder && !reachedService(code))
        removeFolder(request.id);
    return failure(request.id, "not connected", code);
}
