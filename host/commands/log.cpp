#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "interruption.h"
#include "log/dials.h"
#include "log/filter.h"
#include "log/json_view.h"
#include "log/log_files.h"
#include "log/page.h"
#include "log/text_view.h"
#include "log/trace.h"
#include "outside/Helper.h"
#include "usage_error.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <memory>

namespace {

constexpr DWORD followInterval = 250; // ms
constexpr long allLevels = 3;

struct LogArguments {
    std::string what;
    std::string number;
    logs::Filter filter;
    long level = allLevels;
    std::string since, until;
    bool follow = false;
    bool lastFailed = false;
    bool json = false;       // as the context says
    std::string page, trace; // files to be written
};

std::string nameOf(const std::filesystem::path& log) {
    return unicode2utf8(log.wstring());
}

void tellUnreadable(const logs::LogReader& reader, Console& console) {
    const logs::Unreadable& lines = reader.unreadable();
    if (lines.all() != 0)
        console.message(fmt::format("log: lines that are no records: {} foreign, {} broken, {} cut; first {}",
                                    lines.foreign, lines.broken, lines.cut, lines.first));
}

// Puts lines together, since each one alone would cost the console a call.
class Printer {
  public:
    explicit Printer(Console& screen) : console(screen) {}

    void line(std::string_view text) {
        static constexpr std::size_t enough = std::size_t{64} * 1024;
        if (!lines.empty())
            lines += '\n';
        lines += text;
        if (lines.size() > enough)
            flush();
    }
    void flush() {
        if (!lines.empty())
            console.result(lines);
        lines.clear();
    }

