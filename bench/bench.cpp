// What the library costs: rows of ratios to the same system calls made by hand, in the same process.
#include "bench.h"

#include "service.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

double now() {
    LARGE_INTEGER frequency, count;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&count);
    return 1000.0 * static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
}

namespace {

constexpr int batches = 201;
constexpr char tableLine[] = "{:40}  {:32}  {:>6}  {:>6}  {:>6}  {:>5}\n";

std::string figure(double value) {
    return value == 0 ? "-" : fmt::format("{:.2f}", value);
}

double timed(int rounds, const std::function<void()>& work) {
    const double start = now();
    for (int round = 0; round < rounds; ++round)
        work();
    return now() - start;
}

long callsOf(const std::function<void()>& work) {
    const long before = service::calls;
    work();
    return service::calls - before;
}

} // namespace

Row compared(const std::string& name, const std::string& against, double toReach, int rounds,
             const std::function<void()>& library, const std::function<void()>& bare) {
    const long calls = callsOf(library);
    if (calls != callsOf(bare))
        fmt::print(stderr, "bench: {}: the bare calls are others\n", name);
    std::vector<double> ours, theirs, ratios;
    for (int batch = 0; batch < batches; ++batch) {
        ours.push_back(timed(rounds, library));
        theirs.push_back(timed(rounds, bare));
        ratios.push_back(ours.back() / theirs.back());
    }
    std::ranges::nth_element(ratios, ratios.begin() + batches / 2);
    return {name,  against, std::ranges::min(ours) / std::ranges::min(theirs), ratios[batches / 2],
            calls, toReach};
}

int main(int count, char** arguments) {
    const bool json = count == 3 && std::strcmp(arguments[2], "--json") == 0;
    if (count != 2 && !json) {
        fmt::print(stderr, "usage: bench FOLDER [--json]   FOLDER is there and empty\n");
        return 2;
    }
    if (!json)
        fmt::print(tableLine, "row", "against", "reach", "best", "median", "calls");
    measure(arguments[1], [json](const Row& row) {
        if (json)
            fmt::print(
                "{{\"row\": \"{}\", \"against\": \"{}\", \"reach\": {}, \"best\": {:.3f}, \"median\": {:.3f}, "
                "\"calls\": {}}}\n",
                row.name, row.against, row.toReach, row.best, row.median, row.calls);
        else
            fmt::print(tableLine, row.name, row.against, figure(row.toReach), figure(row.best),
                       figure(row.median), row.calls);
        std::fflush(stdout);
    });
    return 0;
}
