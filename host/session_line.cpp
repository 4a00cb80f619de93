#include "session_line.h"

#include "usage_error.h"

namespace {

constexpr const char* blanks = " \t\r\n";

// Takes the word at `position`, which is moved behind it.
std::string takeWord(const std::string& line, size_t& position) {
    std::string word;
    bool quoted = false;
    for (; position < line.size(); ++position) {
        const char character = line[position];
        if (character == '"')
            quoted = !quoted;
        else if (!quoted && std::string_view(blanks).find(character) != std::string_view::npos)
            break;
        else
            word += character;
    }
    if (quoted)
        throw UsageError("a quoted word does not end");
    return word;
}

} // namespace

bool isCommand(const std::string& line) {
    const size_t start = line.find_first_not_of(blanks);
    return start != line.npos && line[start] != '#';
}

SessionLine parseLine(const std::string& line) {
    SessionLine parsed;
    size_t position = line.find_first_not_of(blanks);
    while (position != line.npos) {
        const size_t start = position;
        parsed.words.push_back(takeWord(line, position));
        parsed.inBackground = line.substr(start, position - start) == "&";
        position = line.find_first_not_of(blanks, position);
    }
    if (parsed.inBackground)
        parsed.words.pop_back();
    return parsed;
}
