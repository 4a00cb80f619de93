#include "console.h"

#include "interruption.h"
#include "outside/Helper.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

constexpr auto progressInterval = std::chrono::milliseconds(200);
constexpr wchar_t controlZ = 0x1A;

} // namespace

Console::Stream Console::standardStream(DWORD which) {
    HANDLE handle = GetStdHandle(which);
    DWORD mode = 0;
    return {handle, GetConsoleMode(handle, &mode) != FALSE};
}

void Console::result(const std::string& line) {
    const std::lock_guard hold(lock);
    if (holding)
        heldResults += line + '\n';
    else
        show(output, line + '\n');
}

void Console::message(const std::string& line) {
    const std::lock_guard hold(lock);
    if (holding)
        heldMessages += line + '\n';
    else
        show(error, line + '\n');
}

std::optional<std::string> Console::readLine(const std::string& prompt) {
    ask(prompt);
    {
        const std::lock_guard hold(lock);
        holding = true;
    }
    wchar_t text[4096];
    DWORD length = 0;
    {
        const ReadingConsole reading;
        if (!ReadConsoleW(input.handle, text, ARRAYSIZE(text), &length, nullptr) || interrupted())
            length = 0;
    }
    const std::lock_guard hold(lock);
    holding = false;
    if (length == 0)
        show(error, "\n");
    show(output, std::exchange(heldResults, {}));
    show(error, std::exchange(heldMessages, {}));
    if (length == 0 || text[0] == controlZ)
        return std::nullopt;
    return unicode2utf8(std::wstring(text, length));
}

void Console::ask(const std::string& text) {
    const std::lock_guard hold(lock);
    show(error, text);
}

void Console::drawProgress(const std::string& text) {
    const std::lock_guard hold(lock);
    const std::string shown = text.substr(0, errorWidth());
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

void Console::show(const Stream& stream, const std::string& text) {
    if (text.empty())
        return;
    erase();
    write(stream, text);
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

size_t Console::errorWidth() const {
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (!GetConsoleScreenBufferInfo(error.handle, &info) || info.dwSize.X < 2)
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
