#include "sweep_watchdog.h"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>

namespace {

constexpr auto glance = std::chrono::milliseconds(200);
constexpr int patience = 150; // glances without a run that ends

// Of fixed size, since a crash may leave no memory to use.
char current[512];
std::mutex currentLock;

[[noreturn]] void giveUp(const char* what) {
    std::fprintf(stderr, "%s: %s\n", what, current);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), EXIT_FAILURE);
    std::abort();
}

LONG WINAPI crashed(EXCEPTION_POINTERS* exception) {
    char what[64];
    std::snprintf(what, sizeof what, "crashed with %08lx", exception->ExceptionRecord->ExceptionCode);
    giveUp(what);
}

} // namespace

SweepWatchdog::SweepWatchdog() : watcher([this] { watch(); }) {
    SetUnhandledExceptionFilter(&crashed);
    std::set_terminate([] { giveUp("an exception passed where none may"); });
}

SweepWatchdog::~SweepWatchdog() {
    over = true;
    watcher.join();
}

void SweepWatchdog::begins(const std::string& run) {
    const std::scoped_lock locked(currentLock);
    std::snprintf(current, sizeof current, "%s", run.c_str());
    ++runs;
}

void SweepWatchdog::watch() {
    long seen = -1;
    for (int glances = 0; !over; std::this_thread::sleep_for(glance)) {
        const long now = runs;
        glances = now == seen ? glances + 1 : 0;
        seen = now;
        if (glances == patience) {
            const std::scoped_lock locked(currentLock);
            giveUp("hung");
        }
    }
}
