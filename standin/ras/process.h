// Which process, told apart from a later one that got the same number.
#pragma once

#include <windows.h>

#include <cstdint>

namespace standin {

struct Process {
    std::uint64_t started;
    DWORD id;
    DWORD reserved;

    bool operator==(const Process&) const = default;
};

Process currentProcess();

// Whether it still runs. One that may not be looked at counts as running.
bool isRunning(const Process& process);

// Milliseconds since the computer started, the same in every process and finer than the system's tick count.
std::int64_t uptime();

} // namespace standin
