#include "background_dials.h"
#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "usage_error.h"

#include <fmt/format.h>

#include <memory>

namespace {

ExitCode wait(Context& context) {
    context.background.wait(context.console);
    return ExitCode::done;
}

ExitCode quit(Context& context) {
    context.leaving = true;
    return ExitCode::done;
}

void listCommands(Console& console) {
    for (const auto commands : {peerCommands(), computerCommands(), sessionCommands()})
        for (const Command& command : commands)
            console.result(fmt::format("  {:8} {}", command.name, command.summary));
    console.result("A line that begins with # is a comment. \"help COMMAND\" tells more of a command.");
}

ExitCode help(const std::string& topic, Context& context) {
    if (topic.empty()) {
        listCommands(context.console);
        return ExitCode::done;
    }
    if (findCommand(topic) == nullptr)
        throw UsageError(fmt::format("there is no command \"{}\"; help lists them", topic));
    context.console.result(helpOn(topic));
    return ExitCode::done;
}

Action declareHelp(Options& options) {
    const auto topic = std::make_shared<std::string>();
    options.word("COMMAND", *topic, "The command to tell more of");
    return [topic](Context& context) { return help(*topic, context); };
}

template<ExitCode (*command)(Context&)>
Action declareBare(Options&) {
    return command;
}

constexpr Command commands[] = {
    {"wait", "Waits for the dials begun with \"&\"", "", false, declareBare<wait>},
    {"help", "Lists the commands", "", false, declareHelp},
    {"quit", "Ends the session once the dials in the background have ended", "", false, declareBare<quit>},
};

} // namespace

std::span<const Command> sessionCommands() {
    return commands;
}