  private:
    Console& console;
    std::string lines;
};

// The records that come from now on, until Ctrl+C.
void follow(logs::LogReader& reader, const logs::TakeRecord& show, Printer& printer) {
    const Endable running;
    while (!interrupted()) {
        reader.follow(show);
        printer.flush();
        Sleep(followInterval);
    }
}

// In JSON: an array, or an object a line where no end is in sight.
ExitCode showRecords(const LogArguments& arguments, const std::filesystem::path& log, Console& console) {
    logs::LogReader reader(log);
    logs::DialReader dials;
    Printer printer(console);
    const bool isArray = arguments.json && !arguments.follow;
    bool isFirst = true;
    const auto show = [&](const logs::Record& record) {
        const std::string& about = arguments.filter.peer.empty() ? std::string() : dials.take(record);
        if (!arguments.filter.takes(record, about))
            return;
        if (arguments.json)
            printer.line((!isArray ? "" : std::exchange(isFirst, false) ? "[" : ",") + recordJson(record));
        else
            printer.line(record.line);
    };
    if (!arguments.follow || arguments.filter.since)
        reader.readAll(show, arguments.follow);
    if (isArray)
        printer.line(isFirst ? "[]" : "]");
    printer.flush();
    tellUnreadable(reader, console);
    if (arguments.follow)
        follow(reader, show, printer);
    return ExitCode::done;
}

// The dials that were asked for, numbered from 0.
std::vector<std::size_t> wantedDials(const LogArguments& arguments, const std::vector<logs::Dial>& dials) {
    if (!arguments.number.empty()) {
        logs::Scanner words(arguments.number);
        const auto number = words.number();
        if (!number || !words.rest.empty())
            throw UsageError(fmt::format("\"{}\" is no number of a dial", arguments.number));
        return *number == 0 || *number > dials.size() ? std::vector<std::size_t>()
                                                      : std::vector{*number - std::size_t{1}};
    }
    auto numbers = chosen(dials, arguments.filter);
    if (arguments.what == "dials")
        return numbers;
    if (arguments.lastFailed)
        std::erase_if(numbers, [&](std::size_t i) { return dials[i].outcome == logs::Outcome::connected; });
    numbers.erase(numbers.begin(), numbers.end() - (numbers.empty() ? 0 : 1));
    return numbers;
}

// The operations that the filter takes, and the dials.
void writeTrace(const LogArguments& arguments, const std::vector<std::size_t>& numbers,
                const std::vector<logs::Dial>& dials, const std::filesystem::path& log) {
    logs::Filter filter = arguments.filter;
    if (arguments.what == "dial") {
        const logs::Dial& dial = dials[numbers[0]];
        filter.peer = dial.peer;
        filter.since = dial.began;
        filter.until = dial.ended();
    }
    logs::TraceWriter trace(utf82unicode(arguments.trace));
    logs::DialReader dialReader;
    logs::LogReader(log).readAll([&](const logs::Record& record) {
        if (filter.takes(record, dialReader.take(record)))
            trace.take(record);
    });
    for (const std::size_t number : numbers)
        trace.take(number, dials[number]);
    trace.finish();
}

void show(const LogArguments& arguments, const std::vector<std::size_t>& numbers,
          const std::vector<logs::Dial>& dials, const logs::LogReader& reader, Printer& printer) {
    if (arguments.what == "dial") {
        printer.line(arguments.json ? logs::textOf(logs::timelineJson(numbers[0], dials, true))
                                    : timeline(numbers[0], dials));
        return;
    }
    if (!arguments.json) {
        const logs::DialTable table(numbers, dials);
        printer.line(table.heading());
        for (const std::size_t number : numbers)
            printer.line(table.line(number));
        return;
    }
    printer.line(beforeDialsJson(reader));
    for (const std::size_t number : numbers)
        printer.line(logs::textOf(logs::dialJson(number, dials)) + (number == numbers.back() ? "" : ","));
    printer.line("]}");
}

ExitCode showDials(const LogArguments& arguments, const std::filesystem::path& log, const Telling& telling) {
    Console& console = telling.console;
    logs::LogReader reader(log);
    logs::DialReader dialReader;
    reader.readAll([&](const logs::Record& record) { dialReader.take(record); });
    const std::vector<logs::Dial> dials = dialReader.finish();
    tellUnreadable(reader, console);
    const std::vector<std::size_t> numbers = wantedDials(arguments, dials);
    if (numbers.empty() && !(arguments.what == "dials" && arguments.json)) {
        return tellFault(ExitCode::notFound,
                         "log: ", fmt::format("no such dial among the {} in {}", dials.size(), nameOf(log)),
                         telling);
    }
    if (!arguments.page.empty())
        writePage(utf82unicode(arguments.page), numbers, dials, reader);
    if (!arguments.trace.empty())
        writeTrace(arguments, numbers, dials, log);
    Printer printer(console);
    if (arguments.json || (arguments.page.empty() && arguments.trace.empty()))
        show(arguments, numbers, dials, reader, printer);
    else
        for (const std::string& file : {arguments.page, arguments.trace})
            if (!file.empty())
                printer.line(fmt::format("log: {} dials written to {}", numbers.size(), file));
    printer.flush();
    return ExitCode::done;
}

void checkArguments(LogArguments& arguments) {
    const bool writes = !arguments.page.empty() || !arguments.trace.empty();
    if (arguments.what.empty())
        arguments.what = writes ? "dials" : "records";
    if (arguments.what != "records" && arguments.what != "dials" && arguments.what != "dial")
        throw UsageError(
            fmt::format("\"{}\" is nothing to read; say records, dials or dial", arguments.what));
    if (arguments.what != "dial" && (!arguments.number.empty() || arguments.lastFailed))
        throw UsageError("a number and --last-failed go with \"log dial\"");
    if (arguments.what == "records" && writes)
        throw UsageError("--html and --trace go with \"log dials\" and \"log dial\"");
    if (arguments.what != "records" && arguments.follow)
        throw UsageError("--follow shows records alone");
    if (arguments.what != "records" && arguments.level != allLevels)
        throw UsageError("--level goes with records; a dial needs those of all levels");
    arguments.filter.level = static_cast<int>(arguments.level);
    if (!arguments.since.empty())
        arguments.filter.since = logs::timeFrom(arguments.since);
    if (!arguments.until.empty())
        arguments.filter.until = logs::timeFrom(arguments.until);
}

ExitCode readLog(LogArguments arguments, Context& context) {
    arguments.json = context.telling.json;
    checkArguments(arguments);
    const std::filesystem::path log = logs::usualLog();
    if (!log.empty() && logs::namedLog().empty())
        context.console.message("log: " + nameOf(log));
    if (log.empty() || (logs::filesOf(log).empty() && !arguments.follow)) {
        return tellFault(ExitCode::notFound, "log: ",
                         log.empty() ? "there is none; name it with --log-file"
                                     : fmt::format("there is no {}", nameOf(log)),
                         context.telling);
    }
    if (arguments.what == "records")
        return showRecords(arguments, log, context.console);
    return showDials(arguments, log, context.telling);
}

Action declareLog(Options& options) {
    const auto arguments = std::make_shared<LogArguments>();
    options.word("WHAT", arguments->what, "records, dials or dial");
    options.word("N", arguments->number, "The dial's number");
    options.word("--peer", arguments->filter.peer, "Only what is about this peer");
    options.number("--level", arguments->level, 1, allLevels, "Only records of this level and below");
    options.word("--since", arguments->since, "Only from this time on");
    options.word("--until", arguments->until, "Only up to this time");
    options.word("--thread", arguments->filter.thread, "Only of this thread, or process/thread");
    options.flag("--follow", arguments->follow, "Show the records that come from now on, until Ctrl+C");
    options.flag("--last-failed", arguments->lastFailed, "The last dial that did not connect");
    options.file(
        "--html", [arguments](const std::string& file) { arguments->page = file; },
        "Write the dials as a page for a browser");
    options.file(
        "--trace", [arguments](const std::string& file) { arguments->trace = file; },
        "Write dials and operations as trace events");
    return [arguments](Context& context) { return readLog(*arguments, context); };
}

constexpr const char* examples =
    R"(WHAT is "records", which is the rule, "dials" for a line for each dial, or "dial"
for the one numbered N, else the last one. The log is that of --log-file, else
the one that the library's settings name, else the one written last; what it
was before its rotations is read too.
A time is 10m (ago; s, m, h or d), 23:26, 2026-11-22 or both.

Examples:
  varnel-host log --level 2 --since 10m
  varnel-host log --follow --peer harbor
  varnel-host log dials --html dials.html
  varnel-host log dial --last-failed
  varnel-host --log-file C:\ProgramData\Tavik\log\tavik4.log log dials

Exit codes: 0 done, 2 wrong arguments, 7 no such log or dial, 1 anything else)";

} // namespace

const Command logCommand = {"log", "Reads the library's log: its records, its dials, one dial as a timeline",
                            examples, false, declareLog};
