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

ExitCode help(const std::string& topic, Console& console) {
    if (topic.empty()) {
        for (const Command* command : sessionCommands())
            console.result(fmt::format("  {:8} {}", command->name, command->summary));
        console.result("A line that begins with # is a comment. \"help COMMAND\" tells more of a command.");
        return ExitCode::done;
    }
    if (findCommand(topic) == nullptr)
        throw UsageError(fmt::format("there is no command \"{}\"; help lists them", topic));
    console.result(helpOn(topic));
    return ExitCode::done;
}

Action declareHelp(Options& options) {
    const auto topic = std::make_shared<std::string>();
    options.word("COMMAND", *topic, "The command to tell more of");
    return [topic](Context& context) { return help(*topic, context.console); };
}

} // namespace

const Command waitCommand = {"wait", "Waits for the dials begun with \"&\"", "", false, declareBare<wait>};
const Command helpCommand = {"help", "Lists the commands", "", false, declareHelp};
const Command quitCommand = {"quit", "Ends the session once the dials in the background have ended", "",
                             false, declareBare<quit>};
