#include "background_dials.h"

#include "console.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <exception>

namespace {

bool hasEnded(const std::future<ExitCode>& end) {
    return end.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

// Takes the request over, so that the password goes with the dial's end.
ExitCode dial(DialRequest request, const Telling& telling) {
    try {
        return tell(runDial(request), telling);
    } catch (const std::exception& failure) {
        return tellFault(ExitCode::failed, request.id + ": ", failure.what(), telling);
    }
}

} // namespace

void BackgroundDials::begin(DialRequest request, const Telling& telling) {
    auto end = std::async(std::launch::async, [request = std::move(request), telling]() mutable {
        return dial(std::move(request), telling);
    });
    dials.push_back({telling.line, std::move(end)});
}

void BackgroundDials::wait(Console& console) const {
    const auto running = std::ranges::count_if(dials, [](const Dial& dial) { return !hasEnded(dial.end); });
    if (running == 0)
        return;
    const ProgressLine progress(console,
                                fmt::format("waiting for {} dial{}", running, running == 1 ? "" : "s"));
    for (const Dial& dial : dials)
        dial.end.wait();
}

std::vector<BackgroundDials::Outcome> BackgroundDials::takeEnded() {
    std::vector<Outcome> outcomes;
    std::erase_if(dials, [&](Dial& dial) {
        if (!hasEnded(dial.end))
            return false;
        outcomes.push_back({dial.line, dial.end.get()});
        return true;
    });
    return outcomes;
}
