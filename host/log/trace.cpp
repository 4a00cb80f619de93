#include "log/trace.h"

#include "log/clues.h"
#include "log/json_view.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace logs {
namespace {

// Windows' thread ids are far below.
constexpr unsigned dialLines = 1'000'000'000;

std::string quoted(const std::string& text) {
    return textOf(nlohmann::ordered_json(text));
}

} // namespace

TraceWriter::TraceWriter(const std::filesystem::path& path) : file(path) {
    file.write("{\"displayTimeUnit\":\"ms\",\"traceEvents\":[");
}

long long TraceWriter::micros(Time time) {
    if (!origin)
        origin = time;
    return std::chrono::microseconds(time - *origin).count();
}

void TraceWriter::take(const Record& record) {
    const Line line = {record.process, record.thread};
    const auto [place, isNew] = threads.try_emplace(line);
    Thread& thread = place->second;
    if (isNew)
        nameLine(line, fmt::format("thread {}", line.second));
    thread.last = std::max(micros(record.time), thread.last + 1);
    Scanner words(record.text);
    if (words.skip("==>>VARNEL::")) {
        const auto operation = words.until("(").value_or(words.rest);
        words.rest.remove_suffix(words.rest.ends_with(')'));
        enter(line, thread, operation, words.rest);
    } else if (words.skip("<<== VARNEL::")) {
        const auto operation = words.until("(").value_or(words.rest);
        leave(line, thread, operation, words);
    }
}

// No operation calls itself, so one that is entered again comes from a new process of the same number.
void TraceWriter::enter(const Line& line, Thread& thread, std::string_view operation,
                        std::string_view arguments) {
    const long long at = thread.last;
    if (std::ranges::find(thread.open, operation, &Open::operation) != thread.open.end()) {
        thread.last = thread.free;
        while (!thread.open.empty())
            closeInnermost(line, thread, false);
    }
    thread.last = thread.free = at;
    thread.open.push_back({std::string(operation), std::string(arguments), at});
}

void TraceWriter::leave(const Line& line, Thread& thread, std::string_view operation, Scanner rest) {
    if (std::ranges::find(thread.open, operation, &Open::operation) != thread.open.end()) {
        while (thread.open.back().operation != operation)
            closeInnermost(line, thread, false);
        return closeInnermost(line, thread, true);
    }
    // The log begins later than the operation.
    rest.until(",period = ");
    const long long from = thread.last - 1000LL * rest.number().value_or(0);
    slice(line, std::string(operation), std::max(from, thread.free), thread.last, true);
    thread.free = thread.last;
}

void TraceWriter::closeInnermost(const Line& line, Thread& thread, bool ended) {
    const Open& open = thread.open.back();
    slice(line, fmt::format("{}({})", open.operation, open.arguments), open.since, thread.last, ended);
    thread.free = thread.last;
    thread.open.pop_back();
}

void TraceWriter::take(std::size_t number, const Dial& dial) {
    const Line line = {dial.process, dialLines + static_cast<unsigned>(number) + 1};
    const long long begin = micros(dial.began);
    const auto at = [&](std::int32_t milliseconds) { return begin + 1000LL * milliseconds; };
    nameLine(line, fmt::format("dial {}: {}", number + 1, dial.peer));
    slice(line, fmt::format("{}: {}", dial.peer, nameOf(dial.outcome)), begin, at(dial.took),
          dial.outcome != Outcome::unfinished);
    int attempt = -1;
    for (auto phase = dial.phases.begin(); phase != dial.phases.end(); ++phase) {
        if (phase->attempt != attempt && phase->attempt < dial.entries.size()) {
            attempt = phase->attempt;
            const auto next = std::find_if(
                phase, dial.phases.end(), [attempt](const Phase& later) { return later.attempt != attempt; });
            slice(line, "as " + dial.entries[phase->attempt], at(phase->begin), at((next - 1)->end), true);
        }
        slice(line,
              nameOf(phase->stage) +
                  (phase->code != 0 ? fmt::format(": error {}", phase->code) : std::string()),
              at(phase->begin), at(phase->end), phase->ended);
    }
}

void TraceWriter::finish() {
    for (auto& [line, thread] : threads)
        while (!thread.open.empty())
            closeInnermost(line, thread, false);
    file.write("\n]}\n");
    file.close();
}

void TraceWriter::slice(const Line& line, const std::string& name, long long from, long long to, bool ended) {
    event(fmt::format(R"({{"ph":"X","pid":{},"tid":{},"ts":{},"dur":{},"name":{}}})", line.first, line.second,
                      from, to - from, quoted(ended ? name : name + ", no end")));
}

void TraceWriter::nameLine(const Line& line, const std::string& name) {
    event(fmt::format(R"({{"ph":"M","pid":{},"tid":{},"name":"thread_name","args":{{"name":{}}}}})",
                      line.first, line.second, quoted(name)));
}

void TraceWriter::event(const std::string& json) {
    file.write(isFirst ? "\n" : ",\n");
    file.write(json);
    isFirst = false;
}

} // namespace logs
