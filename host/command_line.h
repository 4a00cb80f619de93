// Command lines: what the commands take from them, how they are parsed, and the help on them.
#pragma once

#include "commands.h"
#include "peer.h"

#include <functional>
#include <memory>
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

    explicit Options(CLI::App& commandLine) : app(commandLine) {}

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

// How a command is declared that takes no arguments, and one that takes the id of a peer, which it gets
// checked.
template<ExitCode (*Run)(Context&)>
Action declareBare(Options&) {
    return Run;
}

template<ExitCode (*Run)(const std::string&, Context&)>
Action declareForPeer(Options& options) {
    const auto id = std::make_shared<std::string>();
    options.requiredWord("ID", *id, "The peer's id");
    return [id](Context& context) { return Run(checkedId(*id), context); };
}

// The program's own line, beside its commands.
struct ProgramLine {
    const char* name;
    const char* summary;
    const char* help;
    std::string (*versions)();
    void (*declareOptions)(Options& options);
    void (*begin)(Console& console); // once the options are known, before the command
    Action withoutCommand;
};

// Parse `words` (UTF-8) and run the action that they choose. They tell what is wrong with them.
ExitCode runProgramLine(const ProgramLine& program, std::vector<std::string> words, Context& context);
ExitCode runSessionLine(std::vector<std::string> words, Context& context);

// The help on a command that a session has.
std::string helpOn(const std::string& command);
