#include "standin/ras/dial_course.h"

#include <utility>

namespace standin {
namespace {

bool isFailure(const Behaviour& behaviour) {
    return behaviour.ending == Behaviour::Ending::told && behaviour.error != ERROR_SUCCESS;
}

// The system tells of authentication and connection once, with the outcome.
bool isToldOnce(RASCONNSTATE state) {
    return state == RASCS_AuthNotify || state == RASCS_Connected;
}

unsigned timeOf(RASCONNSTATE state, unsigned latency) {
    if (state < RASCS_DeviceConnected)
        return 0;
    return state < RASCS_AuthNotify ? latency / 2 : latency;
}

} // namespace

std::vector<DialStep> courseOf(const Behaviour& behaviour, unsigned latency) {
    std::vector<DialStep> steps;
    unsigned waited = 0;
    const auto add = [&](RASCONNSTATE state, DWORD error, unsigned time) {
        steps.push_back({state, error, time - std::exchange(waited, time)});
    };
    const bool isDisconnected = behaviour.state == RASCS_Disconnected;
    const RASCONNSTATE last = isDisconnected ? RASCS_Authenticate : behaviour.state;
    for (const DialState& each : usualStates) {
        if (each.state != last || !isFailure(behaviour) || !isToldOnce(last))
            add(each.state, ERROR_SUCCESS, timeOf(each.state, latency));
        if (each.state == last)
            break;
    }
    if (isDisconnected || isFailure(behaviour))
        add(behaviour.state, behaviour.error, latency);
    else if (behaviour.ending == Behaviour::Ending::never)
        steps.push_back({RASCS_Disconnected, ERROR_SUCCESS, INFINITE});
    return steps;
}

} // namespace standin
