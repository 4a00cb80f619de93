#include "interruption.h"

#include "console.h"
#include "exit_code.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <string>

namespace {

Console* screen = nullptr;
std::atomic<bool> asked = false;
std::atomic<bool> readingConsole = false;
std::atomic<DWORD> inputMode = 0;
std::atomic<int> running = 0;
std::atomic<bool> endable = false;

[[noreturn]] void leave() {
    if (readingConsole) {
        SetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), inputMode);
        screen->ask("\n");
    }
    screen->eraseProgress();
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(ExitCode::failed));
    std::abort();
}

BOOL WINAPI onControl(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        return FALSE;
    const bool again = asked.exchange(true);
    if (endable && !again)
        return TRUE;
    if (running == 0 || again)
        leave();
    screen->ask(std::string(readingConsole ? "\n" : "") +
                "A dial or hang-up cannot be interrupted: leaving after it. "
                "Ctrl+C once more leaves at once, and the service dials on.\n");
    return TRUE;
}

} // namespace

void watchForInterruption(Console& console) {
    screen = &console;
    SetConsoleCtrlHandler(onControl, TRUE);
}

bool interrupted() {
    return asked;
}

Uninterruptible::Uninterruptible() {
    ++running;
}
Uninterruptible::~Uninterruptible() {
    --running;
}

ReadingConsole::ReadingConsole() {
    DWORD mode = 0;
    GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode);
    inputMode = mode;
    readingConsole = true;
}

ReadingConsole::~ReadingConsole() {
    readingConsole = false;
}

Endable::Endable() {
    endable = true;
}

Endable::~Endable() {
    endable = false;
    if (running == 0) // else the dials in the background go by it
        asked = false;
}
