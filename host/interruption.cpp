#include "interruption.h"

#include "console.h"
#include "exit_code.h"
#include "owners.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <mutex>
#include <string>

namespace {

Console* screen = nullptr;
std::atomic<bool> asked = false;
std::atomic<bool> readingConsole = false;
std::atomic<DWORD> inputMode = 0;
std::atomic<int> running = 0;
std::atomic<bool> endable = false;
const Handle wake(CreateEventW(nullptr, TRUE, FALSE, nullptr)); // set once asked
std::mutex oneReader;

std::mutex dialsLock; // of these three
int dials = 0;
std::set<std::string> dialled;
std::future<bool> hangUpAnswer;

[[noreturn]] void leave() {
    if (readingConsole) {
        SetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), inputMode);
        screen->ask("\n");
    }
    screen->eraseProgress();
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(ExitCode::failed));
    std::abort();
}

// Where there is somebody to ask. On a thread of its own, since no further Ctrl+C comes while this one is being
// handled; a reading of the console that Ctrl+C is to end must have ended.
void askWhetherToHangUp() {
    const std::lock_guard hold(dialsLock);
    if (dials > 0 && screen->readsConsole() && screen->showsProgress())
        hangUpAnswer = std::async(std::launch::async, [] {
            return screen->agrees("Hang up then what was dialled here (y or n)? ");
        });
}

BOOL WINAPI onControl(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        return FALSE;
    const bool ends = endable; // it may end once `asked` is set
    const bool again = asked.exchange(true);
    if (ends && !again) {
        SetEvent(wake.get());
        return TRUE;
    }
    if (running == 0 || again)
        leave();
    screen->ask(std::string(readingConsole ? "\n" : "") +
                "A dial or hang-up cannot be interrupted: leaving after it. "
                "Ctrl+C once more leaves at once, and the service dials on.\n");
    askWhetherToHangUp();
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

std::set<std::string> peersToHangUp() {
    std::unique_lock hold(dialsLock);
    if (!hangUpAnswer.valid())
        return {};
    std::future<bool> answer = std::move(hangUpAnswer);
    hold.unlock();
    if (!answer.get())
        return {};
    hold.lock();
    return dialled;
}

Uninterruptible::Uninterruptible() {
    ++running;
}
Uninterruptible::~Uninterruptible() {
    --running;
}

Dialling::Dialling(const std::string& id) {
    const std::lock_guard hold(dialsLock);
    ++dials;
    dialled.insert(id);
}

Dialling::~Dialling() {
    const std::lock_guard hold(dialsLock);
    --dials;
}

ReadingConsole::ReadingConsole() {
    oneReader.lock();
    DWORD mode = 0;
    GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode);
    inputMode = mode;
    readingConsole = true;
}

ReadingConsole::~ReadingConsole() {
    readingConsole = false;
    oneReader.unlock();
}

Endable::Endable() {
    endable = true;
}

Endable::~Endable() {
    endable = false;
    if (running != 0) // the dials in the background go by it
        return;
    asked = false;
    ResetEvent(wake.get());
}

bool Endable::sleep(std::chrono::milliseconds time) const {
    return WaitForSingleObject(wake.get(), static_cast<DWORD>(time.count())) == WAIT_TIMEOUT;
}
