// Text files of sections: "[name]" lines, each followed by "key=value" lines. Phonebooks, the stored
// credentials and peers.ini are such files. What is read is kept line for line, so that writing changes
// nothing but what was meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace standin {

struct Line {
    std::string text;
    unsigned number = 0; // in the file it was read from

    // What stands before the first equals sign, or nothing when there is none: a blank line or a comment.
    std::string_view key() const;
    std::string_view value() const;
};

struct Section {
    std::string name;
    unsigned number = 0;
    std::vector<Line> lines;

    // The value of the first line with this key, by the letter; `otherwise` when there is none.
    std::string value(std::string_view key, std::string_view otherwise = {}) const;
    // Changes the first line with this key, or adds one behind the last line that is not blank.
    void set(std::string_view key, std::string_view value);
    void erase(std::string_view key);
};

struct SectionFile {
    std::vector<Line> preamble; // before the first section
    std::vector<Section> sections;

    // The first section of this name, whatever the letter case; null when there is none.
    Section* find(std::string_view name);
    const Section* find(std::string_view name) const;
};

// Lines may end in CR LF or LF.
SectionFile parseSections(std::string_view text);

// Lines end in CR LF; a blank line stands between sections.
std::string renderSections(const SectionFile& file);

// Whether two texts in the ANSI code page differ in letter case at most.
bool equalNames(std::string_view a, std::string_view b);

} // namespace standin
