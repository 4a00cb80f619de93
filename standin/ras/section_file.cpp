#include "standin/ras/section_file.h"

#include <algorithm>

#include <mbstring.h>

namespace standin {
namespace {

bool isBlank(const Line& line) {
    return line.text.find_first_not_of(" \t") == std::string::npos;
}

auto withKey(std::string_view key) {
    return [key](const Line& line) { return line.key() == key; };
}

bool startsSection(std::string_view line) {
    return line.size() >= 2 && line.front() == '[' && line.find(']') != std::string_view::npos;
}

// Takes the next line off the front of `text`.
std::string_view takeLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

void renderLines(std::string& text, const std::vector<Line>& lines) {
    for (const Line& line : lines)
        text.append(line.text).append("\r\n");
}

} // namespace

std::string_view Line::key() const {
    const std::size_t equals = text.find('=');
    return equals == std::string::npos ? std::string_view() : std::string_view(text).substr(0, equals);
}

std::string_view Line::value() const {
    const std::size_t equals = text.find('=');
    return equals == std::string::npos ? std::string_view() : std::string_view(text).substr(equals + 1);
}

std::string Section::value(std::string_view key, std::string_view otherwise) const {
    const auto line = std::find_if(lines.begin(), lines.end(), withKey(key));
    return std::string(line == lines.end() ? otherwise : line->value());
}

void Section::set(std::string_view key, std::string_view value) {
    const std::string text = std::string(key).append("=").append(value);
    const auto line = std::find_if(lines.begin(), lines.end(), withKey(key));
    if (line != lines.end()) {
        line->text = text;
        return;
    }
    const auto last = std::find_if_not(lines.rbegin(), lines.rend(), isBlank);
    lines.insert(last.base(), Line{text});
}

void Section::erase(std::string_view key) {
    std::erase_if(lines, withKey(key));
}

Section* SectionFile::find(std::string_view name) {
    const auto section = std::find_if(sections.begin(), sections.end(),
                                      [name](const Section& each) { return equalNames(each.name, name); });
    return section == sections.end() ? nullptr : &*section;
}

const Section* SectionFile::find(std::string_view name) const {
    return const_cast<SectionFile*>(this)->find(name);
}

SectionFile parseSections(std::string_view text) {
    SectionFile file;
    for (unsigned number = 1; !text.empty(); ++number) {
        const std::string_view line = takeLine(text);
        if (startsSection(line))
            file.sections.push_back({std::string(line.substr(1, line.rfind(']') - 1)), number, {}});
        else
            (file.sections.empty() ? file.preamble : file.sections.back().lines)
                .push_back({std::string(line), number});
    }
    return file;
}

std::string renderSections(const SectionFile& file) {
    std::string text;
    renderLines(text, file.preamble);
    for (const Section& section : file.sections) {
        if (!text.empty() && !text.ends_with("\r\n\r\n"))
            text.append("\r\n");
        text.append("[").append(section.name).append("]\r\n");
        renderLines(text, section.lines);
    }
    return text;
}

bool equalNames(std::string_view a, std::string_view b) {
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<const unsigned char*>(text.c_str());
    };
    return a.size() == b.size() && _mbsicmp(bytes(std::string(a)), bytes(std::string(b))) == 0;
}

} // namespace standin
