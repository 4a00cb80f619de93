// Ends the program, with a word on the run that was on its way, when a run hangs, crashes or lets an
// exception out of where none may pass.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

class SweepWatchdog {
  public:
    SweepWatchdog();
    ~SweepWatchdog();
    SweepWatchdog(const SweepWatchdog&) = delete;
    SweepWatchdog& operator=(const SweepWatchdog&) = delete;

    // A run begins; the one before it is over.
    void begins(const std::string& run);

  private:
    void watch();

    std::atomic<long> runs = 0;
    std::atomic<bool> over = false;
    std::thread watcher;
};
