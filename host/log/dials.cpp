#include "log/dials.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace logs {
namespace {

using namespace std::chrono_literals;

constexpr unsigned invalidParameter = 87, noPort = 633, deviceError = 651, alreadyDialling = 756;
constexpr int mostTries = 3;
constexpr std::int32_t leastPause = 100; // ms
// How long a log of failures alone may say nothing of a dial that goes on.
constexpr auto patienceAfterTry = 15s;
constexpr auto patienceAfterTimeout = 1500ms;

// "harbor" of "harbor #3".
std::string_view peerOf(std::string_view entry) {
    const std::size_t mark = entry.rfind(" #");
    return entry.substr(0, mark);
}

// What stands in `text` between the two; nothing unless it begins with the first one.
std::optional<std::string_view> between(std::string_view text, std::string_view before,
                                        std::string_view after) {
    if (!text.starts_with(before))
        return std::nullopt;
    const std::size_t end = text.rfind(after);
    if (end == text.npos || end < before.size())
        return std::nullopt;
    return text.substr(before.size(), end - before.size());
}

unsigned numberBehind(std::string_view text, std::string_view mark) {
    const std::size_t at = text.rfind(mark);
    return at == text.npos ? 0 : Scanner(text.substr(at + mark.size())).number().value_or(0);
}

bool mayBeTriedAgain(unsigned code) {
    return code == noPort || code == deviceError || code == alreadyDialling;
}

bool isProgress(Stage stage) {
    return stage <= Stage::confirmation;
}

// Where the last attempt failed or stuck, else as far as it came.
std::optional<Stage> stageOfEnd(const Dial& dial) {
    std::optional<Stage> furthest = dial.endedIn;
    for (auto phase = dial.phases.rbegin(); phase != dial.phases.rend(); ++phase) {
        if (!isProgress(phase->stage) || phase->attempt != dial.phases.back().attempt)
            continue;
        if (phase->code != 0 || !phase->ended)
            return phase->stage;
        furthest = std::max(furthest, std::optional(phase->stage));
    }
    return furthest;
}

// Ends the phase that is under way. Between a try and what follows it there is always a moment, which is no
// pause.
void endPhase(Dial& dial, std::int32_t at) {
    if (dial.phases.empty())
        return;
    Phase& phase = dial.phases.back();
    phase.end = std::max(phase.begin, at);
    if (phase.stage == Stage::pause && phase.end - phase.begin < leastPause)
        dial.phases.pop_back();
}

Outcome outcomeOf(const Dial& dial, bool isConfirmed, bool endIsTold) {
    if (dial.traced && !endIsTold)
        return Outcome::unfinished;
    if (dial.code != 0)
        return Outcome::failed;
    if (dial.timedOut)
        return Outcome::unconfirmed;
    return isConfirmed ? Outcome::connected : Outcome::unconfirmed;
}

} // namespace

const std::string& DialReader::take(const Record& taken) {
    record = &taken;
    key = static_cast<ThreadKey>(taken.process) << 32 | taken.thread;
    thread = &threads[key];
    process = &processes[taken.process];
    if (thread->running && thread->running->patience != 0ms &&
        taken.time - thread->running->last > thread->running->patience)
        end(thread->running->last, true);

    Scanner words(taken.text);
    peer = thread->about;
    if (words.skip("==>>VARNEL::")) {
        const auto operation = words.until("(").value_or(words.rest);
        words.rest.remove_suffix(words.rest.ends_with(')'));
        entered(operation, words.rest);
    } else if (words.skip("<<== VARNEL::"))
        left(words.until("(").value_or(words.rest));
    else if (words.skip("rasDialFunc2: callback id "))
        notified(words);
    else
        told(taken.text);

    if (thread->running) {
        thread->running->last = taken.time;
        peer = dial().peer;
    } else if (peer.empty())
        peer = thread->about;
    if (!thread->running && thread->operation.empty())
        threads.erase(key);
    return peer;
}

std::vector<Dial> DialReader::finish() {
    for (auto& [ofThread, state] : threads) {
        thread = &state;
        key = ofThread;
        process = &processes[static_cast<unsigned>(ofThread >> 32)];
        if (state.running)
            end(state.running->last, false);
    }
    return std::move(dials);
}

