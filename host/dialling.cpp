#include "dialling.h"

#include "connections.h"
#include "interruption.h"
#include "log/clues.h"
#include "log/log_files.h"
#include "outside/Log.h"
#include "peer_folders.h"
#include "text.h"
#include "varnel/Varnel.h"

#include <chrono>
#include <exception>
#include <optional>

namespace {

// The library's shortest wait for the end of a dial. It reports no error when a wait runs out.
constexpr double shortestWaitSeconds = 10;

bool reachedService(unsigned long code) {
    return code != ERROR_INVALID_PARAMETER && !tellsOfMissingService(code);
}

// What the log says of the dial that this thread makes while one exists. Only a log of all levels, in a file,
// tells of it.
class LoggedDial {
  public:
    LoggedDial() {
        constexpr long allLevels = 3;
        if (LOG::level < allLevels)
            return;
        try {
            reader.emplace(logs::usualLog());
            reader->follow([](const logs::Record&) {}); // from here on
        } catch (const std::exception&) {
            reader.reset();
        }
    }

    std::optional<logs::Dial> found() {
        logs::DialReader dials;
        if (reader)
            reader->follow([&](const logs::Record& record) { dials.take(record); });
        for (const logs::Dial& dial : dials.finish())
            if (dial.process == GetCurrentProcessId() && dial.thread == GetCurrentThreadId())
                return dial;
        return std::nullopt;
    }

  private:
    std::optional<logs::LogReader> reader;
};

Phase phaseAt(logs::Stage stage) {
    switch (stage) {
    case logs::Stage::entry:
        return Phase::entry;
    case logs::Stage::port:
        return Phase::port;
    case logs::Stage::connection:
        return Phase::connection;
    case logs::Stage::authentication:
        return Phase::authentication;
    case logs::Stage::link:
        return Phase::link;
    case logs::Stage::confirmation:
        return Phase::confirmation;
    default:
        return Phase::unknown;
    }
}

// The entry of the peer's connection: one of the first three, as the library says, or any.
std::string entryOf(const std::string& id, const Connections& connections) {
    std::string entry = VARNEL::getCurrentEntryNameById(id);
    if (const auto place = connections.placeOf(id); entry.empty() && place)
        entry = connections.list[*place].entry;
    return utf8FromAnsi(entry);
}

// Of a dial that ended without an error, which does not say that it connected.
Outcome whatIsThere(const std::string& id, double seconds) {
    const Connections connections = activeConnections();
    if (connections.error != 0)
        return failure(id, "unknown, no error, but", connections.error);
    if (const std::string entry = entryOf(id, connections); !entry.empty())
        return {.exit = ExitCode::done, .subject = id, .text = "connected", .entry = entry};
    if (seconds < shortestWaitSeconds)
        return {.exit = ExitCode::notConnected,
                .subject = id,
                .text = "not connected: no error, but no connection",
                .advice = "dial again"};
    return {.exit = ExitCode::nobodyAnswers,
            .subject = id,
            .text = "not confirmed: no error, but no connection in time",
            .advice = "most likely it does not answer: check the address, and that the peer's server runs",
            .cause = Cause::nobodyAnswers};
}

// The log knows the phase that a dial ended in; without it the code may tell.
void tellPhase(Outcome& outcome, const std::optional<logs::Dial>& logged) {
    outcome.endedIn = logged && logged->endedIn ? phaseAt(*logged->endedIn)
                      : outcome.error != 0      ? phaseOf(outcome.error)
                                                : Phase::unknown;
    if (outcome.cause == Cause::nobodyAnswers && logged)
        if (const unsigned code = codeOfCauses(*logged))
            outcome.advice = explain(code, Language::english).advice;
    // The peer has no part in these.
    if (outcome.cause == Cause::nobodyAnswers &&
        (outcome.endedIn == Phase::port || outcome.endedIn == Phase::confirmation)) {
        outcome.cause = Cause::service;
        outcome.advice = "hang it up and dial again; if it comes back, restart the service RasMan";
    }
}

} // namespace

Outcome runDial(const DialRequest& request) {
    const Dialling running(request.id);
    LoggedDial logged;
    const auto start = std::chrono::steady_clock::now();
    const DWORD code = VARNEL::dialUp(request.id, request.password.text(), request.usePublicPhoneBook,
                                      request.requireEncryption, request.ip);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (code != 0 && request.madeFolder && !reachedService(code))
        removeFolder(request.id);
    Outcome outcome =
        code == 0 ? whatIsThere(request.id, elapsed.count()) : failure(request.id, "not connected", code);
    outcome.seconds = elapsed.count();
    if (outcome.exit != ExitCode::done)
        tellPhase(outcome, logged.found());
    return outcome;
}
