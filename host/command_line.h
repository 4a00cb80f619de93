// Command lines: what the commands take from them, how they are parsed, and the help on them.
#pragma once

#include "commands.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// The arguments of a command, or those of the program. What a person gives goes where the declaration says;
// that must live until the parse has ended.
class Options {
  public:
    using Take = std::function<void(const std::string&)>;

    explicit Options(CLI::App& declaredOn) : app(declaredOn) {}

    void word(const std::string& name, std::string& value, const std::string& help);
    void requiredWord(const std::string& name, std::string& value, const std::string& help);
    void file(const std::string& name, const Take& take, const std::string& help);
    void number(const std::string& name, long& value, long least, long most, const std::string& help);
    void flag(const std::string& name, bool& value, const std::string& help);
    // A flag that says what is the rule, so it changes nothing; it cannot stand beside `opposite`.
    void ruleFlag(const std::string& name, const std::string& opposite, const std::string& help);

  private:
    CLI::App& app;
};

// The program's own line, beside the commands that do something for a peer or for the computer.
struct ProgramLine {
    const char* name;
    const char* summary;
    const char* help;
    std::string (*versions)();
    void (*declareOptions)(Options& options);
    std::span<const Command> furtherCommands;
    Action withoutCommand;
};

// Parse `words` (UTF-8) and run the action that they choose. They tell what is wrong with them.
ExitCode runProgramLine(const ProgramLine& program, std::vector<std::string> words, Context& context);
ExitCode runSessionLine(std::vector<std::string> words, Context& context);

// The help on a command that a session has.
std::string helpOn(const std::string& command);
