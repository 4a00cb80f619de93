#include "interruption.h"

#include "console.h"

#include <windows.h>

#include <atomic>

namespace {

Console* shownOn = nullptr;
std::atomic<bool> asked = false;
std::atomic<bool> readingConsole = false;
std::atomic<int> running = 0;

BOOL WINAPI onControl(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        return FALSE;
    const bool again = asked.exchange(true);
    if (readingConsole)
        return TRUE;
    if (running == 0 || again)
        return FALSE;
    shownOn->message("A dial or hang-up cannot be interrupted: leaving after it. "
                     "Ctrl+C once more leaves at once, and the service dials on.");
    return TRUE;
}

} // namespace

void watchForInterruption(Console& console) {
    shownOn = &console;
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
    readingConsole = true;
}
ReadingConsole::~ReadingConsole() {
    readingConsole = false;
}
