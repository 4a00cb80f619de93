#include "command_line.h"

#include "console.h"
#include "usage_error.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

void Options::word(const std::string& name, std::string& value, const std::string& help) {
    app.add_option(name, value, help);
}

void Options::requiredWord(const std::string& name, std::string& value, const std::string& help) {
    app.add_option(name, value, help)->required();
}

void Options::file(const std::string& name, const Take& take, const std::string& help) {
    app.add_option_function<std::string>(name, take, help)->type_name("FILE")->option_text("FILE");
}

void Options::number(const std::string& name, long& value, long least, long most, const std::string& help) {
    app.add_option(name, value, help)->check(CLI::Range(least, most))->option_text("N");
}

void Options::flag(const std::string& name, bool& value, const std::string& help) {
    app.add_flag(name, value, help);
}

void Options::ruleFlag(const std::string& name, const std::string& opposite, const std::string& help) {
    app.add_flag_callback(
           name, [] {}, help)
        ->excludes(app.get_option(opposite));
}

namespace {

constexpr const char* jsonFlag = "--json";

std::string withoutLineEnds(std::string text) {
    while (text.ends_with('\n'))
        text.pop_back();
    return text;
}

// Only so that the parse takes it and the help tells of it: it is found before the parse, so that what is wrong
// with the words is told in JSON too.
void takeJson(CLI::App& app) {
    app.add_flag_callback(
        jsonFlag, [] {}, "Tell the outcome in JSON, errors too, and nothing else on standard output");
}

// The command that the parse meets puts its action into `chosen`.
void declareCommands(CLI::App& app, Commands commands, Action& chosen) {
    for (const char* label : {"TEXT", "REQUIRED"}) // the usage line shows what is optional
        app.get_formatter()->label(label, "");
    for (const Command* command : commands) {
        CLI::App* added = app.add_subcommand(command->name, command->summary)->group("Commands");
        added->footer(command->examples);
        takeJson(*added);
        Options options(*added);
        added->callback([action = command->declare(options), &chosen] { chosen = action; });
    }
}

ExitCode usageError(const Context& context, const std::string& text) {
    return tellFault(ExitCode::usage, context.where, text, context.telling);
}

ExitCode parseAndRun(CLI::App& app, std::vector<std::string> words, const Action& chosen, Context& context) {
    context.telling.json = context.alwaysJson || std::ranges::count(words, jsonFlag) != 0;
    std::ranges::reverse(words); // as CLI11 wants them
    try {
        app.parse(std::move(words));
        return chosen(context);
    } catch (const CLI::CallForHelp&) {
        tellText("help", withoutLineEnds(app.help()), context.telling);
        return ExitCode::done;
    } catch (const CLI::CallForVersion& version) {
        tellText("version", version.what(), context.telling);
        return ExitCode::done;
    } catch (const CLI::ExtrasError& error) {
        if (app.get_subcommands().empty())
            return usageError(context, fmt::format("there is no command \"{}\"; --help lists them",
                                                   app.remaining().front()));
        return usageError(context, fmt::format("{}; --help tells more", error.what()));
    } catch (const CLI::ParseError& error) {
        return usageError(context, fmt::format("{}; --help tells more", error.what()));
    } catch (const UsageError& error) {
        return usageError(context, error.what());
    } catch (const std::exception& failure) {
        return tellFault(ExitCode::failed, context.where, failure.what(), context.telling);
    }
}

} // namespace

ExitCode runProgramLine(const ProgramLine& program, std::vector<std::string> words, Context& context) {
    CLI::App app(program.summary, program.name);
    app.allow_windows_style_options(false);
    app.fallthrough();
    app.require_subcommand(0, 1);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.set_version_flag("--version", program.versions,
                         "Print the versions of the program and of the library, and exit");
    app.footer(program.help);
    takeJson(app);
    Options options(app);
    program.declareOptions(options);
    Action chosen = program.withoutCommand;
    app.callback([&] { program.begin(context.console); });
    declareCommands(app, commonCommands(), chosen);
    declareCommands(app, std::array{&sessionCommand}, chosen);
    return parseAndRun(app, std::move(words), chosen, context);
}

ExitCode runSessionLine(std::vector<std::string> words, Context& context) {
    CLI::App app;
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    Action chosen;
    declareCommands(app, sessionCommands(), chosen);
    return parseAndRun(app, std::move(words), chosen, context);
}

std::string helpOn(const std::string& command) {
    CLI::App app;
    Action unused;
    declareCommands(app, sessionCommands(), unused);
    return app.get_subcommand(command)->help();
}
