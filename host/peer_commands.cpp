#include "background_dials.h"
#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "dial.h"
#include "interruption.h"
#include "peer.h"
#include "text.h"
#include "usage_error.h"
#include "varnel/Varnel.h"

#include <fmt/format.h>

#include <memory>

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

ExitCode dial(const DialArguments& arguments, Context& context) {
    DialRequest request = requestFrom(arguments, context);
    makeFolder(request.id);
    const std::string what = fmt::format("{}: dialling {}", arguments.id, arguments.address);
    if (context.inBackground) {
        context.console.message(what);
        context.background.begin(context.line, std::move(request), context.console);
        return ExitCode::done;
    }
    const DialEnd end = [&] {
        const ProgressLine progress(context.console, what);
        return runDial(request);
    }();
    return reportDial(request, end, context.console);
}

ExitCode hangUp(const std::string& givenId, Context& context) {
    const std::string id = checkedId(givenId);
    const bool found = !VARNEL::getCurrentEntryNameById(id).empty();
    const bool hungUp = [&] {
        const Uninterruptible running;
        const ProgressLine progress(context.console, givenId + ": hanging up");
        return VARNEL::dialDown(id);
    }();
    if (hungUp) {
        context.console.result(givenId + ": hung up");
        return ExitCode::done;
    }
    if (found) {
        context.console.result(givenId + ": not hung up: the service has not ended the connection");
        return ExitCode::notHungUp;
    }
    context.console.result(givenId +
                           ": nothing to hang up: none of the first three active connections is its own");
    return ExitCode::notFound;
}

ExitCode showEntry(const std::string& givenId, Context& context) {
    const std::string entry = VARNEL::getCurrentEntryNameById(checkedId(givenId));
    if (entry.empty()) {
        context.console.result(givenId + ": no entry: none of the first three active connections is its own");
        return ExitCode::notFound;
    }
    context.console.result(fmt::format("{}: entry \"{}\"", givenId, utf8FromAnsi(entry)));
    return ExitCode::done;
}

Action declareDial(Options& options) {
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

template<ExitCode (*command)(const std::string&, Context&)>
Action declareForPeer(Options& options) {
    const auto id = std::make_shared<std::string>();
    options.requiredWord("ID", *id, "The peer's id");
    return [id](Context& context) { return command(*id, context); };
}

constexpr const char* dialExamples =
    R"(Without --password-file the password is asked for at the console, unseen, or is
the first line of a standard input that is no console. It stands in no argument
and no environment variable. In a session, "dial ... &" dials in the background.

Examples:
  varnel-host dial node7 10.0.0.7
  varnel-host dial node7 10.0.0.7 --password-file node7.password

Exit codes: 0 connected, 2 wrong arguments, 3 not confirmed after the wait,
4 not connected, 8 the remote-access service is not there, 1 anything else)";

constexpr const char* hangUpExamples =
    R"(Finds the peer among the first three active connections.

Example:
  varnel-host hangup node7

Exit codes: 0 hung up, 2 wrong arguments, 5 not hung up, 10 no such connection,
1 anything else)";

constexpr const char* entryExamples =
    R"(Finds the peer among the first three active connections.

Example:
  varnel-host entry node7

Exit codes: 0 found, 2 wrong arguments, 10 no such connection, 1 anything else)";

constexpr Command commands[] = {
    {"dial", "Connects to a peer", dialExamples, true, declareDial},
    {"hangup", "Hangs up a peer's connection and removes its entry", hangUpExamples, false,
     declareForPeer<hangUp>},
    {"entry", "Tells the entry of a peer's active connection", entryExamples, false,
     declareForPeer<showEntry>},
};

} // namespace

std::span<const Command> peerCommands() {
    return commands;
}
