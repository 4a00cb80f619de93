#include "doctor/doctor.h"

#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "peer.h"
#include "usage_error.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

namespace {

struct DoctorArguments {
    std::string id;
    std::string address;
};

Findings examine(const DoctorArguments& arguments) {
    Findings findings;
    if (!arguments.id.empty()) {
        if (arguments.address.empty())
            throw UsageError("the way to a peer needs its ADDRESS too");
        findings = examineWay(checkedId(arguments.id), checkedAddress(arguments.address));
    }
    std::ranges::move(examineAll(), std::back_inserter(findings));
    return findings;
}

Tone toneOf(Grade grade) {
    switch (grade) {
    case Grade::wrong:
        return Tone::bad;
    case Grade::doubtful:
        return Tone::doubtful;
    case Grade::well:
        break;
    }
    return Tone::good;
}

void show(const Findings& findings, Console& console) {
    for (const Finding& finding : findings) {
        console.result({{fmt::format("{:<9}", wordOf(finding.grade)), toneOf(finding.grade)},
                        {fmt::format(" {}: {}", finding.subject, finding.found)}});
        if (!finding.advice.empty())
            console.result(fmt::format("{:<9}   {}", "", finding.advice));
    }
    const auto count = [&](Grade grade) { return std::ranges::count(findings, grade, &Finding::grade); };
    console.result(fmt::format("{} well, {} doubtful, {} wrong", count(Grade::well), count(Grade::doubtful),
                               count(Grade::wrong)));
}

ExitCode exitCodeOf(Grade grade) {
    switch (grade) {
    case Grade::wrong:
        return ExitCode::foundWrong;
    case Grade::doubtful:
        return ExitCode::foundDoubtful;
    case Grade::well:
        break;
    }
    return ExitCode::done;
}

ExitCode doctor(const DoctorArguments& arguments, Context& context) {
    const Findings findings = examine(arguments);
    if (context.telling.json)
        tellJson(jsonOf(findings), context.telling);
    else
        show(findings, context.console);
    return exitCodeOf(worstOf(findings));
}

Action declare(Options& options) {
    const auto arguments = std::make_shared<DoctorArguments>();
    options.word("ID", arguments->id, "A peer, to look at the way to it too");
    options.word("ADDRESS", arguments->address, "The IPv4 address of that peer's server");
    return [arguments](Context& context) { return doctor(*arguments, context); };
}

constexpr const char* examples =
    R"(Windows, rights, services, TCP port 1723, drivers, ports, working folder,
phonebooks, log and modules: of each whether it is well, and what to do if not.
With ID and ADDRESS the way to a peer first, which takes up to 3 s. Changes
nothing.

Examples:
  varnel-host doctor
  varnel-host doctor node7 10.0.0.7

Exit codes, by the worst finding: 0 all is well, 8 doubtful, 9 wrong;
2 wrong arguments)";

} // namespace

const Command doctorCommand = {"doctor",
                               "Looks for what is wrong with this computer, or with the way to a peer",
                               examples, false, declare};
