// The commands that a session has for itself: wait, help and quit.
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

std::string listOfCommands() {
    std::string list;
    for (const Command* command : sessionCommands())
        list += fmt::format("  {:8} {}\n", command->name, command->summary);
    return list + "A line that begins with # is a comment. \"help COMMAND\" tells more of a command.";
}

ExitCode help(const std::string& topic, const Telling& telling) {
    if (!topic.empty() && findCommand(topic) == nullptr)
        throw UsageError(fmt::format("there is no command \"{}\"; help lists them", topic));
    tellText("help", topic.empty() ? listOfCommands() : helpOn(topic), telling);
    return ExitCode::done;
}

Action declareHelp(Options& options) {
    const auto topic = std::make_shared<std::string>();
    options.word("COMMAND", *topic, "The command to tell more of");
    return [topic](Context& context) { return help(*topic, context.telling); };
}

} // namespace

const Command waitCommand = {"wait", "Waits for the dials begun with \"&\"", "", false, declareBare<wait>};
const Command helpCommand = {"help", "Lists the commands", "", false, declareHelp};
const Command quitCommand = {"quit", "Ends the session once the dials in the background have ended", "",
                             false, declareBare<quit>};
