#include "log/clues.h"

#include "words/explain.h"

#include <fmt/format.h>

#include <algorithm>

namespace logs {
namespace {

constexpr auto sameTime = std::chrono::minutes(10);
constexpr unsigned noPort = 633, noTunnel = 800, noPackets = 806;

std::string seconds(std::int64_t milliseconds) {
    return fmt::format("{}.{:03} s", milliseconds / 1000, milliseconds % 1000);
}

bool isUpAt(const Dial& dial, Time time) {
    return dial.outcome == Outcome::connected && dial.ended() <= time &&
           (!dial.hungUp || dial.began + std::chrono::milliseconds(*dial.hungUp) > time);
}

// The dial of another peer that connected nearest in time to this one, if that is near.
const Dial* nearestOther(const Dial& dial, const std::vector<Dial>& dials) {
    const Dial* nearest = nullptr;
    const auto distance = [&](const Dial& other) {
        return dial.began > other.began ? dial.began - other.began : other.began - dial.began;
    };
    for (const Dial& other : dials)
        if (other.outcome == Outcome::connected && other.peer != dial.peer && distance(other) <= sameTime &&
            (nearest == nullptr || distance(other) < distance(*nearest)))
            nearest = &other;
    return nearest;
}

std::string history(std::size_t number, const std::vector<Dial>& dials) {
    const std::string& peer = dials[number].peer;
    int since = 0;
    for (std::size_t i = number; i-- > 0;) {
        if (dials[i].peer != peer)
            continue;
        if (dials[i].outcome == Outcome::connected)
            return fmt::format("{} connected last at {} (dial {}){}.", peer, toSeconds(dials[i].began), i + 1,
                               since == 0 ? "" : fmt::format(", and failed {} times since", since));
        ++since;
    }
    return fmt::format("No dial of {} before this one has connected, as far as the log goes back{}.", peer,
                       since == 0 ? "" : fmt::format("; {} failed", since));
}

} // namespace

const char* nameOf(Stage stage) {
    constexpr const char* names[] = {"entry", "port",         "connection", "authentication",
                                     "link",  "confirmation", "hang-up",    "pause"};
    return names[static_cast<std::size_t>(stage)];
}

const char* nameOf(Outcome outcome) {
    constexpr const char* names[] = {"connected", "failed", "unconfirmed", "unfinished"};
    return names[static_cast<std::size_t>(outcome)];
}

std::string spanText(std::int64_t milliseconds) {
    const std::int64_t wholeSeconds = milliseconds / 1000;
    if (milliseconds < 1000)
        return fmt::format("{} ms", milliseconds);
    if (wholeSeconds < 100)
        return fmt::format("{}.{} s", wholeSeconds, milliseconds / 100 % 10);
    if (wholeSeconds < 3600)
        return fmt::format("{} min {} s", wholeSeconds / 60, wholeSeconds % 60);
    return fmt::format("{} h {} min", wholeSeconds / 3600, wholeSeconds / 60 % 60);
}

std::string whatHappened(const Dial& dial) {
    switch (dial.outcome) {
    case Outcome::connected:
        return "It connected.";
    case Outcome::failed:
        return fmt::format("Error {}: {}.", dial.code, explain(dial.code, Language::english).meaning);
    case Outcome::unconfirmed:
        return "The service reported no end in time, and the library stops waiting then.";
    default:
        return "The log ends, or its process did, while the dial was under way.";
    }
}

unsigned codeOfCauses(const Dial& dial) {
    if (dial.outcome != Outcome::unconfirmed)
        return dial.code;
    if (dial.endedIn == Stage::connection)
        return noTunnel;
    return dial.endedIn == Stage::authentication || dial.endedIn == Stage::link ? noPackets : 0;
}

std::string howFar(const Dial& dial) {
    const auto reached = dial.stamps.serverReached;
    const std::string afterReaching = reached ? " after " + seconds(*reached) : std::string();
    if (!dial.endedIn)
        return "The log does not tell; at level 3 it would.";
    switch (*dial.endedIn) {
    case Stage::entry:
        return "It was not dialled: no phonebook entry could be prepared.";
    case Stage::port:
        return "It did not get past the port: nothing was sent to the server.";
    case Stage::connection:
        return "A port was opened, but the server was not reached.";
    case Stage::authentication:
        return "The server was reached" + afterReaching + "; the dial ended while authenticating.";
    case Stage::link:
        return "The server let the user in; the two sides did not agree on the link.";
    default:
        if (dial.timedOut)
            return "The link was up, and the service did not say so in time.";
        return "The service said that the link is up, and denied it when asked a second later.";
    }
}

std::vector<std::string> cluesOn(std::size_t number, const std::vector<Dial>& dials) {
    const Dial& dial = dials[number];
    std::vector<std::string> clues;
    if (dial.late)
        clues.push_back(fmt::format("The service went on after the library had stopped waiting: {} at {}.",
                                    dial.late->connected   ? "connected"
                                    : dial.late->code != 0 ? fmt::format("error {}", dial.late->code)
                                                           : fmt::format("in {}", nameOf(dial.late->stage)),
                                    seconds(dial.late->at)));
    if (!dial.peer.empty())
        clues.push_back(history(number, dials));
    if (const Dial* other = nearestOther(dial, dials))
        clues.push_back(
            fmt::format("{} connected at {}: this computer can dial.", other->peer, toSeconds(other->began)));
    for (std::size_t i = 0; i < dials.size(); ++i)
        if (i != number && dials[i].peer == dial.peer && !dial.peer.empty() &&
            dials[i].began < dial.ended() && dial.began < dials[i].ended())
            clues.push_back(fmt::format("Dial {} of the same peer was under way.", i + 1));
    if (dial.code == noPort)
        clues.push_back(fmt::format(
            "{} connections of this log were up.",
            std::ranges::count_if(dials, [&](const Dial& other) { return isUpAt(other, dial.began); })));
    return clues;
}

} // namespace logs
