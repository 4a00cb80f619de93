#include "background_dials.h"
#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "interruption.h"
#include "outside/Helper.h"
#include "outside/Log.h"
#include "session.h"
#include "text.h"

#include <fmt/format.h>

#include <windows.h>

#include <exception>
#include <memory>
#include <utility>
#include <vector>

namespace {

constexpr const char* programHelp =
    R"(Without a command: a session, from the console or from standard input.
"varnel-host COMMAND --help" tells more of a command.

Examples:
  varnel-host
  varnel-host init --ombrel
  varnel-host dial node7 10.0.0.7
  varnel-host --log-file varnel.log --log-level 3 session morning.txt

Exit codes:
  0 done                    4 connecting failed
  1 anything not named here 5 hanging up failed
  2 wrong usage             8 the remote-access service is not there
  3 not confirmed in time  10 no such peer or connection

Environment: TAVIK_WORKING_FOLDER, the folder with a folder for each peer;
TAVIK_LOG_FILE, the log when --log-file names none.)";

constexpr const char* sessionHelp =
    R"(A script holds a command a line, blank lines and lines that begin with #. "help"
in a session lists the commands. "dial ... &" goes on with the next line while
it dials; "wait" waits for all of these.

Examples:
  varnel-host session
  varnel-host session --password-file peers.password morning.txt

Exit code: that of the first line that failed, 0 when none did)";

std::vector<std::string> utf8Words(int count, wchar_t** arguments) {
    std::vector<std::string> words;
    for (int i = 1; i < count; ++i)
        words.push_back(unicode2utf8(arguments[i]));
    return words;
}

std::string fileVersion(const wchar_t* module) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(GetModuleHandleW(module), path, MAX_PATH);
    const unsigned long long version = GetFileVersion(toAnsi(unicode2utf8(path)).value_or(""));
    return fmt::format("{}.{}.{}", version >> 48, version >> 32 & 0xFFFF, version >> 16 & 0xFFFF);
}

std::string versions() {
    return fmt::format("varnel-host {}, Varnel.dll {}", fileVersion(nullptr), fileVersion(L"Varnel.dll"));
}

void declareLogOptions(Options& options) {
    options.number("--log-level", LOG::level, 0, 3, "Log 0 nothing, 1 major actions, 2 failures too, 3 all");
    options.file(
        "--log-file",
        [](const std::string& file) {
            SetEnvironmentVariableW(L"TAVIK_LOG_FILE", utf82unicode(file).c_str());
        },
        "Log into this file; - is standard error");
}

Action declareSession(Options& options) {
    const auto given = std::make_shared<SessionOptions>();
    options.word("SCRIPT", given->script, "The file with the commands");
    options.file(
        "--password-file", [given](const std::string& file) { given->passwordFile = file; },
        "The password of dials that name no file themselves");
    options.flag("--stop-on-error", given->stopOnError, "Read no further line once a command has failed");
    options.ruleFlag("--keep-going", "--stop-on-error", "Read on after a failed command, which is the rule");
    return [given](Context& context) { return runSession(*given, context.console); };
}

constexpr Command programCommands[] = {
    {"session", "Runs commands from a script, from standard input or from the console", sessionHelp, false,
     declareSession},
};

ExitCode runProgram(Console& console, std::vector<std::string> words) {
    const ProgramLine program = {
        .name = "varnel-host",
        .summary =
            "Prepares the computer, connects to peers over PPTP, hangs them up, and tells what is connected.",
        .help = programHelp,
        .versions = versions,
        .declareOptions = declareLogOptions,
        .furtherCommands = programCommands,
        .withoutCommand = [](Context& context) { return runSession({}, context.console); }};
    BackgroundDials background;
    Context context{.console = console,
                    .background = background,
                    .passwordFrom =
                        console.readsConsole() ? PasswordFrom::console : PasswordFrom::standardInput,
                    .where = "varnel-host: "};
    return runProgramLine(program, std::move(words), context);
}

} // namespace

int wmain(int count, wchar_t** arguments) {
    Console console;
    watchForInterruption(console);
    try {
        return static_cast<int>(runProgram(console, utf8Words(count, arguments)));
    } catch (const std::exception& failure) {
        console.message(fmt::format("varnel-host: {}", failure.what()));
        return static_cast<int>(ExitCode::failed);
    }
}
