#include "background_dials.h"
#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "console.h"
#include "dialling.h"
#include "peer.h"
#include "peer_folders.h"
#include "text.h"
#include "usage_error.h"

#include <fmt/format.h>

#include <memory>
#include <optional>

namespace {

struct DialArguments {
    std::string id;
    std::string address;
    std::string passwordFile;
    bool usePublicPhoneBook = false;
    bool noEncryption = false;
};

Password passwordFor(const DialArguments& arguments, const Context& context) {
    if (!arguments.passwordFile.empty())
        return passwordFromFile(arguments.passwordFile);
    if (!context.passwordFile.empty())
        return passwordFromFile(context.passwordFile);
    switch (context.passwordFrom) {
    case PasswordFrom::console:
        return passwordFromConsole(context.console, arguments.id);
    case PasswordFrom::standardInput:
        return passwordFromInput();
    case PasswordFrom::fileOnly:
        break;
    }
    throw UsageError("a dial in a script needs --password-file FILE, of its own or of the session");
}

DialRequest requestFrom(const DialArguments& arguments, const Context& context) {
    const std::string id = checkedId(arguments.id);
    const unsigned long ip = checkedAddress(arguments.address);
    return {id,
            arguments.address,
            ip,
            arguments.usePublicPhoneBook,
            !arguments.noEncryption,
            passwordFor(arguments, context)};
}

// Why there is nothing to dial. Dialled once more, a connected peer would need as many hang-ups.
std::optional<Outcome> reasonNotTo(DialRequest& request, Context& context) {
    if (!request.claim.take(dialOf(request.id)))
        return failure(request.id, "not dialled: it is being dialled already", Cause::busyHere);
    const Connections connections = activeConnections();
    if (const auto place = connections.placeOf(request.id))
        return Outcome{.exit = ExitCode::done,
                       .subject = request.id,
                       .text = "connected already, nothing was dialled",
                       .entry = utf8FromAnsi(connections.list[*place].entry)};
    if (!context.library.initForDialling(context.console))
        return failure(request.id, "not dialled: a service that dialling needs cannot be enabled",
                       Cause::service);
    return std::nullopt;
}

ExitCode dial(const DialArguments& arguments, Context& context) {
    DialRequest request = requestFrom(arguments, context);
    if (const auto outcome = reasonNotTo(request, context))
        return tell(*outcome, context.telling);
    request.madeFolder = makeFolder(request.id);
    const std::string what = fmt::format("{}: dialling {}", arguments.id, arguments.address);
    if (context.inBackground) {
        context.console.message(what);
        context.background.begin(std::move(request), context.telling);
        return ExitCode::done;
    }
    const Outcome outcome = [&] {
        const ProgressLine progress(context.console, what);
        return runDial(request);
    }();
    return tell(outcome, context.telling);
}

Action declare(Options& options) {
    const auto arguments = std::make_shared<DialArguments>();
    options.requiredWord("ID", arguments->id, "The peer's id, which is also the user name");
    options.requiredWord("ADDRESS", arguments->address, "The IPv4 address of the peer's server");
    options.file(
        "--password-file", [arguments](const std::string& file) { arguments->passwordFile = file; },
        "The password is the first line of this file");
    options.flag("--public", arguments->usePublicPhoneBook,
                 "Write the entry into the phonebook of all users, not into the peer's own");
    options.flag("--no-encryption", arguments->noEncryption,
                 "Do not demand MS-CHAP v2 and encryption, as is done otherwise");
    return [arguments](Context& context) { return dial(*arguments, context); };
}

constexpr const char* examples =
    R"(Without --password-file the password is asked for at the console, unseen, or is
the first line of a standard input that is no console. It stands in no argument
and no environment variable. In a session, "dial ... &" dials in the background.
A peer that is connected is not dialled again.

Examples:
  varnel-host dial node7 10.0.0.7
  varnel-host dial node7 10.0.0.7 --password-file node7.password

Exit codes: 0 connected, 2 wrong arguments; by the cause of a failure 3 nobody
answers (or no end in time), 4 refused, or no cause is known, 6 the remote-access
service, 10 busy here, 11 this computer; 1 anything else)";

} // namespace

const Command dialCommand = {"dial", "Connects to a peer", examples, true, declare};
