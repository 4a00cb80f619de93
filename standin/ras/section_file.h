// Text files of sections: "[name]" lines, each followed by "key=value" lines. Phonebooks and peers.ini are such
// files. Windows' own functions for them take no account of letter case in keys, so that they would mix up the
// keys "Device" and "DEVICE" of a phonebook, and write a file in place.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace standin {

struct Line {
    std::string text;
    unsigned number = 0; // in the file it was read from

    // What stands before the first equals sign, or nothing when there is none.
    std::string_view key() const;
    std::string_view value() const;
};

struct Section {
    std::string name;
    unsigned number = 0;
    std::vector<Line> lines;

    // The first line with this key, by the letter; null when there is none.
    const Line* find(std::string_view key) const;
    // Its value, or nothing.
    std::string value(std::string_view key) const;
    // Changes that line, or adds one at the end.
    void set(std::string_view key, std::string_view value);
};

// A file without its blank lines. What stands before the first section is a section without a name.
struct SectionFile {
    std::vector<Section> sections;

    // The first section of this name, whatever the letter case; null when there is none.
    Section* find(const std::string& name);
};

// Reads a file, whose lines may end in CR LF or LF; writes it with CR LF, and a blank line behind each section.
// At every moment, a crash included, the file has its old content or the new one: it is written to a second
// file beside it, flushed, and moved into place. The caller holds off other writers. Results are Windows codes.
DWORD readSections(const std::string& path, SectionFile& file);
DWORD writeSections(const std::string& path, const SectionFile& file);

bool isMissing(DWORD readError);

// Whether two texts in the ANSI code page differ in letter case at most.
bool equalNames(const std::string& a, const std::string& b);

} // namespace standin
