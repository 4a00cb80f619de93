#include "text.h"

#include "outside/Helper.h"

#include <windows.h>

namespace {

// The most bytes that a UTF-16 unit takes in an ANSI code page.
constexpr size_t longestCharacter = 3;

} // namespace

// UTF-8, which can be the ANSI code page since Windows 10, takes neither that flag nor that pointer.
std::optional<size_t> ansiFromWide(std::wstring_view wide, char* ansi, size_t room) {
    if (wide.empty())
        return 0;
    const bool isUtf8 = GetACP() == CP_UTF8;
    BOOL substituted = FALSE;
    const int used = WideCharToMultiByte(CP_ACP, isUtf8 ? 0 : WC_NO_BEST_FIT_CHARS, wide.data(),
                                         static_cast<int>(wide.size()), ansi, static_cast<int>(room), nullptr,
                                         isUtf8 ? nullptr : &substituted);
    if (used == 0 || substituted)
        return std::nullopt;
    return static_cast<size_t>(used);
}

std::optional<std::string> toAnsi(const std::string& utf8) {
    const std::wstring wide = utf82unicode(utf8);
    std::string ansi(wide.size() * longestCharacter, '\0');
    const auto used = ansiFromWide(wide, ansi.data(), ansi.size());
    if (!used)
        return std::nullopt;
    ansi.resize(*used);
    return ansi;
}

std::wstring wideFromAnsi(const std::string& ansi) {
    std::wstring wide(ansi.size(), L'\0');
    const int used = MultiByteToWideChar(CP_ACP, 0, ansi.data(), static_cast<int>(ansi.size()), wide.data(),
                                         static_cast<int>(wide.size()));
    wide.resize(static_cast<size_t>(used));
    return wide;
}

std::string utf8FromAnsi(const std::string& ansi) {
    return unicode2utf8(wideFromAnsi(ansi));
}

std::string lowCase(std::string text) {
    Convert2LowCase(text);
    return text;
}

std::string systemMessage(unsigned long code) {
    wchar_t text[512];
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
                                            FORMAT_MESSAGE_MAX_WIDTH_MASK,
                                        nullptr, code, 0, text, ARRAYSIZE(text), nullptr);
    std::wstring message(text, length);
    while (!message.empty() && (message.back() == L' ' || message.back() == L'.'))
        message.pop_back();
    return unicode2utf8(message);
}
