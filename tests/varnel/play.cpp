#include "play.h"

#include "privates.h"

#include <ranges>

namespace {

// What a text says for short, and what it means by that.
std::vector<std::pair<std::string, std::string>> abbreviationsOfRun() {
    static int number;
    const std::string digits = fmt::format("{:05}", ++number);
    return {{"{all}", "C:\\all\\Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk"},
            {"{Kestrin}", "C:\\sys\\Drivers\\KESTRIN.SYS"},
            {"{Ombrel}", "C:\\sys\\Drivers\\Ombrel.SYS"},
            {"{Node}", "C:\\peers\\Node\\pptp.pbk"},
            {"{Other}", "C:\\peers\\Other\\pptp.pbk"},
            {"...", std::string(244, 'n')}, // "Node..." is as long as an id with room for " #0"
            {"<0>", std::string(1, '\0')},
            {"Node", "Node" + digits},
            {"node", "node" + digits}};
}

// A line that comes again and again is shown once, with how often it does.
std::vector<std::string> folded(const std::vector<std::string>& lines) {
    std::vector<std::string> all;
    for (auto line = lines.begin(); line != lines.end();) {
        const auto end = std::find_if(line, lines.end(), [&](const auto& next) { return next != *line; });
        if (end - line > 2)
            all.push_back(fmt::format("({}) x {}", *line, end - line));
        else
            all.insert(all.end(), line, end);
        line = end;
    }
    return all;
}

// Two texts that differ, from the line in which they do.
std::string difference(const std::string& expected, const std::string& came) {
    const auto same = std::ranges::mismatch(expected, came).in1 - expected.begin();
    const std::size_t from = expected.rfind("; ", static_cast<std::size_t>(same)) + 1;
    return fmt::format("\n    the text: {:.300}\n    it came:  {:.300}", expected.substr(from),
                       came.substr(from));
}

// Read before anything overwrites the stack of the call that has just returned.
[[gnu::noinline]] bool stands(const std::string& password) {
    const volatile char* const place = std::exchange(theComputer().passwordPlace, nullptr);
    return place != nullptr && std::equal(password.begin(), password.end(), place);
}

// The names of the states from one number up to another, and so on.
std::string stateNames(const std::vector<std::string>& said) {
    std::vector<std::string> names;
    for (std::size_t i = 1; i + 1 < said.size(); i += 2)
        for (long state = std::stol(said[i]); state <= std::stol(said[i + 1]); ++state)
            names.push_back(privates::getStateString(static_cast<RASCONNSTATE>(state)));
    return joined(names, "; ");
}

bool init(const std::string& operation, std::vector<std::string>& lines) {
    const auto has = [&](const char* word) { return says(operation, word); };
    std::wstring message = L"of an earlier call";
    const bool ready = VARNEL::init(privates::pptpsrvDialDownCallback, has("kestrin"), has("ombrel"),
                                    has("any"), has("client"), has("disable"), message);
    lines = pieces(unicode2utf8(message), '\n');
    return ready;
}

void operate(const std::string& operation, Outcome& outcome) {
    using namespace privates;
    using fmt::format, fmt::to_string;
    const std::vector<std::string> said = words(operation);
    const std::string id = said.size() > 1 ? said[1] : "",
                      password = wordAfter(operation, "password", "secret");
    const DWORD address = ntohl(inet_addr(wordAfter(operation, "at", "10.0.0.1").c_str()));
    const auto dial = [&](auto function) {
        return to_string(
            function(id, password, says(operation, "public"), says(operation, "encrypted"), address));
    };
    const std::map<std::string, std::function<std::string()>> known = {
        {"init", [&] { return to_string(init(operation, journal::lines["says"])); }},
        {"clean", [] { return VARNEL::clean(), "done"; }},
        {"dialUp", [&] { return dial(&VARNEL::dialUp); }},
        {"dialUp2", [&] { return dial(&dialUp2); }},
        {"dialDown", [&] { return to_string(VARNEL::dialDown(id)); }},
        {"entryName", [&] { return format("\"{}\"", VARNEL::getCurrentEntryNameById(id)); }},
        {"isActive", [&] { return to_string(getEntryStatus(id)); }},
        {"active", [] { return format("\"{}\"", fmt::join(getAllActiveEntry(), ", ")); }},
        {"states", [&] { return stateNames(said); }},
        {"removePhoneBook", [&] { return to_string(removePhoneBook(id)); }},
        {"dialDownSameIp", [&] { return to_string(dialDownSameIp(address)); }},
        {"setLocation", [&] { return to_string(setLocation(id)); }},
        {"chgWanEndPoints", [] { return to_string(chgWanEndPoints()); }},
        {"setKestrinChgPort", [&] { return to_string(setKestrinChgPort(says(operation, "changed"))); }},
        {"uninstallKestrin", [] { return uninstallDriverAndDeleteKestrin(), "done"; }},
        {"uninstallOmbrel", [] { return uninstallDriverAndDeleteSOmbrel(), "done"; }},
    };
    try {
        outcome.result = known.at(said.at(0))();
    } catch (const std::bad_alloc&) {
        outcome.result = "throws";
    }
    outcome.passwordLeft = stands(password);
}

} // namespace

