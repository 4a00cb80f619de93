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
    for (auto section = sections.begin(); const std::string& field : pieces(text, '|'))
        expected[section++->name] = field == "-" ? "" : field;
    return expected;
}

} // namespace

bool Section::counts(const std::string& line) const {
    const auto isIn = [&](const std::string& word) { return boost::contains(line, word); };
    const auto isUnword = [](const std::string& word) { return word[0] == '-'; };
    const auto isOut = [&](const std::string& word) { return isUnword(word) && isIn(word.substr(1)); };
    return std::ranges::none_of(words, isOut) &&
           (std::ranges::all_of(words, isUnword) || std::ranges::any_of(words, isIn));
}

SituationFile::SituationFile(const std::string& file) : path(file) {
    std::ifstream text(path);
    std::vector<std::string> whole; // lines, each with those that go on with it
    for (std::string line; std::getline(text, line);)
        if (line.starts_with(margin) && !whole.empty())
            whole.back() += "\n" + line;
        else
            whole.push_back(line);
    for (const std::string& line : whole)
        try {
            take(line);
        } catch (const std::exception& reason) {
            throw std::runtime_error(path + ": " + line + ": " + reason.what());
        }
    if (std::ranges::count(situations, 0U, [](const auto& each) { return each.steps.size(); }) != 0 ||
        situations.empty())
        throw std::runtime_error(path + ": a situation in which nothing is done");
}

void SituationFile::take(const std::string& line) {
    if (const std::size_t outcome = line.find("  => "); outcome != 0 && outcome != std::string::npos) {
        take(line.substr(0, outcome));
        return take(line.substr(outcome));
    }
    std::istringstream rest(line);
    std::string keyword, text;
    std::getline(rest >> keyword >> std::ws, text, '\0');
    boost::replace_all(text, "\n" + margin, " ");
    const bool isSection = std::ranges::count(allSections, keyword) != 0;
    if (keyword != "=>" && !isSection)
        lines.push_back(line);
    if (keyword.empty() || keyword == "#")
        return;
    if (keyword == "situation") {
        situations.emplace_back().name = text;
        situations.back().sections = sectionsOf("calls; log; left");
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
        situation.sections = sectionsOf(text);
        situation.isBrief = true;
    } else if (keyword == "course") {
        course = text;
    } else if (keyword == "do") {
        steps.push_back({std::exchange(course, ""), text, {}, lines.size() - 1});
    } else if (keyword == "case") {
        const Step common = steps.at(0);
        if (!common.course.empty()) // that of the case before
            situations.push_back(situation);
        situations.back().steps = {{text, common.operation, {}, lines.size() - 1}};
    } else if (keyword == "=>") {
        steps.at(steps.size() - 1).expected = expectedOf(text, situation.sections);
    } else if (isSection) {
        steps.at(steps.size() - 1).expected[keyword] = text;
    } else {
        throw std::runtime_error("no line begins with \"" + keyword + "\"");
    }
}

void SituationFile::write() const {
    std::map<std::size_t, std::string> outcomes;
    for (const Situation& situation : situations)
        for (const Step& step : situation.steps)
            outcomes[step.line] = expectation(situation, step);
    std::ofstream file(path, std::ios::binary);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const bool hasRoom = lines[i].size() + outcomes[i].size() < lineWidth + 2; // with the end of its line
        file << lines[i] << (hasRoom && outcomes[i].starts_with("  =>") ? "" : "\n") << outcomes[i];
    }
}
