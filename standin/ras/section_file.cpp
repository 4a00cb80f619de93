#include "standin/ras/section_file.h"

#include "standin/ras/handles.h"

#include <algorithm>
#include <fstream>

#include <mbstring.h>

namespace standin {
namespace {

bool isBlank(const std::string& line) {
    return line.find_first_not_of(" \t") == std::string::npos;
}

bool startsSection(const std::string& line) {
    return line.front() == '[' && line.find(']') != std::string::npos;
}

std::string render(const SectionFile& file) {
    std::string text;
    for (const Section& section : file.sections) {
        if (!section.name.empty())
            text.append("[").append(section.name).append("]\r\n");
        for (const Line& line : section.lines)
            text.append(line.text).append("\r\n");
        text.append("\r\n");
    }
    return text;
}

DWORD writeFlushed(const std::string& path, const std::string& text) {
    const Handle file = owned(
        CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file || !WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr))
        return GetLastError();
    if (written != text.size())
        return ERROR_DISK_FULL;
    return FlushFileBuffers(file.get()) ? ERROR_SUCCESS : GetLastError();
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

const Line* Section::find(std::string_view key) const {
    const auto line =
        std::find_if(lines.begin(), lines.end(), [key](const Line& each) { return each.key() == key; });
    return line == lines.end() ? nullptr : &*line;
}

std::string Section::value(std::string_view key) const {
    const Line* line = find(key);
    return std::string(line ? line->value() : std::string_view());
}

void Section::set(std::string_view key, std::string_view value) {
    const Line* known = find(key);
    Line& line = known ? lines[static_cast<std::size_t>(known - lines.data())] : lines.emplace_back();
    line.text = std::string(key).append("=").append(value);
}

Section* SectionFile::find(const std::string& name) {
    const auto section = std::find_if(sections.begin(), sections.end(), [&](const Section& each) {
        return !each.name.empty() && equalNames(each.name, name);
    });
    return section == sections.end() ? nullptr : &*section;
}

DWORD readSections(const std::string& path, SectionFile& file) {
    if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        return GetLastError();
    std::ifstream stream(path, std::ios::binary);
    std::string line;
    for (unsigned number = 1; std::getline(stream, line); ++number) {
        if (line.ends_with('\r'))
            line.pop_back();
        if (isBlank(line))
            continue;
        if (startsSection(line))
            file.sections.push_back({line.substr(1, line.rfind(']') - 1), number, {}});
        else if (file.sections.empty())
            file.sections.push_back({{}, number, {{line, number}}});
        else
            file.sections.back().lines.push_back({line, number});
    }
    return stream.eof() ? ERROR_SUCCESS : ERROR_READ_FAULT;
}

DWORD writeSections(const std::string& path, const SectionFile& file) {
    // Not every system looks at this before it moves a file over another.
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY))
        return ERROR_ACCESS_DENIED;
    const std::string fresh = path + ".tmp";
    if (const DWORD error = writeFlushed(fresh, render(file)); error != ERROR_SUCCESS)
        return error;
    if (MoveFileExA(fresh.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    DeleteFileA(fresh.c_str());
    return error;
}

bool isMissing(DWORD readError) {
    return readError == ERROR_FILE_NOT_FOUND || readError == ERROR_PATH_NOT_FOUND;
}

bool equalNames(const std::string& a, const std::string& b) {
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<const unsigned char*>(text.c_str());
    };
    return a.size() == b.size() && _mbsicmp(bytes(a), bytes(b)) == 0;
}

} // namespace standin
