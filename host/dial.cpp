#include "dial.h"

#include "console.h"
#include "interruption.h"
#include "meanings.h"
#include "text.h"
#include "varnel/Varnel.h"

#include <fmt/format.h>

#include <chrono>

namespace {

// The library's shortest wait for the end of a dial. It reports no error when a wait runs out, so only a
// success that took less time than this is certain.
constexpr double shortestWaitSeconds = 10;

ExitCode reportError(const std::string& id, unsigned long code, Console& console) {
    console.result(fmt::format("{}: not connected: error {}, {}", id, code, meaningOf(code)));
    if (const std::string advice = adviceOn(code); !advice.empty())
        console.message(fmt::format("{}: {}", id, advice));
    return exitCodeOf(code);
}

} // namespace

DialEnd runDial(const DialRequest& request) {
    const Uninterruptible running;
    const auto start = std::chrono::steady_clock::now();
    const DWORD code = VARNEL::dialUp(request.id, request.password.text(), request.usePublicPhoneBook,
                                      request.requireEncryption, request.ip);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    return {code, code == 0 ? VARNEL::getCurrentEntryNameById(request.id) : std::string(), elapsed.count()};
}

ExitCode reportDial(const DialRequest& request, const DialEnd& end, Console& console) {
    const std::string id = utf8FromAnsi(request.id);
    if (end.code != 0)
        return reportError(id, end.code, console);
    if (!end.entry.empty()) {
        console.result(
            fmt::format("{}: connected, entry \"{}\", {:.1f} s", id, utf8FromAnsi(end.entry), end.seconds));
        return ExitCode::done;
    }
    if (end.seconds < shortestWaitSeconds) {
        console.result(fmt::format(
            "{}: connected, entry not among the first three active connections, {:.1f} s", id, end.seconds));
        return ExitCode::done;
    }
    console.result(
        fmt::format("{}: not confirmed: no error, but after {:.1f} s none of the first three active "
                    "connections is its own",
                    id, end.seconds));
    console.message(id +
                    ": most likely it does not answer: check the address, and that the peer's server runs; "
                    "with more than three connections active it may be connected all the same");
    return ExitCode::timedOut;
}
