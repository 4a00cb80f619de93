#include "session.h"

#include "background_dials.h"
#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "interruption.h"
#include "outside/Helper.h"
#include "session_line.h"
#include "usage_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>

namespace {

constexpr const char* prompt = "varnel> ";

void checkCommand(const SessionLine& line) {
    const std::string name = line.words.empty() ? "&" : line.words.front();
    const Command* command = findCommand(name);
    if (command == nullptr)
        throw UsageError(fmt::format("there is no command \"{}\"; help lists them", name));
    if (line.inBackground && !command->mayRunInBackground)
        throw UsageError(fmt::format("{} cannot run in the background", command->name));
}

// Where the lines come from.
class Lines {
  public:
    Lines(const std::string& script, Console& screen)
        : console(screen), typed(script.empty() && screen.readsConsole()),
          source(script.empty() ? "standard input" : script) {
        if (script.empty())
            return;
        file.open(std::filesystem::path(utf82unicode(script)));
        if (!file)
            throw UsageError(fmt::format("the script \"{}\" cannot be opened", script));
    }

    bool areTyped() const { return typed; }

    // The next line, shown when it was not typed; nothing at the end.
    std::optional<std::string> next() {
        ++number;
        if (typed)
            return console.readLine(prompt);
        std::string line;
        if (!std::getline(file.is_open() ? static_cast<std::istream&>(file) : std::cin, line))
            return std::nullopt;
        if (number == 1 && line.starts_with("\xEF\xBB\xBF"))
            line.erase(0, 3);
        if (line.ends_with('\r'))
            line.pop_back();
        return line;
    }

    int lineNumber() const { return number; }
    std::string place(int line) const { return typed ? "" : fmt::format("{}:{}: ", source, line); }

  private:
    Console& console;
    bool typed;
    std::string source;
    std::ifstream file;
    int number = 0;
};

class Session {
  public:
    Session(const SessionOptions& wishes, Console& screen)
        : options(wishes),
          lines(wishes.script, screen), context{.console = screen,
                                                .background = background,
                                                .passwordFrom = lines.areTyped() ? PasswordFrom::console
                                                                                 : PasswordFrom::fileOnly,
                                                .passwordFile = wishes.passwordFile,
                                                .alwaysJson = wishes.json} {}

    ExitCode run() {
        if (lines.areTyped())
            context.console.message("\"help\" lists the commands, \"quit\" ends the session.");
        while (!context.leaving && !interrupted() && !(options.stopOnError && !failures.empty())) {
            const auto line = lines.next();
            if (!line)
                break;
            record(lines.lineNumber(), runLine(*line));
            recordBackground();
        }
        background.wait(context.console);
        recordBackground();
        return conclude();
    }

  private:
    ExitCode runLine(const std::string& text) {
        context.where = lines.place(lines.lineNumber());
        context.telling.json = options.json;
        context.telling.command.clear();
        context.telling.line = lines.lineNumber();
        if (!lines.areTyped() && !options.json)
            context.console.result((isCommand(text) ? "> " : "") + text);
        try {
            return isCommand(text) ? runCommand(parseLine(text)) : ExitCode::done;
        } catch (const UsageError& error) {
            return tellFault(ExitCode::usage, context.where, error.what(), context.telling);
        }
    }

    ExitCode runCommand(const SessionLine& line) {
        context.telling.command = line.words.empty() ? "&" : line.words.front();
        checkCommand(line);
        context.inBackground = line.inBackground;
        return runSessionLine(line.words, context);
    }

    void record(int line, ExitCode code) {
        if (code != ExitCode::done)
            failures.emplace(line, code);
    }

    void recordBackground() {
        for (const auto& [line, code] : background.takeEnded())
            record(line, code);
    }

    ExitCode conclude() {
        if (failures.empty())
            return ExitCode::done;
        const auto& [line, code] = *failures.begin();
        if (!lines.areTyped())
            context.console.message(lines.place(line) +
                                    (failures.size() == 1
                                         ? "the only command that failed"
                                         : fmt::format("the first of {} failed commands", failures.size())));
        return code;
    }

    SessionOptions options;
    Lines lines;
    BackgroundDials background;
    Context context;
    std::map<int, ExitCode> failures; // by line
};

} // namespace

ExitCode runSession(const SessionOptions& options, Console& console) {
    return Session(options, console).run();
}