void DialReader::entered(std::string_view operation, std::string_view arguments) {
    if (operation == "dialUp") {
        beginTraced(arguments);
        running().wholeDial = true;
        return;
    }
    if (operation == "dialUp2")
        return beginTry(arguments);
    if (operation == "dialUp3")
        return beginAttempt();
    if (thread->running) {
        if (operation == "dialDown")
            beginPhase(dial(), Stage::hangUp);
        return;
    }
    if (operation == "rasDialFunc2") {
        const Reported* report = attemptOf(Scanner(arguments).number().value_or(0), false);
        thread->operation = operation;
        thread->about = report == nullptr ? "" : dials[report->dial].peer;
    } else if (operation == "dialDown" || operation == "getCurrentEntryNameById") {
        thread->operation = operation;
        thread->about = arguments;
    }
}

void DialReader::left(std::string_view operation) {
    if (operation == thread->operation)
        thread->operation.clear();
    if (!thread->running)
        return;
    if (operation == "dialUp3")
        endAttempt();
    else if (operation == "dialDown" && dial().traced)
        beginPhase(dial(), Stage::entry);
    else if (operation == "dialUp2" && running().wholeDial)
        beginPhase(dial(), Stage::pause);
    else if (operation == "dialUp2" || operation == "dialUp")
        end(record->time, true);
}

DialReader::Running& DialReader::begin(std::string_view ofPeer, bool traced) {
    Dial& begun = dials.emplace_back();
    begun.process = record->process;
    begun.thread = record->thread;
    begun.peer = ofPeer;
    begun.began = record->time;
    begun.traced = traced;
    return thread->running.emplace(Running{.dial = dials.size() - 1, .last = record->time});
}

// A log of failures alone tells of no beginning.
DialReader::Running& DialReader::running() {
    return thread->running ? *thread->running : begin({}, false);
}

void DialReader::beginTraced(std::string_view arguments) {
    if (thread->running)
        end(running().last, false);
    const std::size_t mark = arguments.rfind(" ip ");
    begin(arguments.substr(0, mark), true);
    if (mark != arguments.npos)
        dial().address = arguments.substr(mark + 4);
}

void DialReader::beginTry(std::string_view arguments) {
    if (!thread->running || !running().wholeDial)
        beginTraced(arguments);
    ++dial().tries;
    dial().code = 0;
    beginPhase(dial(), Stage::entry);
}

void DialReader::beginAttempt() {
    Running& at = running();
    dial().traced = true;
    dial().entries.push_back(std::exchange(at.nextEntry, {}));
    dial().timedOut = false;
    dial().stamps = {};
    at.attempting = true;
    at.attemptFailed = at.attemptTimedOut = at.confirmed = false;
    at.callback.reset();
    at.ordinal = ++process->attempts;
    process->waiting.push_back(key);
    beginPhase(dial(), Stage::port);
}

void DialReader::endAttempt() {
    Running& at = running();
    if (!at.attempting)
        return;
    at.attempting = false;
    std::erase(process->waiting, key);
    if (at.callback && !at.attemptTimedOut) // else the service may go on to report
        process->reported.erase(*at.callback);
    if (!at.attemptFailed)
        beginPhase(dial(), Stage::confirmation);
}

// Where nothing tells of the whole dial's end, this may have been it.
void DialReader::endTry(unsigned code) {
    dial().code = code;
    if (dial().traced)
        return;
    if (++dial().tries < mostTries && mayBeTriedAgain(code))
        running().patience = patienceAfterTry;
    else
        end(record->time, true);
}

void DialReader::end(Time at, bool endIsTold) {
    const Running ended = running();
    Dial& of = dial();
    of.took = static_cast<std::int32_t>((at - of.began).count());
    if (ended.wholeDial && endIsTold && of.tries == 0)
        of.code = invalidParameter; // it was not even tried
    if (of.code != 0 && !of.phases.empty())
        fail(Stage::entry, of.code);
    of.outcome = outcomeOf(of, ended.confirmed, endIsTold);
    if (of.outcome == Outcome::unfinished && !of.phases.empty())
        of.phases.back().ended = false;
    endPhase(of, of.took);
    of.endedIn = stageOfEnd(of);
    if (of.outcome == Outcome::connected && !of.entries.empty())
        connections[of.entries.back()] = ended.dial;
    if (ended.attempting)
        std::erase(process->waiting, key);
    peer = of.peer;
    thread->running.reset();
}

