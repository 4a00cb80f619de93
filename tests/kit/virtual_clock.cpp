#include "virtual_clock.h"

#include "imports.h"

#include <cstdio>
#include <cstdlib>
#include <future>

namespace {

[[noreturn]] void giveUp(const char* reason) {
    std::fputs(reason, stderr);
    std::_Exit(EXIT_FAILURE);
}

} // namespace

VirtualClock::VirtualClock() {
    on<"Sleep">([this](DWORD ms) { pass(ms == 0 ? yieldTakes : ms); });
    on<"GetTickCount">([this] { return ticks(); });
    on<"WaitForSingleObject">([this](HANDLE object, DWORD ms) { return wait(object, ms); });
}

void VirtualClock::in(DWORD ms, std::function<void()> action) {
    if (ms == 0)
        act(action);
    else
        agenda.emplace(elapsed + ms, std::move(action));
}

void VirtualClock::act(const std::function<void()>& action) const {
    if (oneThread)
        action();
    else
        std::async(std::launch::async, action).get();
}

// Does the next thing on the agenda that is due by `limit`; false when there is none.
bool VirtualClock::actNext(unsigned long long limit) {
    const auto next = agenda.begin();
    if (next == agenda.end() || next->first > limit)
        return false;
    elapsed = std::max(elapsed, next->first);
    const std::function<void()> action = std::move(next->second);
    agenda.erase(next);
    act(action);
    return true;
}

void VirtualClock::pass(DWORD ms) {
    const unsigned long long end = elapsed + ms;
    while (actNext(end)) {
    }
    elapsed = end;
}

DWORD VirtualClock::wait(HANDLE object, DWORD ms) {
    const unsigned long long end = ms == INFINITE ? ~0ULL : elapsed + ms;
    DWORD state = WaitForSingleObject(object, 0);
    while (state == WAIT_TIMEOUT && actNext(end))
        state = WaitForSingleObject(object, 0);
    if (state != WAIT_TIMEOUT)
        return state;
    if (ms == INFINITE)
        giveUp("The library waits for ever, for something that nobody will do.\n");
    elapsed = end;
    return state;
}
