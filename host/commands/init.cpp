#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "console.h"
#include "hanging_up.h"
#include "left_over.h"
#include "outcome.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "peer_folders.h"

#include <fmt/format.h>

#include <chrono>
#include <memory>

namespace {

// What a person asked for that this Windows does not do.
void tellWhatIsLeftOut(const Library::Wishes& wishes, Console& console) {
    if (wishes.kestrin && GetIs64Os())
        console.message("init: --kestrin does nothing on a 64-bit Windows");
    if (wishes.ombrel && IsWin6Plus())
        console.message("init: --ombrel does nothing since Windows Vista");
}

// The service that keeps anything from being dialled; empty when there is none.
std::string missingService() {
    for (const char* service : {"TapiSrv", "RasMan"}) {
        bool installed = false;
        if (!IsServiceEnabled(service, &installed))
            return fmt::format("the service {} is {}", service, installed ? "disabled" : "not installed");
    }
    return {};
}

Outcome outcomeOf(const Library::Wishes& wishes, bool prepared, double seconds, Console& console) {
    const auto text = [&](const char* state) {
        return fmt::format("the computer is {}prepared, {:.1f} s", state, seconds);
    };
    if (const std::string missing = missingService(); !missing.empty())
        return failure("init", fmt::format("{}: {}", text("not "), missing), Cause::service);
    if (const unsigned long error = activeConnections().error)
        return failure("init", text("not "), error);
    if (!prepared)
        return {ExitCode::failed, "init", text("not ")};
    return wishes.onlyClient ? Outcome{ExitCode::done, "init", text("")}
                             : whatStayed("init", text(""), console);
}

ExitCode init(const Library::Wishes& wishes, Context& context) {
    if (!mayWorkTheComputer(context, initCommand))
        return ExitCode::failed;
    const auto start = std::chrono::steady_clock::now();
    const bool prepared = [&] {
        const ProgressLine progress(context.console, "init: preparing the computer");
        const ToldHangUps told(context.console);
        const bool ready = context.library.init(wishes, context.console);
        if (!wishes.onlyClient)
            hangUpAll(knownPeers().ids);
        return ready;
    }();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    tellWhatIsLeftOut(wishes, context.console);
    return tell(outcomeOf(wishes, prepared, elapsed.count(), context.console), context.telling);
}

Action declare(Options& options) {
    const auto wishes = std::make_shared<Library::Wishes>();
    options.flag("--kestrin", wishes->kestrin,
                 "Install the port-redirect driver Kestrin (32-bit Windows only)");
    options.flag("--ombrel", wishes->ombrel,
                 "Install the DNS-filter driver Ombrel (before Windows Vista only)");
    options.flag("--any-address", wishes->anyAddress,
                 "TCP port 1723 must be free on every address, not only on 127.0.0.1");
    options.flag("--only-client", wishes->onlyClient,
                 "Dial out only: leave the port, the known peers and the RemoteAccess service alone");
    options.flag("--disable-remote-access", wishes->disableRemoteAccess,
                 "Disable the RemoteAccess service, so that it does not start again");
    return [wishes](Context& context) { return init(*wishes, context); };
}

constexpr const char* examples =
    R"(Raises the number of PPTP ports, hangs up and removes what an earlier run left of
the peers in the working folder, installs the drivers asked for, enables the
services TapiSrv and RasMan, stops RemoteAccess, and sees whether TCP port 1723
is free. Needs administrator rights; may take minutes shortly after boot.

Example:
  varnel-host init

Exit codes: 0 prepared, 2 wrong arguments, 5 prepared but a known peer is still
connected, 6 the remote-access service is not there, 1 not prepared, or for an
error as with "dial"; the message says what to put right)";

} // namespace

const Command initCommand = {"init", "Prepares the computer for dialling and for a server of its own",
                             examples, false, declare};
