#include "background_dials.h"
#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "interruption.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "status.h"
#include "text.h"
#include "varnel/Varnel.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>

namespace {

struct InitArguments {
    bool kestrin = false;
    bool ombrel = false;
    bool anyAddress = false;
    bool onlyClient = false;
    bool disableRemoteAccess = false;
};

// Where the library's call-back finds the console; null before init and after clean.
std::atomic<Console*> toldOfHangUps = nullptr;

void tellOfHangUp(const std::string& id) {
    if (Console* console = toldOfHangUps)
        console->message(utf8FromAnsi(id) + ": hung up (told by the library)");
}

// The library wants nothing else to run beside init and clean, so the dials in the background end first.
bool mayWorkTheComputer(Context& context, const char* command) {
    if (!hasAdministratorRights()) {
        context.console.result(fmt::format("{}: not done: administrator rights are needed", command));
        context.console.message(fmt::format(
            "{}: start the program from a console that was opened with \"Run as administrator\"", command));
        return false;
    }
    if (!context.soleHost.take()) {
        context.console.result(fmt::format(
            "{}: not done: another varnel-host has prepared this computer and still runs", command));
        context.console.message(
            fmt::format("{}: it would hang up what that one has dialled; end its session first", command));
        return false;
    }
    context.background.wait(context.console);
    return true;
}

// Every line of a text for a person, whose line ends are Windows'.
void showMessage(const std::wstring& message, Console& console) {
    std::string text = unicode2utf8(message);
    std::erase(text, '\r');
    if (!text.empty())
        console.message(text);
}

bool servicesAreThere(Console& console) {
    bool all = true;
    for (const char* service : {"TapiSrv", "RasMan"}) {
        bool installed = false;
        if (IsServiceEnabled(service, &installed))
            continue;
        console.message(fmt::format("init: the service {} is {}; nothing can be dialled without it", service,
                                    installed ? "disabled" : "not installed"));
        all = false;
    }
    return all;
}

ExitCode init(const InitArguments& arguments, Context& context) {
    if (!mayWorkTheComputer(context, "init"))
        return ExitCode::failed;
    toldOfHangUps = &context.console;
    std::wstring message;
    const auto start = std::chrono::steady_clock::now();
    const bool prepared = [&] {
        const Uninterruptible running;
        const ProgressLine progress(context.console, "init: preparing the computer");
        return VARNEL::init(tellOfHangUp, arguments.kestrin, arguments.ombrel, arguments.anyAddress,
                            arguments.onlyClient, arguments.disableRemoteAccess, message);
    }();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    showMessage(message, context.console);
    context.console.result(
        fmt::format("init: the computer is {}prepared, {:.1f} s", prepared ? "" : "not ", elapsed.count()));
    if (!servicesAreThere(context.console))
        return ExitCode::serviceMissing;
    return prepared ? ExitCode::done : ExitCode::failed;
}

ExitCode clean(Context& context) {
    if (!mayWorkTheComputer(context, "clean"))
        return ExitCode::failed;
    {
        const Uninterruptible running;
        const ProgressLine progress(context.console, "clean: hanging up the known peers");
        VARNEL::clean();
    }
    toldOfHangUps = nullptr;
    context.console.result("clean: done");
    return ExitCode::done;
}

ExitCode status(Context& context) {
    showStatus(context.console);
    return ExitCode::done;
}

Action declareInit(Options& options) {
    const auto arguments = std::make_shared<InitArguments>();
    options.flag("--kestrin", arguments->kestrin,
                 "Install the port-redirect driver Kestrin (32-bit Windows only)");
    options.flag("--ombrel", arguments->ombrel,
                 "Install the DNS-filter driver Ombrel (before Windows Vista only)");
    options.flag("--any-address", arguments->anyAddress,
                 "TCP port 1723 must be free on every address, not only on 127.0.0.1");
    options.flag("--only-client", arguments->onlyClient,
                 "Dial out only: leave the port, the stale entries and the RemoteAccess service alone");
    options.flag("--disable-remote-access", arguments->disableRemoteAccess,
                 "Disable the RemoteAccess service before it is stopped");
    return [arguments](Context& context) { return init(*arguments, context); };
}

template<ExitCode (*command)(Context&)>
Action declareBare(Options&) {
    return command;
}

constexpr const char* initExamples =
    R"(Raises the number of PPTP ports, hangs up and removes what an earlier run left of
the peers in the working folder, installs the drivers asked for, enables the
services TapiSrv and RasMan, stops RemoteAccess, and sees whether TCP port 1723
is free. Needs administrator rights; may take minutes shortly after boot.

Example:
  varnel-host init --ombrel --kestrin

Exit codes: 0 prepared, 2 wrong arguments, 8 TapiSrv or RasMan is not there or
disabled, 1 not prepared; the message says what to put right)";

constexpr const char* cleanExamples =
    R"(Hangs up the peers in the working folder. Before Windows Vista their entries and
phonebooks go as well, and so they do wherever no "init" ran in the same session
before. After "init --only-client" nothing is touched.

Example:
  varnel-host clean

Exit codes: 0 done, 2 wrong arguments, 1 anything else)";

constexpr const char* statusExamples =
    R"(The peers with a folder in the working folder, the services, TCP port 1723, the
drivers and the ports of the miniports. Changes nothing.

Example:
  varnel-host status)";

constexpr Command commands[] = {
    {"init", "Prepares the computer for dialling and for a server of its own", initExamples, false,
     declareInit},
    {"clean", "Hangs up all known peers and removes what was made for them", cleanExamples, false,
     declareBare<clean>},
    {"status", "Tells of the peers, services, port and drivers", statusExamples, false, declareBare<status>},
};

} // namespace

std::span<const Command> computerCommands() {
    return commands;
}
