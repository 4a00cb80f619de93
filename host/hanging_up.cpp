#include "hanging_up.h"

#include "connections.h"
#include "interruption.h"
#include "varnel/Varnel.h"

namespace {

constexpr int mostTimes = 5; // the library waits 3 s for each that the connection outlasts

} // namespace

HangUp hangUp(const std::string& id) {
    const Uninterruptible running;
    for (int times = 0;; ++times) {
        const Connections connections = activeConnections();
        if (connections.error != 0)
            return {HangUp::End::unknown, times, connections.error};
        const auto place = connections.placeOf(id);
        if (!place)
            return {HangUp::End::gone, times};
        if (times == mostTimes)
            return {HangUp::End::stillThere, times};
        if (*place >= Connections::libraryReach)
            return {HangUp::End::outOfReach, times};
        VARNEL::dialDown(id);
    }
}

void hangUpAll(const std::set<std::string>& ids) {
    std::set<std::string> left = ids;
    while (std::erase_if(left, [](const std::string& id) {
               const HangUp hungUp = hangUp(id);
               return hungUp.end != HangUp::End::outOfReach;
           }) != 0)
        ;
}
