#include "situation.h"

#include "facts.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace {

constexpr std::size_t lineWidth = 110;
const std::string margin(8, ' '); // of a line that goes on with the one before
constexpr char caseMark[] = "=>";

bool isExpectation(const std::string& keyword) {
    return keyword == caseMark || std::ranges::count(allSections, keyword) != 0;
}

std::string laidOut(std::string rest) {
    std::string all;
    while (rest.size() > lineWidth) {
        std::size_t end = rest.rfind("; ", lineWidth - 2) + 1;
        if (end <= margin.size())
            end = rest.rfind(' ', lineWidth);
        if (end <= margin.size())
            break;
        all += rest.substr(0, end) + "\n";
        rest = margin + rest.substr(end + 1);
    }
    return all + rest + "\n";
}

std::string expectation(const Situation& situation, Step step) {
    std::string text;
    if (!situation.isCase) {
        for (const std::string& section : allSections)
            if (!step.expected[section].empty())
                text += laidOut(fmt::format("{:<8}", section) + step.expected[section]);
        return text;
    }
    for (const auto& [section, words] : situation.sections) {
        const std::string& expected = step.expected[section];
        text += (text.empty() ? "  => " : " | ") + (expected.empty() ? "-" : expected);
    }
    return laidOut(text);
}

} // namespace

bool Section::counts(const std::string& line) const {
    const auto isIn = [&](const std::string& word) { return line.find(word) != std::string::npos; };
    const auto isOut = [&](const std::string& word) { return word[0] == '-' && isIn(word.substr(1)); };
    const bool anyLine = std::ranges::all_of(words, [](const std::string& word) { return word[0] == '-'; });
    return (anyLine || std::ranges::any_of(words, isIn)) && std::ranges::none_of(words, isOut);
}

SituationFile::SituationFile(const std::string& path_) : path(path_) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    int number = 0;
    for (std::string written; std::getline(file, written);) {
        ++number;
        const bool goesOn = written.starts_with(margin) && !lines.empty();
        Line& line = goesOn ? lines.back() : lines.emplace_back(Line{"", "", "", number});
        std::istringstream rest(written);
        std::string text;
        if (!goesOn)
            rest >> line.keyword;
        std::getline(rest >> std::ws, text);
        line.text += (goesOn ? " " : "") + text;
        line.written += written + "\n";
    }
    for (const Line& line : lines) {
        try {
            take(line);
        } catch (const std::exception& reason) {
            throw std::runtime_error(fmt::format("{}:{}: {}", path, line.number, reason.what()));
        }
    }
}

void SituationFile::take(const Line& line) {
    const auto& [keyword, text, written, number] = line;
    if (keyword.empty() || keyword == "#")
        return;
    if (keyword == "situation") {
        situations.emplace_back().name = text;
        take({"only", "calls; log; left"});
        return;
    }
    Situation& situation = situations.at(situations.size() - 1);
    std::vector<Step>& steps = situation.steps;
    if (keyword == "given") {
        situation.given = text;
    } else if (keyword == "show" || keyword == "may") {
        for (const std::string& word : words(text))
            situation.remarks.insert(keyword + " " + word);
    } else if (keyword == "only") {
        situation.sections = {{"gives", {}}}; // which counts always
        for (const std::string& section : pieces(text == "gives" ? "" : text, ';')) {
            std::vector<std::string> all = words(section);
            if (all[0] == "log" && section.find("Func2") == std::string::npos)
                all.push_back("-rasDialFunc2:");
            situation.sections.push_back({all[0], {all.begin() + 1, all.end()}});
        }
    } else if (keyword == "course") {
        course = text;
    } else if (keyword == "do") {
        steps.push_back({std::exchange(course, ""), text, {}, number});
    } else if (keyword == "case") {
        const Step step = {text, steps.at(0).operation, {}, number};
        if (std::exchange(situation.isCase, true))
            situations.push_back(situation);
        situations.back().steps = {step};
    } else if (keyword == caseMark) {
        const std::vector<std::string> fields = pieces(text, '|');
        for (std::size_t i = 0; i < fields.size(); ++i)
            if (fields[i] != "-")
                steps.at(0).expected[situation.sections.at(i).name] = fields[i];
    } else if (isExpectation(keyword)) {
        steps.at(steps.size() - 1).expected[keyword] = text;
    } else {
        throw std::runtime_error("no line begins with \"" + keyword + "\"");
    }
}

void SituationFile::write() const {
    std::map<int, std::string> expectations;
    for (const Situation& situation : situations)
        for (const Step& step : situation.steps)
            expectations[step.line] = expectation(situation, step);
    std::ofstream file(path, std::ios::binary);
    for (const Line& line : lines)
        if (!isExpectation(line.keyword))
            file << line.written << expectations[line.number];
}
