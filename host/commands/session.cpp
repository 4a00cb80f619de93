#include "session.h"

#include "command_line.h"
#include "commands.h"
#include "password.h"

#include <memory>

namespace {

Action declare(Options& options) {
    const auto wishes = std::make_shared<SessionOptions>();
    options.word("SCRIPT", wishes->script, "The file with the commands");
    options.file(
        "--password-file", [wishes](const std::string& file) { wishes->passwordFile = file; },
        "The password of dials that name no file themselves");
    options.flag("--stop-on-error", wishes->stopOnError, "Read no further line once a command has failed");
    options.ruleFlag("--keep-going", "--stop-on-error", "Read on after a failed command, which is the rule");
    return [wishes](Context& context) {
        wishes->json = context.telling.json;
        if (!wishes->passwordFile.empty())
            passwordFromFile(wishes->passwordFile); // or it throws before the first line runs
        return runSession(*wishes, context.console);
    };
}

constexpr const char* examples =
    R"(A script holds a command a line, blank lines and lines that begin with #. "help"
in a session lists the commands. "dial ... &" goes on with the next line while
it dials; "wait" waits for all of these.

Examples:
  varnel-host session
  varnel-host session --password-file peers.password morning.txt

Exit code: that of the first line that failed, 0 when none did)";

} // namespace

const Command sessionCommand = {"session",
                                "Runs commands from a script, from standard input or from the console",
                                examples, false, declare};
