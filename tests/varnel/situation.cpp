#include "situation.h"

#include "facts.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace {

constexpr std::size_t lineWidth = 110;
const std::string margin(8, ' '); // of a line that goes on with the one before

// A line, over as many as it takes.
std::string laidOut(std::string line) {
    std::string all;
    while (line.size() > lineWidth) {
        std::size_t end = line.rfind("; ", lineWidth - 2) + 1;
        if (end <= margin.size())
            end = line.rfind(' ', lineWidth);
        if (end <= margin.size())
            break;
        all += line.substr(0, end) + "\n";
        line.replace(0, end + 1, margin);
    }
    return all + line + "\n";
}

std::string expectation(const Situation& situation, Step step) {
    std::string lines, brief;
    for (const auto& [section, words] : situation.sections) {
        const std::string& text = step.expected[section];
        if (!text.empty())
            lines += laidOut((section + margin).substr(0, margin.size()) + text);
        brief += (brief.empty() ? "  => " : " | ") + (text.empty() ? "-" : text);
    }
    while (brief.ends_with(" | -"))
        brief.resize(brief.size() - 4);
    return situation.isBrief ? laidOut(brief) : lines;
}

// Those of a line "only"; the result counts always.
std::vector<Section> sectionsOf(const std::string& text) {
    std::vector<Section> sections = {{"gives", {}}};
    for (const std::string& section : pieces(text == "gives" ? "" : text, ';')) {
        std::vector<std::string> all = words(section);
        if (all[0] == "log" && section.find("Func2") == std::string::npos)
            all.push_back("-rasDialFunc2:");
        sections.push_back({all[0], {all.begin() + 1, all.end()}});
    }
    return sections;
}

std::map<std::string, std::string> expectedOf(const std::string& text, const std::vector<Section>& sections) {
    std::map<std::string, std::string> expected;
    const std::vector<std::string> fields = pieces(text, '|');
    for (std::size_t i = 0; i < std::min(fields.size(), sections.size()); ++i)
        if (fields[i] != "-")
            expected[sections[i].name] = fields[i];
    return expected;
}

} // namespace

bool Section::counts(const std::string& line) const {
    const auto isIn = [&](const std::string& word) { return line.find(word) != std::string::npos; };
    const auto isUnword = [](const std::string& word) { return word[0] == '-'; };
    const auto isOut = [&](const std::string& word) { return isUnword(word) && isIn(word.substr(1)); };
    return std::ranges::none_of(words, isOut) &&
           (std::ranges::all_of(words, isUnword) || std::ranges::any_of(words, isIn));
}

SituationFile::SituationFile(const std::string& path_) : path(path_) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(margin) && !lines.empty())
            lines.back() += "\n" + line;
        else
            lines.push_back(line);
    for (const std::string& line : lines)
        try {
            take(line);
        } catch (const std::exception& reason) {
            throw std::runtime_error(path + ": " + line + ": " + reason.what());
        }
    for (const Situation& situation : situations)
        if (situation.steps.empty())
            throw std::runtime_error(path + ": nothing is done in: " + situation.name);
}

void SituationFile::take(const std::string& line) {
    if (const std::size_t outcome = line.find("  => "); outcome != 0 && outcome != std::string::npos) {
        take(line.substr(0, outcome));
        return take(line.substr(outcome));
    }
    std::istringstream rest(line);
    std::string keyword, text;
    std::getline(rest >> keyword >> std::ws, text, '\0');
    replaceAll(text, "\n" + margin, " ");
    const bool isExpectation = keyword == "=>" || std::ranges::count(allSections, keyword) != 0;
    if (!isExpectation)
        written += line + "\n";
    if (keyword.empty() || keyword == "#")
        return;
    if (keyword == "situation") {
        situations.emplace_back().name = text;
        situations.back().sections = sectionsOf("calls; log; left");
        return;
    }
    Situation& situation = situations.back();
    std::vector<Step>& steps = situation.steps;
    if (keyword == "given") {
        situation.given = text;
    } else if (keyword == "show" || keyword == "may") {
        for (const std::string& word : words(text))
            situation.remarks.insert(keyword + " " + word);
    } else if (keyword == "only") {
        situation.sections = sectionsOf(text);
        situation.isBrief = true;
    } else if (keyword == "course") {
        course = text;
    } else if (keyword == "do") {
        steps.push_back({std::exchange(course, ""), text, {}, std::exchange(written, "")});
    } else if (keyword == "case") {
        const Step common = steps.at(0);
        if (common.course.empty()) // the first case
            written.insert(0, common.written);
        else
            situations.push_back(situation);
        situations.back().steps = {{text, common.operation, {}, std::exchange(written, "")}};
    } else if (keyword == "=>") {
        steps.back().expected = expectedOf(text, situation.sections);
    } else if (isExpectation) {
        steps.back().expected[keyword] = text;
    } else {
        throw std::runtime_error("no line begins with \"" + keyword + "\"");
    }
}

void SituationFile::write() const {
    std::ofstream file(path, std::ios::binary);
    for (const Situation& situation : situations)
        for (const Step& step : situation.steps) {
            const std::string outcome = expectation(situation, step);
            std::string lines = step.written;
            const std::size_t last = lines.size() - lines.rfind('\n', lines.size() - 2);
            if (situation.isBrief && last + outcome.size() < lineWidth + 4)
                lines.pop_back(); // it has room on the line of what is done
            file << lines << outcome;
        }
    file << written;
}