Run::Run(const Situation& played, DWORD pollTakes, std::span<const Step> before)
    : situation(played), abbreviations(abbreviationsOfRun()) {
    computer.clock.yieldTakes = pollTakes;
    apply(situation.given);
    for (const Step& step : before)
        perform(step);
}

std::string Run::meant(std::string text) const {
    for (const auto& [brief, full] : abbreviations)
        boost::replace_all(text, brief, full);
    return text;
}

std::string Run::shown(std::string text) const {
    for (auto pair = abbreviations.rbegin(); pair != abbreviations.rend(); ++pair)
        boost::replace_all(text, pair->second, pair->first);
    return text;
}

std::vector<Fault> Run::apply(const std::string& items) {
    std::vector<Fault> failures;
    for (const std::string& item : pieces(meant(items), ';')) {
        const std::vector<std::string> said = words(item);
        if (said.at(0) == "dials") {
            computer.dials = pieces(item.substr(5), ',');
        } else if (said[0] == "fails") { // FUNCTION NTH CODE [on]
            failures.push_back(
                {&importOf(said.at(1)), std::stol(said.at(2)), said.back() == "on", std::stoul(said.at(3))});
        } else if (said[0] == "deaf") { // MS: from when on
            computer.clock.in(std::stoul(said.at(1)), [] { privates::pptpsrvDialDownCallback = nullptr; });
        } else {
            computer.apply(item);
        }
    }
    return failures;
}

Outcome Run::perform(const Step& step, const std::vector<Fault>& disturbances) {
    Outcome outcome;
    std::vector<Fault> failures = apply(step.course);
    std::ranges::copy(disturbances, std::back_inserter(failures));
    journal::wanted = situation.remarks.contains("show detail") ? Seen::detail : Seen::shown;
    computer.showsRecords = situation.remarks.contains("show records");
    const Facts before = computer.state();
    HRASCONN const lastBefore = computer.lastConnection;
    const unsigned long long start = computer.clock.elapsed;
    const std::string operation = meant(step.operation);
    faults::plan(failures);
    operate(operation, outcome);
    computer.settle();
    outcome.result = shown(outcome.result);
    auto& lines = journal::lines;
    const unsigned long long took = computer.clock.elapsed - start;
    lines["gives"] = {outcome.result + (took != 0 ? fmt::format(" after {} ms", took) : "")};
    lines["left"] = differences(before, computer.state());
    const auto open = std::ranges::count_if(computer.connections, [=](const Connection& connection) {
        return connection.handle > lastBefore && connection.dialled && !connection.hungUp;
    });
    const auto isExcused = [&](const Import* import) {
        return import->failures != 0 && (import->name == "RasHangUpA" || situation.may(import->name));
    };
    if (operation.starts_with("dialUp") && open > (outcome.result == "0" ? 1 : 0) &&
        std::ranges::none_of(allImports(), isExcused))
        complain("a dialled connection is given up and not hung up");
    outcome.offences = std::exchange(complaints, {});
    for (auto& [section, all] : lines)
        std::ranges::transform(all, all.begin(), [this](const std::string& line) { return shown(line); });
    for (const Section& section : situation.sections) {
        std::vector<std::string> counting = lines[section.name];
        std::erase_if(counting, [&](const std::string& line) { return !section.counts(line); });
        outcome.sections[section.name] = joined(folded(counting), "; ");
    }
    outcome.lines = std::exchange(lines, {});
    return outcome;
}

void playAsWritten(Situation& situation) {
    Run run(situation, 1);
    for (Step& step : situation.steps) {
        report::begin(fmt::format("{}: {}, {}", situation.name, step.operation, step.course));
        Outcome came = run.perform(step);
        if (accepts)
            step.expected = came.sections;
        for (const std::string& section : allSections)
            if (const std::string& expected = step.expected[section], &other = came.sections[section];
                expected != other)
                came.offences.push_back(section + difference(expected, other));
        report::end(came.offences);
    }
}
