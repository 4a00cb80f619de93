#include "background_dials.h"
#include "commands.h"
#include "console.h"
#include "interruption.h"
#include "outside/Helper.h"
#include "outside/Log.h"
#include "session.h"
#include "text.h"
#include "usage_error.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <windows.h>

#include <exception>

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

void declareLogOptions(CLI::App& app) {
    app.add_option_function<long>(
           "--log-level", [](const long& level) { LOG::level = level; },
           "Log 0 nothing, 1 major actions, 2 failures too, 3 all")
        ->check(CLI::Range(0, 3))
        ->option_text("N");
    app.add_option_function<std::string>(
           "--log-file",
           [](const std::string& file) {
               SetEnvironmentVariableW(L"TAVIK_LOG_FILE", utf82unicode(file).c_str());
           },
           "Log into this file; - is standard error")
        ->option_text("FILE");
}

Action declareSession(CLI::App& options) {
    const auto given = std::make_shared<SessionOptions>();
    options.add_option("SCRIPT", given->script, "The file with the commands");
    options
        .add_option("--password-file", given->passwordFile,
                    "The password of dials that name no file themselves")
        ->option_text("FILE");
    CLI::Option* stop = options.add_flag("--stop-on-error", given->stopOnError,
                                         "Read no further line once a command has failed");
    options
        .add_flag_callback(
            "--keep-going", [] {}, "Read on after a failed command, which is the rule")
        ->excludes(stop);
    return [given](Context& context) { return runSession(*given, context.console); };
}

constexpr Command programCommands[] = {
    {"session", "Runs commands from a script, from standard input or from the console", sessionHelp, false,
     declareSession},
};

ExitCode runProgram(Console& console, std::vector<std::string> words) {
    CLI::App app(
        "Prepares the computer, connects to peers over PPTP, hangs them up, and tells what is connected.",
        "varnel-host");
    app.allow_windows_style_options(false);
    app.fallthrough();
    app.require_subcommand(0, 1);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.set_version_flag("--version", versions,
                         "Print the versions of the program and of the library, and exit");
    app.footer(programHelp);
    declareLogOptions(app);
    Action chosen = [](Context& context) { return runSession({}, context.console); };
    declareCommands(app, peerCommands(), chosen);
    declareCommands(app, computerCommands(), chosen);
    declareCommands(app, programCommands, chosen);

    BackgroundDials background;
    Context context{.console = console,
                    .background = background,
                    .passwordFrom =
                        console.readsConsole() ? PasswordFrom::console : PasswordFrom::standardInput,
                    .where = "varnel-host: "};
    return parseAndRun(app, std::move(words), chosen, context);
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
