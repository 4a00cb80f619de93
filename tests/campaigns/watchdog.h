// Ends the program with a failure when a call into the library does not return in time, crashes or lets an
// exception out of where none may pass; says which call that was, in which run, and which import it had
// called last.
#pragma once

#include "tests/campaigns/campaign.h"

#include <array>
#include <atomic>
#include <chrono>
#include <thread>

class Watchdog {
  public:
    static constexpr std::size_t maxThreads = 72;

    Watchdog(const Campaign& campaign, std::chrono::seconds patience);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // From here on calls of imports are noted, until the test forgets its behaviours.
    static void noteImports();

    // A call into the library, for as long as it lasts; `operation` outlives it. Calls do not nest.
    class Call {
      public:
        Call(Watchdog& watchdog, std::size_t thread, const char* operation, std::size_t run);
        ~Call();
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
    };

  private:
    using Time = std::chrono::steady_clock::time_point;
    struct Thread {
        std::atomic<const char*> operation = nullptr; // none: outside the library
        std::atomic<const char*> import = nullptr;    // none: not noted
        std::atomic<std::size_t> run = 0;
        std::atomic<Time> since = Time();
    };

    void watch();
    void endIfBlocked(std::size_t number);
    [[noreturn]] void end(std::size_t number, const char* what) const;
    [[noreturn]] static void blame(const char* what);
    static long __stdcall crashed(struct _EXCEPTION_POINTERS*);

    const Campaign& campaign;
    const std::chrono::seconds patience;
    std::array<Thread, maxThreads> threads;
    std::atomic<bool> over = false;
    std::thread watching;

    static inline Watchdog* only = nullptr;
    static inline thread_local Thread* own = nullptr;
};
