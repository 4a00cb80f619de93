#include "situation.h"

#include "facts.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace {

constexpr std::size_t lineWidth = 110;
constexpr std::size_t indentation = 8;
constexpr char caseMark[] = "=>";

// A keyword and its text, over as many lines as it takes.
std::string laidOut(const std::string& keyword, const std::string& text) {
    std::string all =
        keyword == caseMark ? "  => " : keyword + std::string(indentation - keyword.size(), ' ');
    std::size_t column = all.size(), from = 0;
    while (text.size() - from > lineWidth - column) {
        std::size_t end = text.rfind("; ", from + lineWidth - column - 2);
        end = end == std::string::npos || end <= from ? text.rfind(' ', from + lineWidth - column) : end + 1;
        if (end == std::string::npos || end <= from)
            break;
        all += text.substr(from, end - from) + "\n" + std::string(indentation, ' ');
        column = indentation;
        from = end + 1;
    }
    return all + text.substr(from) + "\n";
}

bool isExpectation(const std::string& keyword) {
    return keyword == caseMark || std::ranges::count(allSections, keyword) != 0;
}

} // namespace

SituationFile::SituationFile(const std::string& path_) : path(path_) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    int number = 0;
    std::vector<int> numbers;
    for (std::string text; std::getline(file, text);) {
        ++number;
        text.erase(text.find_last_not_of("\r ") + 1);
        const std::size_t start = text.find_first_not_of(' ');
        if (start == std::string::npos || text[start] == '#') {
            lines.push_back({"", text});
        } else if (start >= indentation && !lines.empty()) {
            lines.back().text += " " + text.substr(start);
            continue;
        } else {
            const std::size_t end = std::min(text.find(' ', start), text.size());
            const std::size_t rest = std::min(text.find_first_not_of(' ', end), text.size());
            lines.push_back({text.substr(start, end - start), text.substr(rest)});
        }
        numbers.push_back(number);
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
        try {
            take(lines[i]);
        } catch (const std::exception& reason) {
            throw std::runtime_error(path + ":" + std::to_string(numbers[i]) + ": " + reason.what());
        }
    }
}

void SituationFile::take(const Line& line) {
    if (line.keyword.empty())
        return;
    if (line.keyword == "situation") {
        situations.push_back({line.text,
                              {},
                              {{"calls", {}, {}}, {"log", {}, {"rasDialFunc2:"}}, {"left", {}, {}}},
                              {},
                              {},
                              false,
                              {{}}});
        return;
    }
    Situation& situation = situations.at(situations.size() - 1);
    Play& play = situation.plays.back();
    if (line.keyword == "given") {
        situation.given = line.text;
    } else if (line.keyword == "only") {
        situation.sections.clear();
        for (const std::string& section : pieces(line.text, ';')) {
            std::vector<std::string> all = words(section);
            if (all.at(0) == "gives") // which counts always
                continue;
            Section& wanted = situation.sections.emplace_back(Section{all.at(0), {}, {}});
            for (std::size_t i = 1; i < all.size(); ++i)
                (all[i].starts_with('-') ? wanted.unwords : wanted.words)
                    .push_back(all[i].substr(all[i][0] == '-'));
            if (wanted.name == "log" && section.find("Func2") == std::string::npos)
                wanted.unwords.push_back("rasDialFunc2:");
        }
    } else if (line.keyword == "show") {
        situation.show = words(line.text);
    } else if (line.keyword == "may") {
        situation.may = words(line.text);
    } else if (line.keyword == "course") {
        play.steps.push_back({line.text, {}, {}});
    } else if (line.keyword == "do") {
        if (play.steps.empty() || !play.steps.back().operation.empty())
            play.steps.emplace_back();
        play.steps.back().operation = line.text;
    } else if (line.keyword == "case") {
        if (std::exchange(situation.inCases, true))
            situation.plays.push_back({{{line.text, play.steps.at(0).operation, {}}}});
        else
            play.steps.at(0).course = line.text;
    } else if (isExpectation(line.keyword)) {
        takeExpectation(line);
    } else {
        throw std::runtime_error("no line begins with \"" + line.keyword + "\"");
    }
}

void SituationFile::takeExpectation(const Line& line) {
    const Situation& situation = situations.back();
    Step& step = situations.back().plays.back().steps.back();
    if (line.keyword != caseMark) {
        step.expected[line.keyword] = line.text;
        return;
    }
    const std::vector<std::string> fields = pieces(line.text, '|');
    for (std::size_t i = 0; i < std::min(fields.size(), situation.sections.size() + 1); ++i)
        if (fields[i] != "-")
            step.expected[i == 0 ? "gives" : situation.sections.at(i - 1).name] = fields[i];
}

void SituationFile::write() const {
    std::ofstream file(path, std::ios::binary);
    auto situation = situations.begin() - 1;
    std::size_t play = 0, step = 0;
    for (const Line& line : lines) {
        if (isExpectation(line.keyword))
            continue;
        file << (line.keyword.empty()          ? line.text + "\n"
                 : line.keyword == "situation" ? "situation  " + line.text + "\n"
                                               : laidOut(line.keyword, line.text));
        if (line.keyword == "situation")
            ++situation, play = step = 0;
        if (line.keyword == "case") {
            const auto& expected = situation->plays.at(play++).steps.at(0).expected;
            std::string text = expected.at("gives");
            for (const Section& section : situation->sections)
                text += " | " + (expected.contains(section.name) ? expected.at(section.name) : "-");
            file << laidOut(caseMark, text);
        } else if (line.keyword == "do" && !situation->inCases) {
            for (const std::string& section : allSections)
                if (const auto& expected = situation->plays.at(0).steps.at(step).expected;
                    expected.contains(section))
                    file << laidOut(section, expected.at(section));
            ++step;
        }
    }
}
