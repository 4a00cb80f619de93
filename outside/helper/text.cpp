#include "outside/Helper.h"

#include <boost/locale/utf.hpp>

#include <windows.h>

#include <algorithm>
#include <iterator>

namespace {

constexpr boost::locale::utf::code_point replacement = 0xFFFD;

// Written out, because Windows' own conversions before 6.0 drop
// what is not valid, and all of them end at 2 GB.
template<typename To, typename From>
std::basic_string<To> transcoded(const std::basic_string<From>& text) {
    using boost::locale::utf::utf_traits;
    std::basic_string<To> result;
    result.reserve(text.size());
    for (auto next = text.begin(); next != text.end();) {
        const auto start = next;
        auto character = utf_traits<From>::decode(next, text.end());
        if (!boost::locale::utf::is_valid_codepoint(character)) {
            character = replacement;
            next = std::next(start);
        }
        utf_traits<To>::encode(character, std::back_inserter(result));
    }
    return result;
}

} // namespace

std::string ip2string(unsigned long ip) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += std::to_string((ip >> shift) & 0xFF) + (shift > 0 ? "." : "");
    return text;
}

void Convert2LowCase(std::string& s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
}

void Convert2LowCaseW(std::wstring& s) {
    constexpr std::size_t maxPiece = 1 << 20; // the system counts in int
    for (std::size_t done = 0; done < s.size(); done += maxPiece) {
        const int length = static_cast<int>(std::min(s.size() - done, maxPiece));
        wchar_t* piece = s.data() + done;
        LCMapStringW(LOCALE_INVARIANT, LCMAP_LOWERCASE, piece, length, piece, length);
    }
}

std::wstring utf82unicode(const std::string& s) {
    return transcoded<wchar_t>(s);
}

std::string unicode2utf8(const std::wstring& s) {
    return transcoded<char>(s);
}

std::string int2stru(unsigned long v) {
    return std::to_string(v);
}

std::string uin2string(unsigned int v) {
    return std::to_string(v);
}

std::string int2strd(long v) {
    return std::to_string(v);
}
