#include "play.h"

#include "privates.h"

#include <algorithm>
#include <cstdio>
#include <functional>

namespace {

// Beside these, {Node} is the phonebook of that peer.
const std::pair<std::string_view, std::string_view> abbreviations[] = {
    {"{all}", "C:\\all\\Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk"},
    {"{Kestrin}", "C:\\sys\\Drivers\\KESTRIN.SYS"},
    {"{Ombrel}", "C:\\sys\\Drivers\\Ombrel.SYS"}};

constexpr std::size_t longTail = 244; // "Node..." is as long as an id with room for " #0"

std::string freshPeer() {
    static int number;
    char text[16];
    std::snprintf(text, sizeof text, "Node%05d", ++number);
    return text;
}

std::string lowCase(std::string text) {
    Convert2LowCase(text);
    return text;
}

// Lines that come again and again, in groups of up to three, with how often they do.
std::vector<std::string> folded(const std::vector<std::string>& calls) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < calls.size();) {
        std::size_t best = 1, times = 1;
        for (std::size_t group = 1; group <= 3; ++group) {
            std::size_t repeats = 1;
            while (i + (repeats + 1) * group <= calls.size() &&
                   std::equal(calls.begin() + static_cast<long>(i),
                              calls.begin() + static_cast<long>(i + group),
                              calls.begin() + static_cast<long>(i + repeats * group)))
                ++repeats;
            if (repeats > 2 && repeats * group > best * times)
                best = group, times = repeats;
        }
        const std::vector<std::string> group(calls.begin() + static_cast<long>(i),
                                             calls.begin() + static_cast<long>(i + best));
        lines.push_back(times == 1 ? group[0] : "(" + joined(group, "; ") + ") x " + std::to_string(times));
        i += best * times;
    }
    return lines;
}

struct Operation {
    const std::vector<std::string>& said;

    bool has(const char* word) const { return std::ranges::count(said, word) != 0; }
    std::string argument() const { return said.size() > 1 ? said[1] : std::string(); }
    std::string after(const char* word, const std::string& otherwise) const {
        const auto found = std::ranges::find(said, word);
        return found == said.end() ? otherwise : *(found + 1);
    }
    DWORD address() const { return ntohl(inet_addr(after("at", "10.0.0.1").c_str())); }
};

// Read before anything overwrites the stack of the call that has just returned.
[[gnu::noinline]] bool stands(const std::string& password) {
    const volatile char* const place = std::exchange(theComputer().passwordPlace, nullptr);
    std::size_t equal = 0;
    while (place != nullptr && equal < password.size() && place[equal] == password[equal])
        ++equal;
    return place != nullptr && equal == password.size();
}

std::string dialUp(decltype(VARNEL::dialUp) function, const Operation& op, Outcome& outcome) {
    const std::string id = op.argument(), password = op.after("password", "secret");
    struct Look {
        const std::string& password;
        bool& left;
        ~Look() { left = stands(password); }
    } const look{password, outcome.passwordLeft};
    return std::to_string(function(id, password, op.has("public"), op.has("encrypted"), op.address()));
}

std::string yes(bool result) {
    return result ? "true" : "false";
}

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

std::string init(const Operation& op, Outcome& outcome) {
    std::wstring message = L"of an earlier call";
    const bool ready = VARNEL::init(privates::pptpsrvDialDownCallback, op.has("kestrin"), op.has("ombrel"),
                                    op.has("any"), op.has("client"), op.has("disable"), message);
    std::string says = unicode2utf8(message);
    replaceAll(says, "\r\n", "\x1F"); // between lines
    outcome.says = pieces(says, '\x1F');
    return yes(ready);
}

std::string stateNames(long first, long last) {
    std::vector<std::string> names;
    for (long state = first; state <= last; ++state)
        names.push_back(privates::getStateString(static_cast<RASCONNSTATE>(state)));
    return joined(names, "; ");
}

