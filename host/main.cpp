#include "background_dials.h"
#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "console.h"
#include "hanging_up.h"
#include "interruption.h"
#include "log_file.h"
#include "outcome.h"
#include "outside/Helper.h"
#include "outside/Log.h"
#include "session.h"
#include "text.h"

#include <fmt/format.h>

#include <windows.h>

#include <exception>
#include <set>
#include <utility>
#include <vector>

namespace {

constexpr const char* programHelp =
    R"(Without a command: a session, from the console or from standard input.
"varnel-host COMMAND --help" tells more of a command.

Examples:
  varnel-host
  varnel-host init
  varnel-host dial node7 10.0.0.7
  varnel-host --log-file varnel.log --log-level 3 session morning.txt

Exit codes:
  0 done                         6 the remote-access service
  1 anything not named here      7 no such peer, connection, code or log
  2 wrong usage                  8, 9 the doctor found something
  3 nobody answers in time      10 busy here
  4 refused, or no cause known  11 this computer
  5 still connected

Environment: TAVIK_WORKING_FOLDER, the folder with a folder for each peer;
TAVIK_LOG_FILE, the log when --log-file names none.)";

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

// Hangs up what this run has dialled if a person wanted that after Ctrl+C.
ExitCode leave(ExitCode code, const Telling& telling) {
    const std::set<std::string> peers = peersToHangUp();
    if (peers.empty())
        return code;
    const Connections before = activeConnections();
    {
        const ProgressLine progress(telling.console, "hanging up");
        hangUpAll(peers);
    }
    const Connections left = activeConnections();
    for (const std::string& id : peers)
        if (left.error != 0)
            code = tell(failure(id, "not surely hung up", left.error), telling);
        else if (left.has(id))
            code = tell({ExitCode::notHungUp, id, "still connected"}, telling);
        else if (before.has(id))
            code = tell({ExitCode::failed, id, "hung up"}, telling);
    return code;
}

ExitCode runProgram(Console& console, std::vector<std::string> words) {
    const ProgramLine program = {
        .name = "varnel-host",
        .summary =
            "Prepares the computer, connects to peers over PPTP, hangs them up, and tells what is connected.",
        .help = programHelp,
        .versions = versions,
        .declareOptions = declareLogOptions,
        .begin = checkLogFile,
        .withoutCommand = [](Context& context) {
            return runSession({.json = context.telling.json}, context.console);
        }};
    BackgroundDials background;
    Context context{.console = console,
                    .background = background,
                    .passwordFrom =
                        console.readsConsole() ? PasswordFrom::console : PasswordFrom::standardInput,
                    .where = "varnel-host: ",
                    .telling = {.console = console, .command = "varnel-host"}};
    const ExitCode code = runProgramLine(program, std::move(words), context);
    return leave(code, context.telling);
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
