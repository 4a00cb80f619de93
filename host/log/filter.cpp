#include "log/filter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace logs {
namespace {

bool sameLetter(char one, char other) {
    return std::tolower(static_cast<unsigned char>(one)) == std::tolower(static_cast<unsigned char>(other));
}

bool sameId(std::string_view one, std::string_view other) {
    return std::ranges::equal(one, other, sameLetter);
}

bool endsWord(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '-' && c != '_' && c != '.';
}

// Whether `id` stands in `text` as a word of its own.
bool names(std::string_view text, std::string_view id) {
    for (auto from = text.begin();; ++from) {
        from = std::search(from, text.end(), id.begin(), id.end(), sameLetter);
        if (from == text.end())
            return false;
        const auto behind = from + static_cast<std::ptrdiff_t>(id.size());
        if ((from == text.begin() || endsWord(from[-1])) && (behind == text.end() || endsWord(*behind)))
            return true;
    }
}

bool isThread(const std::string& wanted, unsigned process, unsigned thread) {
    return wanted.empty() || wanted == fmt::format("{}", thread) ||
           wanted == fmt::format("{}/{}", process, thread);
}

} // namespace

bool Filter::takes(const Record& record, std::string_view about) const {
    return record.level <= level && (!since || record.time >= *since) && (!until || record.time <= *until) &&
           isThread(thread, record.process, record.thread) &&
           (peer.empty() || (about.empty() ? names(record.text, peer) : sameId(about, peer)));
}

bool Filter::takes(const Dial& dial) const {
    return (!since || dial.ended() >= *since) && (!until || dial.began <= *until) &&
           isThread(thread, dial.process, dial.thread) && (peer.empty() || sameId(dial.peer, peer));
}

std::vector<std::size_t> chosen(const std::vector<Dial>& dials, const Filter& filter) {
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < dials.size(); ++i)
        if (filter.takes(dials[i]))
            numbers.push_back(i);
    return numbers;
}

} // namespace logs
