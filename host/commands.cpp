#include "commands.h"

#include "background_dials.h"
#include "outcome.h"
#include "rights.h"

namespace {

constexpr const Command* common[] = {&dialCommand, &hangUpCommand, &entryCommand,   &forgetCommand,
                                     &initCommand, &statusCommand, &watchCommand,   &cleanCommand,
                                     &logCommand,  &doctorCommand, &explainCommand, &bundleCommand};
constexpr const Command* inSession[] = {&dialCommand, &hangUpCommand, &entryCommand,   &forgetCommand,
                                        &initCommand, &statusCommand, &watchCommand,   &cleanCommand,
                                        &logCommand,  &doctorCommand, &explainCommand, &bundleCommand,
                                        &waitCommand, &helpCommand,   &quitCommand};

} // namespace

Commands commonCommands() {
    return common;
}

Commands sessionCommands() {
    return inSession;
}

const Command* findCommand(const std::string& name) {
    for (const Command* command : inSession)
        if (command->name == name)
            return command;
    return nullptr;
}

bool mayWorkTheComputer(Context& context, const Command& command) {
    const auto refuse = [&](const char* why, const char* advice) {
        tell({.exit = ExitCode::failed, .subject = command.name, .text = why, .advice = advice},
             context.telling);
        return false;
    };
    if (!hasAdministratorRights())
        return refuse("not done: administrator rights are needed",
                      "start the program from a console that was opened with \"Run as administrator\"");
    if (!context.computer.take(theComputer))
        return refuse("not done: another varnel-host has prepared this computer and still runs",
                      "it would hang up what that one has dialled; end its session first");
    context.background.wait(context.console);
    return true;
}
