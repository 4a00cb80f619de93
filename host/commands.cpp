#include "commands.h"

const Command* findCommand(const std::string& name) {
    for (const auto commands : {peerCommands(), computerCommands(), sessionCommands()})
        for (const Command& command : commands)
            if (command.name == name)
                return &command;
    return nullptr;
}
