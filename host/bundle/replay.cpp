#include "bundle/replay.h"

#include "log/clues.h"
#include "words/explain.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace {

using logs::Dial;
using logs::Phase;
using logs::Stage;

constexpr std::uint32_t disconnected = 617; // the library's word for an end without an error
constexpr int longestLatency = 9'000;       // ms; the library waits no less than 10 s

// How an attempt of the service went.
struct Attempt {
    std::optional<Stage> failedIn;
    std::uint32_t code = 0;
    std::int32_t took = 0;

    bool failed() const { return failedIn.has_value(); }
};

bool isProgress(const Phase& phase) {
    return phase.stage >= Stage::port && phase.stage <= Stage::confirmation;
}

std::vector<Attempt> attemptsOf(const Dial& dial) {
    std::vector<Attempt> attempts;
    for (const Phase& phase : dial.phases) {
        if (!isProgress(phase))
            continue;
        attempts.resize(std::max(attempts.size(), phase.attempt + std::size_t{1}));
        Attempt& attempt = attempts[phase.attempt];
        if (phase.stage != Stage::confirmation)
            attempt.took += phase.end - phase.begin;
        if (phase.code != 0) {
            attempt.failedIn = phase.stage;
            attempt.code = phase.code;
        }
    }
    if (attempts.empty() && dial.code != 0) // a log of failures alone
        attempts = {{dial.endedIn.value_or(Stage::connection), dial.code, 0}};
    return attempts;
}

const char* stateOf(const Attempt& attempt) {
    switch (*attempt.failedIn) {
    case Stage::connection:
        return "ConnectDevice";
    case Stage::authentication:
        return causeOf(attempt.code) == Cause::refused ? "AuthNotify" : "Authenticate";
    case Stage::link:
        return "AuthProject";
    default:
        return "OpenPort";
    }
}

// The stand-in fails in one way, the first times or always.
std::string behaviourOf(const Dial& dial, const std::vector<Attempt>& attempts) {
    const auto failed = std::ranges::find_if(attempts, &Attempt::failed);
    if (dial.timedOut)
        return "never-answers";
    if (failed == attempts.end())
        return dial.code == disconnected ? "disconnects" : "accepts";
    if (failed->code == disconnected)
        return "disconnects";
    if (failed->failedIn == Stage::confirmation)
        return fmt::format("denies {}", failed->code);
    const auto times = std::ranges::count_if(attempts, &Attempt::failed);
    const bool everyTime = dial.outcome != logs::Outcome::connected;
    return fmt::format("fails {} at {}{}", failed->code, stateOf(*failed),
                       everyTime ? "" : fmt::format(" {} times", times));
}

std::string describe(const Dial& dial) {
    std::string text = fmt::format("{}: {}", dial.peer, nameOf(dial.outcome));
    if (dial.code != 0)
        text += fmt::format(", error {} {}", dial.code, explain(dial.code, Language::english).name);
    if (dial.outcome != logs::Outcome::connected && dial.endedIn)
        text += fmt::format(", in {}", nameOf(*dial.endedIn));
    return text + (dial.redialled ? ", redialled" : "");
}

// Why the stand-in cannot make the dial again; empty when it can.
std::string obstacleTo(const Dial& dial) {
    if (dial.peer.empty())
        return "the log does not name the peer";
    if (dial.outcome == logs::Outcome::unfinished)
        return "the log does not tell of its end";
    if (dial.traced && dial.tries == 0)
        return "it never reached the service";
    return {};
}

} // namespace

Replay replayOf(std::span<const Dial> dials) {
    Replay replay;
    replay.peers =
        "; The peers of a log, as the stand-in of remote access is to play them: one for each dial.\n"
        "[service]\nhang-up-linger = 0\n";
    int number = 0;
    for (const Dial& dial : dials) {
        const std::string what = fmt::format("{} {}", logs::toSeconds(dial.began), describe(dial));
        if (const std::string obstacle = obstacleTo(dial); !obstacle.empty()) {
            replay.session += fmt::format("# {}; {}\n", what, obstacle);
            continue;
        }
        const std::string address = fmt::format("10.255.{}.{}", number / 256, number % 256);
        ++number;
        const auto attempts = attemptsOf(dial);
        const int latency = attempts.empty() ? 0 : std::min(attempts.back().took, longestLatency);
        replay.peers +=
            fmt::format("\n; {} at {}\n[{}]\nlatency = {}\nbehaviour = {}\n", what,
                        dial.address.empty() ? "an address that the log does not name" : dial.address,
                        address, latency, behaviourOf(dial, attempts));
        replay.session += fmt::format("# {}\ndial {} {}\n", what, dial.peer, address);
        if (dial.outcome == logs::Outcome::connected)
            replay.session += fmt::format("hangup {}\n", dial.peer);
        replay.dials += describe(dial) + "\n";
    }
    return replay;
}
