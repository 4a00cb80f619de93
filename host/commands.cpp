#include "commands.h"

#include "console.h"
#include "usage_error.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace {

std::string withoutLineEnds(std::string text) {
    while (text.ends_with('\n'))
        text.pop_back();
    return text;
}

ExitCode usageError(const Context& context, const std::string& text) {
    context.console.message(context.where + text);
    return ExitCode::usage;
}

} // namespace

const Command* findCommand(const std::string& name) {
    for (const auto commands : {peerCommands(), computerCommands(), sessionCommands()})
        for (const Command& command : commands)
            if (command.name == name)
                return &command;
    return nullptr;
}

void declareCommands(CLI::App& app, std::span<const Command> commands, Action& chosen) {
    for (const char* label : {"TEXT", "REQUIRED"}) // the usage line shows what is optional
        app.get_formatter()->label(label, "");
    for (const Command& command : commands) {
        CLI::App* options = app.add_subcommand(command.name, command.summary)->group("Commands");
        options->footer(command.examples);
        options->callback([action = command.declare(*options), &chosen] { chosen = action; });
    }
}

ExitCode parseAndRun(CLI::App& app, std::vector<std::string> words, const Action& chosen, Context& context) {
    std::ranges::reverse(words); // as CLI11 wants them
    try {
        app.parse(std::move(words));
        return chosen(context);
    } catch (const CLI::CallForHelp&) {
        context.console.result(withoutLineEnds(app.help()));
        return ExitCode::done;
    } catch (const CLI::CallForVersion& version) {
        context.console.result(version.what());
        return ExitCode::done;
    } catch (const CLI::ParseError& error) {
        return usageError(context, fmt::format("{}; --help tells more", error.what()));
    } catch (const UsageError& error) {
        return usageError(context, error.what());
    } catch (const std::exception& failure) {
        context.console.message(context.where + failure.what());
        return ExitCode::failed;
    }
}
