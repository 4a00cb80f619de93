// What the service reports of a dial, on threads of its own: which dial that is, and how far it has come.
#include "log/dials.h"

#include <algorithm>
#include <iterator>

namespace logs {
namespace {

struct Reached {
    std::string_view state;
    Stage stage;
};

constexpr Reached reachedBy[] = {
    {"Opening port...", Stage::port},
    {"Port opened.", Stage::port},
    {"Connecting device...", Stage::connection},
    {"Device connected.", Stage::authentication},
    {"All devices connected.", Stage::authentication},
    {"Authenticating...", Stage::authentication},
    {"Authentication notify.", Stage::authentication},
    {"Authentication complete.", Stage::link},
    {"Projection phase started...", Stage::link},
    {"Projection completed.", Stage::link},
    {"Connection completed.", Stage::confirmation},
};

// Of a state that is none of a dial's usual ones: the first, which moves nothing.
Stage stageOf(std::string_view state) {
    const auto known =
        std::ranges::find_if(reachedBy, [&](const Reached& reached) { return reached.state == state; });
    return known == std::end(reachedBy) ? Stage::entry : known->stage;
}

} // namespace

void DialReader::notified(Scanner words) {
    const auto callback = words.number();
    words.skip(", state ");
    const auto state = words.until(", error ");
    const auto code = words.number();
    if (!callback || !state || !code)
        return;
    const Reported* report = attemptOf(*callback, *state == reachedBy[0].state);
    Stage stage = stageOf(*state);
    if (report == nullptr) {
        process->unclaimedCode = *code;
        process->unclaimedStage = stage;
        return;
    }
    Dial& of = dials[report->dial];
    peer = of.peer;
    if (!thread->operation.empty())
        thread->about = of.peer;
    Running* const at = attempting(*report, *callback);
    if (at == nullptr) {
        of.late = {sinceBegin(of), stage, *code, stage == Stage::confirmation};
        return;
    }
    advance(of, *state, stage);
    if (*code != 0)
        of.phases.back().code = *code;
    at->attemptFailed = *code != 0 || *state == "Disconnecting...";
}

// The states come in no certain order, so a dial never goes back.
void DialReader::advance(Dial& of, std::string_view state, Stage stage) const {
    const auto stamp = [&](std::optional<std::int32_t>& mark) {
        if (!mark)
            mark = sinceBegin(of);
    };
    if (state == reachedBy[1].state || stage > Stage::port)
        stamp(of.stamps.portOpened);
    if (stage > Stage::connection)
        stamp(of.stamps.serverReached);
    if (stage > Stage::authentication)
        stamp(of.stamps.authenticated);
    if (stage > Stage::link)
        stamp(of.stamps.linkUp);
    if (stage > of.phases.back().stage)
        beginPhase(of, stage);
}

// Callback ids are handed out as attempts begin, so the first report of an id belongs to the attempt whose
// turn it is. `isFirst` says that nothing can have been reported of the attempt before.
const DialReader::Reported* DialReader::attemptOf(unsigned callback, bool isFirst) {
    const auto known = process->reported.find(callback);
    if (known != process->reported.end() &&
        !(isFirst && attempting(known->second, callback) == nullptr)) // an earlier process of the same number
        return &known->second;
    auto& waiting = process->waiting;
    if (waiting.empty())
        return nullptr;
    const auto ordinal = [this](ThreadKey of) { return threads[of].running->ordinal; };
    auto chosen = std::ranges::find(waiting, callback - process->offset, ordinal);
    if (chosen == waiting.end())
        chosen = waiting.begin();
    if (waiting.size() == 1)
        process->offset = callback - ordinal(*chosen);
    Running& at = *threads[*chosen].running;
    at.callback = callback;
    const Reported report = {*chosen, at.dial};
    waiting.erase(chosen);
    return &(process->reported[callback] = report);
}

// Null when the library does not wait for it any more.
DialReader::Running* DialReader::attempting(const Reported& report, unsigned callback) {
    const auto of = threads.find(report.thread);
    if (of == threads.end() || !of->second.running)
        return nullptr;
    Running& at = *of->second.running;
    return at.dial == report.dial && at.callback == callback && at.attempting && !at.attemptTimedOut
               ? &at
               : nullptr;
}

} // namespace logs
