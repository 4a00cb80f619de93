// The format of peer ids and of the entry names made from them, described in docs/peer-ids.md.

#include "outside/Helper.h"
#include "outside/helper/ansi_path.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

using namespace std::string_view_literals;

constexpr std::size_t maxIdLength = 128;
constexpr std::size_t maxNumberLength = 10;
constexpr auto numberMark = " #"sv;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetterOrDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string lowCase(std::string_view text) {
    std::string low(text);
    Convert2LowCase(low);
    return low;
}

// Windows opens a device under these names in any folder, whatever extension follows.
bool isDeviceName(std::string_view name) {
    static constexpr std::array plain{"con"sv,    "prn"sv,     "aux"sv,   "nul"sv,
                                      "conin$"sv, "conout$"sv, "clock$"sv};
    static constexpr std::array numbered{"com"sv, "lpt"sv};
    const std::string low = lowCase(name.substr(0, name.find('.')));
    std::string_view stem = low;
    stem.remove_suffix(stem.size() - (stem.find_last_not_of(' ') + 1));
    if (std::ranges::find(plain, stem) != plain.end())
        return true;
    return stem.size() == 4 && isDigit(stem.back()) &&
           std::ranges::find(numbered, stem.substr(0, 3)) != numbered.end();
}

bool isPeerId(std::string_view id) {
    const auto inside = [](char c) {
        return isLetterOrDigit(c) || "-_.@"sv.find(c) != std::string_view::npos;
    };
    const auto last = [](char c) { return isLetterOrDigit(c) || c == '-' || c == '_'; };
    return !id.empty() && id.size() <= maxIdLength && isLetterOrDigit(id.front()) && last(id.back()) &&
           std::ranges::all_of(id, inside) && !isDeviceName(id);
}

bool isNumber(std::string_view text) {
    return !text.empty() && text.size() <= maxNumberLength && std::ranges::all_of(text, isDigit);
}

bool isPlainFileName(std::string_view name) {
    const auto forbidden = [](char c) {
        return (c >= 0 && c < ' ') || "\\/:*?\"<>|"sv.find(c) != std::string_view::npos;
    };
    return !name.empty() && name.back() != '.' && name.back() != ' ' &&
           std::ranges::none_of(name, forbidden) && !isDeviceName(name);
}

bool contains(const std::set<std::string>& ids, const std::string& lowId) {
    return std::ranges::any_of(ids, [&](const std::string& id) { return lowCase(id) == lowId; });
}

} // namespace

bool CheckIdFormat(const std::set<std::string>* ids, const std::string& text, std::string* a, std::string* b,
                   std::string* c) {
    const auto mark = text.find(numberMark);
    const bool numbered = mark != std::string::npos;
    std::string id = lowCase(std::string_view(text).substr(0, mark));
    std::string number = numbered ? text.substr(mark + numberMark.size()) : std::string();
    if (!isPeerId(id) || (numbered && !isNumber(number)) || (ids && !contains(*ids, id)))
        return false;
    std::string whole = lowCase(text);
    if (a)
        *a = std::move(id);
    if (b)
        *b = std::move(number);
    if (c)
        *c = std::move(whole);
    return true;
}

std::string GetPrivateConfigPathName(const char* id, const char* fileName) {
    if (!id || !fileName || !isPeerId(id) || !isPlainFileName(fileName))
        return {};
    std::string path = GetWorkingPath();
    if (path.empty())
        return {};
    if (lengthToLastSeparator(path) != path.size())
        path += '\\';
    path.append(id).append("\\").append(fileName);
    return path.size() < MAX_PATH ? path : std::string();
}
