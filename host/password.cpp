#include "password.h"

#include "console.h"
#include "interruption.h"
#include "outside/Helper.h"
#include "owners.h"
#include "text.h"
#include "usage_error.h"

#include <fmt/format.h>

#include <windows.h>

namespace {

constexpr size_t longestLine = 1024;

template<class Character, size_t Room = longestLine>
struct WipedBuffer {
    Character data[Room] = {};
    size_t length = 0;

    WipedBuffer() = default;
    WipedBuffer(const WipedBuffer&) = delete;
    WipedBuffer& operator=(const WipedBuffer&) = delete;
    ~WipedBuffer() { SecureZeroMemory(data, sizeof data); }
};

Handle openPasswordFile(const std::string& path) {
    Handle file(noneIfInvalid(CreateFileW(utf82unicode(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                          OPEN_EXISTING, 0, nullptr)));
    const DWORD error = GetLastError();
    if (!file)
        throw UsageError(
            fmt::format("the password file \"{}\" cannot be opened: {}", path, systemMessage(error)));
    return file;
}

class WithoutEcho {
  public:
    explicit WithoutEcho(HANDLE consoleInput) : input(consoleInput) {
        GetConsoleMode(input, &former);
        SetConsoleMode(input, (former | ENABLE_LINE_INPUT) & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
    }
    ~WithoutEcho() { SetConsoleMode(input, former); }
    WithoutEcho(const WithoutEcho&) = delete;
    WithoutEcho& operator=(const WithoutEcho&) = delete;

  private:
    HANDLE input;
    DWORD former = 0;
};

// Byte by byte, since a pipe may hold more than this line.
void readFirstLine(HANDLE file, WipedBuffer<char>& line) {
    char byte = '\0';
    DWORD got = 0;
    while (ReadFile(file, &byte, 1, &got, nullptr) && got == 1 && byte != '\n') {
        if (line.length == longestLine)
            throw UsageError("the password's line is too long");
        line.data[line.length++] = byte;
    }
    byte = '\0';
}

Password checked(const WipedBuffer<wchar_t>& wide) {
    const std::wstring_view text(wide.data, wide.length);
    WipedBuffer<char, 3 * longestLine> ansi;
    if (text.empty())
        throw UsageError("the password is empty");
    if (text.find(L'\0') != text.npos)
        throw UsageError("the password has a zero byte");
    const auto length = ansiFromWide(text, ansi.data, sizeof ansi.data);
    if (!length)
        throw UsageError("the password has a character that the system's code page lacks");
    if (*length > Password::longest)
        throw UsageError(fmt::format("the password is longer than {} characters", Password::longest));
    return Password({ansi.data, *length});
}

Password passwordFrom(HANDLE file) {
    WipedBuffer<char> line;
    readFirstLine(file, line);
    std::string_view text(line.data, line.length);
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    if (text.ends_with('\r'))
        text.remove_suffix(1);
    WipedBuffer<wchar_t> wide;
    if (!text.empty())
        wide.length =
            static_cast<size_t>(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                                                    static_cast<int>(text.size()), wide.data, longestLine));
    if (!text.empty() && wide.length == 0)
        throw UsageError("the password is not in UTF-8");
    return checked(wide);
}

void readTypedLine(HANDLE input, WipedBuffer<wchar_t>& line) {
    const ReadingConsole reading;
    const WithoutEcho unseen(input);
    DWORD length = 0;
    if (!ReadConsoleW(input, line.data, longestLine, &length, nullptr) || length == 0)
        throw UsageError("no password was given");
    line.length = length;
    while (line.length != 0 && (line.data[line.length - 1] == L'\n' || line.data[line.length - 1] == L'\r'))
        --line.length;
}

} // namespace

Password::Password(std::string_view ansi) {
    ansiText.reserve(longest + 1);
    ansiText = ansi;
}

Password::~Password() {
    SecureZeroMemory(ansiText.data(), ansiText.capacity());
}

Password passwordFromFile(const std::string& path) {
    return passwordFrom(openPasswordFile(path).get());
}

Password passwordFromInput() {
    return passwordFrom(GetStdHandle(STD_INPUT_HANDLE));
}

Password passwordFromConsole(Console& console, const std::string& id) {
    console.ask(fmt::format("Password for {}: ", id));
    WipedBuffer<wchar_t> typed;
    readTypedLine(GetStdHandle(STD_INPUT_HANDLE), typed);
    console.message("");
    return checked(typed);
}