std::string operate(const std::string& operation, Outcome& outcome) {
    using namespace privates;
    const std::vector<std::string> said = words(operation);
    const Operation op{said};
    const std::map<std::string, std::function<std::string()>> known = {
        {"init", [&] { return init(op, outcome); }},
        {"clean", [] { return VARNEL::clean(), "done"; }},
        {"dialUp", [&] { return dialUp(&VARNEL::dialUp, op, outcome); }},
        {"dialUp2", [&] { return ::dialUp(&dialUp2, op, outcome); }},
        {"dialDown", [&] { return yes(VARNEL::dialDown(op.argument())); }},
        {"entryName", [&] { return quoted(VARNEL::getCurrentEntryNameById(op.argument())); }},
        {"isActive", [&] { return yes(getEntryStatus(op.argument())); }},
        {"active",
         [] {
             const std::list<std::string> names = getAllActiveEntry();
             return quoted(joined({names.begin(), names.end()}, ", "));
         }},
        {"states", [&] { return stateNames(std::stol(said.at(1)), std::stol(said.at(2))); }},
        {"dialDownSameIp", [&] { return yes(dialDownSameIp(op.address())); }},
        {"setLocation", [&] { return yes(setLocation(op.argument())); }},
        {"chgWanEndPoints", [] { return yes(chgWanEndPoints()); }},
        {"setKestrinChgPort", [&] { return yes(setKestrinChgPort(op.has("changed"))); }},
        {"uninstallKestrin", [] { return uninstallDriverAndDeleteKestrin(), "done"; }},
        {"uninstallOmbrel", [] { return uninstallDriverAndDeleteSOmbrel(), "done"; }},
    };
    const auto found = known.find(said.at(0));
    if (found == known.end())
        throw std::invalid_argument("a host cannot do \"" + operation + "\"");
    return found->second();
}

} // namespace

Run::Run(const Situation& situation_) : situation(situation_), peer(freshPeer()) {
    std::vector<Fault> none;
    apply(situation.given, none);
}

std::string Run::meant(std::string text) const {
    for (const auto& [brief, full] : abbreviations)
        replaceAll(text, brief, full);
    for (std::size_t from = text.find('{'); from != std::string::npos; from = text.find('{', from + 1)) {
        const std::size_t to = text.find('}', from);
        const std::string id = text.substr(from + 1, to - from - 1);
        text.replace(from, to + 1 - from, "C:\\peers\\" + id + "\\pptp.pbk");
    }
    replaceAll(text, "...", std::string(longTail, 'n'));
    replaceAll(text, "\\0", std::string_view("\0", 1));
    replaceAll(text, "Node", peer);
    replaceAll(text, "node", lowCase(peer));
    return text;
}

std::string Run::shown(std::string text) const {
    static const std::string folder = "C:\\peers\\", file = "\\pptp.pbk";
    for (const auto& [brief, full] : abbreviations)
        replaceAll(text, full, brief);
    for (std::size_t from = text.find(folder); from != std::string::npos; from = text.find(folder, from + 1))
        if (const std::size_t to = text.find(file, from); to != std::string::npos)
            text.replace(from, to + file.size() - from,
                         "{" + text.substr(from + folder.size(), to - from - folder.size()) + "}");
    replaceAll(text, peer, "Node");
    replaceAll(text, lowCase(peer), "node");
    replaceAll(text, std::string(longTail, 'n'), "...");
    replaceAll(text, std::string_view("\0", 1), "\\0");
    return text;
}

void Run::apply(const std::string& items, std::vector<Fault>& failures) {
    for (const std::string& item : pieces(meant(items), ';')) {
        const std::vector<std::string> said = words(item);
        if (said.at(0) == "dials") {
            computer.dials.clear();
            for (const std::string& dial : pieces(item.substr(5), ','))
                computer.dials.emplace_back(dial);
        } else if (said[0] == "fails") { // FUNCTION NTH CODE [on]
            failures.push_back(
                {&importOf(said.at(1)), std::stol(said.at(2)), said.back() == "on", std::stoul(said.at(3))});
        } else if (said[0] == "deaf") { // MS: from when on
            computer.clock.in(std::stoul(said.at(1)), [] { privates::pptpsrvDialDownCallback = nullptr; });
        } else {
            computer.apply(item);
        }
    }
}

std::string Run::section(const Section& section, const std::vector<std::string>& lines) const {
    std::vector<std::string> counting;
    for (const std::string& line : lines) {
        const auto has = [&](const std::string& word) { return line.find(word) != std::string::npos; };
        if ((section.words.empty() || std::ranges::any_of(section.words, has)) &&
            std::ranges::none_of(section.unwords, has))
            counting.push_back(line);
    }
    return joined(folded(counting), "; ");
}