void DialReader::nameEntry(std::string_view place) {
    const std::string_view entry = place.substr(place.find_last_of(",:") + 1);
    if (thread->running && !dial().peer.empty() && dial().peer != peerOf(entry) && !dial().traced)
        end(running().last, true);
    if (running(); dial().peer.empty())
        dial().peer = peerOf(entry);
    if (dial().entries.empty() || (!dial().traced && dial().entries.back() != entry))
        dial().entries.emplace_back();
    dial().entries.back() = entry;
}

// The attempt has failed: where nothing else tells in which stage, in that one.
void DialReader::fail(Stage stage, unsigned code) {
    Dial& of = dial();
    running().attemptFailed = true;
    if (!of.traced)
        of.endedIn = stage;
    const auto attempt = of.phases.empty() ? 0 : of.phases.back().attempt;
    for (auto phase = of.phases.rbegin(); phase != of.phases.rend() && phase->attempt == attempt; ++phase)
        if (phase->code != 0)
            return;
    for (auto phase = of.phases.rbegin(); phase != of.phases.rend(); ++phase)
        if (isProgress(phase->stage)) {
            phase->code = code;
            return;
        }
}

void DialReader::hungUp(const std::string& entry) {
    const auto found = connections.find(entry);
    if (found == connections.end())
        return;
    Dial& of = dials[found->second];
    of.hungUp = (record->time - of.began).count();
    connections.erase(found);
}

void DialReader::told(std::string_view text) {
    if (const auto entry = between(text, "dialdown ", " success"))
        return hungUp(std::string(*entry));
    toldOfDial(text);
}

// What only a thread that dials says.
void DialReader::toldOfDial(std::string_view text) {
    if (text.starts_with("=>RasHangUp")) {
        if (thread->running && dial().traced)
            beginPhase(dial(), Stage::hangUp);
    } else if (const auto stored = between(text, "RasSetEntryDialParams SUCCESS ", "")) {
        running().nextEntry = stored->substr(stored->rfind(':') + 1);
    } else if (const auto refused = between(text, "RasDial fail, error ", "")) {
        fail(Stage::port, Scanner(*refused).number().value_or(0));
    } else if (text == "dialUp3 TIMEOUT") {
        running().attemptTimedOut = dial().timedOut = true;
        running().patience = dial().traced ? 0ms : std::chrono::milliseconds(patienceAfterTimeout);
        if (!dial().phases.empty())
            dial().phases.back().ended = false;
    } else if (text.starts_with("Dial success, got pptp ip ")) {
        dial().linkAddress = text.substr(26);
    } else if (const auto confirmed = between(text, "", " RasDial must success")) {
        running().confirmed = true;
        nameEntry(*confirmed);
    } else if (const auto failed = between(text, "RasDial(", ")fail, error ")) {
        nameEntry(*failed);
        const unsigned code = numberBehind(text, ")fail, error ");
        fail(process->unclaimedCode == code ? process->unclaimedStage : Stage::port, code);
        process->unclaimedCode = 0;
    } else if (const auto second = between(text, "RasDial(", ") again fail, error ")) {
        nameEntry(*second);
        fail(Stage::port, numberBehind(text, ") again fail, error "));
    } else if (const auto denied = between(text, "RasDial(", "return success, but RasGetConnectStatus ")) {
        nameEntry(denied->substr(0, denied->rfind(')')));
        fail(Stage::confirmation, numberBehind(text, "RasGetConnectStatus return "));
    } else if (const auto again = between(text, "dialUp(", ") return ERROR_DIAL_ALREADY_IN_PROGRESS")) {
        nameEntry(*again);
        dial().redialled = true;
    } else if (const auto outcome = between(text, "", " pptp dial return ")) {
        dial().code = numberBehind(text, " pptp dial return ");
    } else if (text.starts_with("dialUp2 fail, error ")) {
        endTry(numberBehind(text, "dialUp2 fail, error "));
    } else if (text.starts_with("ask kestrin chg port") && thread->running && !dial().traced) {
        end(record->time, true);
    }
}

void DialReader::beginPhase(Dial& of, Stage stage) const {
    if (!of.phases.empty() && of.phases.back().stage == stage && stage != Stage::port)
        return;
    const std::int32_t at = sinceBegin(of);
    endPhase(of, at);
    const bool prepares = stage == Stage::entry || of.entries.empty();
    const auto attempt = static_cast<std::uint8_t>(of.entries.size() - (prepares ? 0 : 1));
    of.phases.push_back({stage, attempt, true, at, at, 0});
}

std::int32_t DialReader::sinceBegin(const Dial& of) const {
    return static_cast<std::int32_t>((record->time - of.began).count());
}

} // namespace logs
