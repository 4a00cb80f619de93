// Time as the library sees it: sleeping and waiting take none, and what is to happen meanwhile happens on
// another thread while the library sleeps or waits.
#pragma once

#include <windows.h>

#include <functional>
#include <map>

class VirtualClock {
  public:
    // A zero-length sleep passes this much, or polling loops would never end.
    static constexpr DWORD yieldTakes = 1; // ms

    VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    // What GetTickCount gives.
    DWORD ticks() const { return startTicks + static_cast<DWORD>(elapsed); }
    void startAt(DWORD tickCount) { startTicks = tickCount; }
    // Milliseconds since the test began.
    unsigned long long passed() const { return elapsed; }

    // Does `action` `ms` from now; 0 means at once. On a thread of its own; what it throws reaches the
    // waiting thread.
    void in(DWORD ms, std::function<void()> action);

    // From here on actions happen on the thread that sleeps or waits. For tests that make many runs.
    void useOneThread() { oneThread = true; }

  private:
    void pass(DWORD ms);
    void act(const std::function<void()>& action) const;
    DWORD wait(HANDLE object, DWORD ms);
    bool actNext(unsigned long long limit);

    bool oneThread = false;
    DWORD startTicks = 100'000;
    unsigned long long elapsed = 0;
    std::multimap<unsigned long long, std::function<void()>> agenda;
};
