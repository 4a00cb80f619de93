#include "log/text_view.h"

#include "log/clues.h"
#include "words/explain.h"

#include <fmt/format.h>

#include <algorithm>

namespace logs {
namespace {

constexpr std::size_t lineWidth = 79;
constexpr std::int32_t barWidth = 35;

std::string peerText(const Dial& dial) {
    return dial.peer.empty() ? "(not named)" : dial.peer;
}

std::string secondsText(std::int32_t milliseconds) {
    return fmt::format("{}.{:03}", milliseconds / 1000, milliseconds % 1000);
}

std::string codeText(unsigned code) {
    const std::string name = explain(code, Language::english).name;
    return name.empty() ? fmt::format("error {}", code) : fmt::format("{} {}", code, name);
}

// Breaks `text` between words; the first line begins with `label`, the others as far to the right.
std::string paragraph(const std::string& label, const std::string& text) {
    std::string lines = label;
    std::size_t column = label.size();
    Scanner words(text);
    while (!words.rest.empty()) {
        const std::string_view word = words.until(" ").value_or(words.rest);
        if (word.data() + word.size() == text.data() + text.size())
            words.rest = {};
        if (column > label.size() && column + 1 + word.size() > lineWidth) {
            lines += '\n' + std::string(label.size(), ' ');
            column = label.size();
        }
        if (column > label.size()) {
            lines += ' ';
            ++column;
        }
        lines += word;
        column += word.size();
    }
    return lines + '\n';
}

// What this side does is "=", what it only waits for "-", and what never ended ".".
std::string bar(const Phase& phase, std::int32_t whole) {
    const auto column = [&](std::int32_t at) {
        return whole == 0 ? 0 : static_cast<std::int64_t>(at) * barWidth / whole;
    };
    const auto from = std::min<std::int64_t>(column(phase.begin), barWidth - 1);
    const auto to = std::max(column(phase.end), from + 1);
    const bool waits = phase.stage == Stage::pause || phase.stage == Stage::confirmation;
    std::string drawn(static_cast<std::size_t>(from), ' ');
    drawn.append(static_cast<std::size_t>(to - from), !phase.ended ? '.' : waits ? '-' : '=');
    drawn.append(static_cast<std::size_t>(barWidth - to), ' ');
    return drawn;
}

std::string phaseLine(const Phase& phase, std::int32_t whole) {
    const std::string note = phase.code != 0 ? fmt::format(" {}", phase.code) : phase.ended ? "" : " no end";
    return fmt::format("{:>8}  {:>8}  {:<14} |{}|{}\n", secondsText(phase.begin),
                       spanText(phase.end - phase.begin), nameOf(phase.stage), bar(phase, whole), note);
}

std::string phaseLines(const Dial& dial) {
    const std::string whole = spanText(dial.took);
    std::string lines =
        fmt::format("{:>8}  {:>8}  {:<14} |0{:>{}}|\n", "at (s)", "took", "phase", whole, barWidth - 1);
    int attempt = -1;
    for (const Phase& phase : dial.phases) {
        if (dial.entries.size() > 1 && phase.attempt != attempt && phase.attempt < dial.entries.size()) {
            attempt = phase.attempt;
            const std::string& entry = dial.entries[phase.attempt];
            lines += fmt::format("dialled {}{}\n", attempt == 0 ? "first" : "again",
                                 entry.empty() ? "" : fmt::format(" as \"{}\"", entry));
        }
        lines += phaseLine(phase, dial.took);
    }
    return lines;
}

std::string stampLine(const Dial& dial) {
    std::string line;
    const auto add = [&](const char* name, const std::optional<std::int32_t>& at) {
        line += fmt::format("{}{} {}", line.empty() ? "" : ", ", name, at ? secondsText(*at) : "-");
    };
    add("port open", dial.stamps.portOpened);
    add("server reached", dial.stamps.serverReached);
    add("authenticated", dial.stamps.authenticated);
    add("link up", dial.stamps.linkUp);
    return line + '\n';
}

std::string whatWentWrong(std::size_t number, const std::vector<Dial>& dials) {
    const Dial& dial = dials[number];
    const unsigned code = codeOfCauses(dial);
    const Explanation words = code == 0 ? Explanation() : explain(code, Language::english);
    std::string lines = "\n";
    lines += paragraph("What:    ", whatHappened(dial));
    lines += paragraph("How far: ", howFar(dial));
    if (!words.causes.empty())
        lines += paragraph("Causes:  ", words.causes);
    for (const char* label = "Clues:   "; const std::string& clue : cluesOn(number, dials)) {
        lines += paragraph(label, clue);
        label = "         ";
    }
    if (!words.advice.empty())
        lines += paragraph("Try:     ", words.advice);
    return lines;
}

} // namespace

std::string outcomeText(const Dial& dial) {
    std::string text;
    switch (dial.outcome) {
    case Outcome::connected:
        text = "connected";
        break;
    case Outcome::failed:
        text = codeText(dial.code);
        break;
    case Outcome::unconfirmed:
        text = "not confirmed" + (dial.endedIn ? fmt::format(", {} did not end", nameOf(*dial.endedIn)) : "");
        break;
    case Outcome::unfinished:
        text = "no end in the log" + (dial.endedIn ? fmt::format(", was at {}", nameOf(*dial.endedIn)) : "");
        break;
    }
    return text + (dial.redialled ? ", redialled" : "");
}

DialTable::DialTable(const std::vector<std::size_t>& numbers, const std::vector<Dial>& of) : dials(of) {
    for (const std::size_t number : numbers)
        peerWidth = std::clamp(peerText(dials[number]).size(), peerWidth, std::size_t{24});
}

std::string DialTable::heading() const {
    return fmt::format("{:>5}  {:<19}  {:<{}}  {:>8}  {}", "dial", "began", "peer", peerWidth, "took",
                       "outcome");
}

std::string DialTable::line(std::size_t number) const {
    const Dial& dial = dials[number];
    return fmt::format("{:>5}  {}  {:<{}}  {:>8}  {}", number + 1, toSeconds(dial.began), peerText(dial),
                       peerWidth, dial.traced ? spanText(dial.took) : "?", outcomeText(dial));
}

std::string timeline(std::size_t number, const std::vector<Dial>& dials) {
    const Dial& dial = dials[number];
    std::string lines = fmt::format("Dial {}: {}{}, {}, thread {}/{}\n", number + 1, peerText(dial),
                                    dial.address.empty() ? "" : " at " + dial.address,
                                    toMilliseconds(dial.began), dial.process, dial.thread);
    lines += outcomeText(dial);
    if (!dial.linkAddress.empty() && dial.outcome == Outcome::connected)
        lines += fmt::format(", address {} on the link", dial.linkAddress);
    if (dial.hungUp)
        lines += ", hung up " + spanText(*dial.hungUp - dial.took) + " later";
    lines += "\n\n";
    if (dial.traced)
        lines += phaseLines(dial) + '\n' + stampLine(dial);
    else
        lines += "The log has failures alone; it shows the phases of what is dialled at level 3.\n";
    if (dial.outcome != Outcome::connected)
        lines += whatWentWrong(number, dials);
    lines.pop_back();
    return lines;
}

} // namespace logs
