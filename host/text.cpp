#include "text.h"

#include "outside/Helper.h"

#include <windows.h>

std::optional<std::string> toAnsi(const std::string& utf8) {
    const std::wstring wide = utf82unicode(utf8);
    const int length = static_cast<int>(wide.size());
    BOOL substituted = FALSE;
    std::string ansi(wide.size() * 2, '\0'); // a character has at most two bytes in an ANSI code page
    const int used = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), length, ansi.data(),
                                         static_cast<int>(ansi.size()), nullptr, &substituted);
    if (substituted || (used == 0 && length != 0))
        return std::nullopt;
    ansi.resize(static_cast<size_t>(used));
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
