#include "outside/log/record_text.h"

#include <fmt/format.h>

#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <stdexcept>
#include <string_view>

namespace logging {
namespace {

int apiLength(std::size_t length) {
    if (length > INT_MAX)
        throw std::length_error("text of a record");
    return static_cast<int>(length);
}

// Empty when `text` is not of that code page.
std::wstring decoded(UINT codePage, DWORD flags, std::string_view text) {
    const int bytes = apiLength(text.size());
    const int length = MultiByteToWideChar(codePage, flags, text.data(), bytes, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(codePage, flags, text.data(), bytes, wide.data(), length);
    return wide;
}

std::string encoded(const std::wstring& wide) {
    const int units = apiLength(wide.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, text.data(), length, nullptr, nullptr);
    return text;
}

bool isControl(wchar_t c) {
    constexpr wchar_t lineSeparator = 0x2028, paragraphSeparator = 0x2029;
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == lineSeparator || c == paragraphSeparator;
}

std::wstring spelt(wchar_t control) {
    switch (control) {
    case L'\r':
        return L"\\r";
    case L'\n':
        return L"\\n";
    case L'\t':
        return L"\\t";
    default:
        const auto code = fmt::format("\\u{:04x}", static_cast<unsigned>(control));
        return {code.begin(), code.end()};
    }
}

std::string_view withoutLineEnd(std::string_view text) {
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    if (text.ends_with('\r'))
        text.remove_suffix(1);
    return text;
}

} // namespace

std::string oneLine(const std::string& text) {
    const auto line = withoutLineEnd(text);
    // As nearly every text is: nothing to spell out, and the same in all code pages.
    if (std::ranges::all_of(line, [](char c) { return c >= ' ' && c <= '~'; }))
        return std::string(line);
    auto wide = decoded(CP_UTF8, MB_ERR_INVALID_CHARS, line);
    if (wide.empty())
        wide = decoded(CP_ACP, 0, line);
    std::wstring visible;
    visible.reserve(wide.size());
    for (const wchar_t c : wide) {
        if (isControl(c))
            visible += spelt(c);
        else
            visible += c;
    }
    return encoded(visible);
}

std::string formatted(const char* format, va_list arguments) {
    va_list first; // NOLINT(cppcoreguidelines-init-variables)
    va_copy(first, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, first);
    va_end(first);
    if (length < 0)
        return format;
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace logging
