#include "console.h"

#include "interruption.h"
#include "outside/Helper.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

namespace {

constexpr auto progressInterval = std::chrono::milliseconds(200);
constexpr char controlZ = 0x1A;

} // namespace

Console::Stream Console::standardStream(DWORD which) {
    HANDLE handle = GetStdHandle(which);
    DWORD mode = 0;
    return {handle, GetConsoleMode(handle, &mode) != FALSE};
}

bool Console::hasColours() {
    return GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) <= 1; // not there, or empty
}

void Console::result(const Row& row) {
    const std::lock_guard hold(lock);
    Row line = row;
    line.push_back({"\n"});
    if (holding)
        std::ranges::move(line, std::back_inserter(heldResults));
    else
        show(output, line);
}

void Console::message(const std::string& line) {
    const std::lock_guard hold(lock);
    if (holding)
        heldMessages.push_back({line + '\n'});
    else
        show(error, {{line + '\n'}});
}

// With its end; empty after Ctrl+C.
std::string Console::typedLine(const std::string& prompt) {
    const ReadingConsole reading;
    {
        const std::lock_guard hold(lock);
        show(error, {{prompt}});
        holding = true;
    }
    wchar_t text[4096];
    DWORD length = 0;
    if (!ReadConsoleW(input.handle, text, ARRAYSIZE(text), &length, nullptr))
        length = 0;
    const std::lock_guard hold(lock);
    holding = false;
    if (length == 0)
        show(error, {{"\n"}});
    show(output, std::exchange(heldResults, {}));
    show(error, std::exchange(heldMessages, {}));
    return unicode2utf8(std::wstring(text, length));
}

std::optional<std::string> Console::readLine(const std::string& prompt) {
    const std::string line = typedLine(prompt);
    if (line.empty() || line[0] == controlZ || interrupted())
        return std::nullopt;
    return line;
}

bool Console::agrees(const std::string& question) {
    const std::string answer = typedLine(question);
    return answer.starts_with('y') || answer.starts_with('Y');
}

void Console::ask(const std::string& text) {
    const std::lock_guard hold(lock);
    show(error, {{text}});
}

void Console::drawProgress(const std::string& text) {
    const std::lock_guard hold(lock);
    if (holding)
        return;
    const std::string shown = text.substr(0, width(error));
    const size_t stale = progressLength > shown.size() ? progressLength - shown.size() : 0;
    write(error, '\r' + shown + std::string(stale, ' '));
    progressLength = shown.size() + stale;
}

void Console::eraseProgress() {
    const std::lock_guard hold(lock);
    erase();
}

void Console::erase() {
    if (progressLength != 0)
        write(error, '\r' + std::string(progressLength, ' ') + '\r');
    progressLength = 0;
}

void Console::drawTable(std::vector<Row> rows) {
    const std::lock_guard hold(lock);
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (!GetConsoleScreenBufferInfo(output.handle, &info))
        return;
    erase();
    const auto room = static_cast<size_t>(std::max(info.srWindow.Bottom - info.srWindow.Top, 1));
    rows.resize(std::min(std::max(rows.size(), tableHeight), room));
    const auto up = static_cast<SHORT>(std::min(tableHeight, rows.size()));
    SetConsoleCursorPosition(output.handle,
                             {0, static_cast<SHORT>(std::max(info.dwCursorPosition.Y - up, 0))});
    for (Row& row : rows) {
        size_t left = width(output);
        for (Span& span : row) {
            span.text.resize(std::min(span.text.size(), left));
            left -= span.text.size();
        }
        row.push_back({std::string(left, ' ') + '\n'});
        write(output, row);
    }
    tableHeight = rows.size();
}

void Console::show(const Stream& stream, const Row& row) {
    if (row.empty())
        return;
    erase();
    tableHeight = 0;
    write(stream, row);
}

void Console::write(const Stream& stream, const Row& row) const {
    static constexpr DWORD colours[] = {0, FOREGROUND_GREEN, FOREGROUND_RED | FOREGROUND_GREEN,
                                        FOREGROUND_RED | FOREGROUND_INTENSITY};
    static constexpr DWORD foreground =
        FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
    for (const auto& [text, tone] : row) {
        CONSOLE_SCREEN_BUFFER_INFO info;
        const bool inColour =
            coloured && tone != Tone::plain && GetConsoleScreenBufferInfo(stream.handle, &info);
        if (inColour)
            SetConsoleTextAttribute(stream.handle, static_cast<WORD>((info.wAttributes & ~foreground) |
                                                                     colours[static_cast<size_t>(tone)]));
        write(stream, text);
        if (inColour)
            SetConsoleTextAttribute(stream.handle, info.wAttributes);
    }
}

void Console::write(const Stream& stream, const std::string& text) {
    if (stream.isConsole) {
        const std::wstring wide = utf82unicode(text);
        WriteConsoleW(stream.handle, wide.data(), static_cast<DWORD>(wide.size()), nullptr, nullptr);
        return;
    }
    for (size_t done = 0; done < text.size();) {
        DWORD written = 0;
        if (!WriteFile(stream.handle, text.data() + done, static_cast<DWORD>(text.size() - done), &written,
                       nullptr))
            return;
        done += written;
    }
}

size_t Console::width(const Stream& stream) {
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (!GetConsoleScreenBufferInfo(stream.handle, &info) || info.dwSize.X < 2)
        return 79;
    return static_cast<size_t>(info.dwSize.X) - 1; // a full line would begin a new one
}

ProgressLine::ProgressLine(Console& screen, const std::string& text) : console(screen) {
    if (console.showsProgress())
        drawing = std::jthread([this, text](const std::stop_token& stop) { draw(stop, text); });
    else
        console.message(text);
}

void ProgressLine::draw(const std::stop_token& stop, const std::string& text) {
    const auto start = std::chrono::steady_clock::now();
    std::unique_lock hold(sleeping);
    do {
        const auto elapsed = std::chrono::steady_clock::now() - start;
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
        console.drawProgress(fmt::format("{}, {} s", text, seconds));
    } while (!wake.wait_for(hold, stop, progressInterval, [&] { return stop.stop_requested(); }));
}

ProgressLine::~ProgressLine() {
    if (!drawing.joinable())
        return;
    drawing.request_stop();
    drawing.join();
    console.eraseProgress();
}