Outcome Run::perform(const Step& step, const std::vector<Fault>& planned) {
    Outcome outcome;
    std::vector<Fault> failures;
    apply(step.course, failures);
    failures.insert(failures.end(), planned.begin(), planned.end());
    journal::wanted = std::ranges::count(situation.show, "detail") != 0 ? Seen::detail : Seen::shown;
    computer.showsRecords = std::ranges::count(situation.show, "records") != 0;
    computer.log.clear();
    computer.traces.clear();
    computer.told.clear();
    const Facts before = computer.state();
    HRASCONN const lastBefore = computer.lastConnection;
    const unsigned long long start = computer.clock.elapsed;
    const std::string operation = meant(step.operation);
    faults::plan(failures);
    try {
        outcome.result = shown(operate(operation, outcome));
    } catch (const std::bad_alloc&) {
        outcome.threw = true;
        outcome.result = "throws";
    }
    std::vector<std::string> calls = journal::take();
    const unsigned long long took = computer.clock.elapsed - start;
    computer.settle();
    const auto open = std::ranges::count_if(computer.connections, [=](const Connection& connection) {
        return connection.handle > lastBefore && connection.dialled && !connection.hungUp;
    });
    const auto isExcused = [&](const Import* import) {
        return import->failures != 0 &&
               (import->name == "RasHangUpA" || std::ranges::count(situation.may, import->name) != 0);
    };
    if (operation.starts_with("dialUp") && open > (outcome.result == "0" ? 1 : 0) &&
        std::ranges::count(situation.may, "leave") == 0 && std::ranges::none_of(allImports(), isExcused))
        complain("a dialled connection is given up and not hung up");
    outcome.offences = takeComplaints();
    outcome.log = computer.log;
    outcome.told = computer.told;
    outcome.left = differences(before, computer.state());
    for (std::vector<std::string>* all :
         {&calls, &computer.traces, &outcome.log, &outcome.told, &outcome.left})
        std::ranges::transform(*all, all->begin(), [this](const std::string& line) { return shown(line); });
    outcome.sections["gives"] = outcome.result + (took != 0 ? " after " + std::to_string(took) + " ms" : "");
    const std::map<std::string, std::vector<std::string>> lines = {{"calls", calls},
                                                                   {"log", outcome.log},
                                                                   {"says", outcome.says},
                                                                   {"trace", computer.traces},
                                                                   {"left", outcome.left}};
    for (const Section& wanted : situation.sections)
        if (const std::string text = section(wanted, lines.at(wanted.name)); !text.empty())
            outcome.sections[wanted.name] = text;
    return outcome;
}

void Tally::failure(const std::string& text) {
    constexpr unsigned long mostShown = 20;
    if (++failed <= mostShown)
        std::printf("%s\n\n", text.c_str());
}

namespace {

// Two texts that differ, from a little before where they do.
std::string difference(const std::string& expected, const std::string& came) {
    const std::vector<std::string> one = pieces(expected, ';'), other = pieces(came, ';');
    std::size_t same = 0;
    while (same < one.size() && same < other.size() && one[same] == other[same])
        ++same;
    const auto from = [same](const std::vector<std::string>& all) {
        return same < all.size() ? all[same] : std::string("(nothing more)");
    };
    return "the text: " + from(one) + "\n    it came:  " + from(other) +
           (same > 0 ? "\n    after:    " + one[same - 1] : "");
}

} // namespace

void playAsWritten(std::vector<SituationFile>& files, Tally& tally) {
    const bool accepts = isAsked("VARNEL_ACCEPT");
    for (SituationFile& file : files)
        for (Situation& situation : file.situations) {
            std::string failure;
            for (Play& play : situation.plays) {
                Run run(situation);
                for (Step& step : play.steps) {
                    watchdog::watch(situation.name);
                    const Outcome outcome = run.perform(step);
                    ++tally.runs;
                    for (const std::string& offence : outcome.offences)
                        failure += "\n  " + step.operation + ": " + offence;
                    for (const std::string& section : allSections)
                        if (const auto in =
                                [&](auto& all) { return all.contains(section) ? all.at(section) : ""; };
                            failure.empty() && !accepts && in(step.expected) != in(outcome.sections))
                            failure = "\n  " + step.operation +
                                      (step.course.empty() ? "" : ", " + step.course) + "\n  " + section +
                                      "\n    " + difference(in(step.expected), in(outcome.sections));
                    if (accepts)
                        step.expected = outcome.sections;
                }
            }
            if (failure.empty())
                ++tally.passed;
            else
                tally.failure("situation  " + situation.name + failure);
        }
    watchdog::watch("");
    if (accepts)
        for (const SituationFile& file : files)
            file.write();
}
