#include "standin/ras/process.h"

#include "standin/ras/handles.h"

namespace standin {
namespace {

std::uint64_t startOf(HANDLE process) {
    FILETIME created{}, ended{}, kernel{}, user{};
    GetProcessTimes(process, &created, &ended, &kernel, &user);
    return (std::uint64_t{created.dwHighDateTime} << 32) | created.dwLowDateTime;
}

} // namespace

Process currentProcess() {
    static const Process current{startOf(GetCurrentProcess()), GetCurrentProcessId(), 0};
    return current;
}

bool isRunning(const Process& process) {
    if (process == currentProcess())
        return true;
    const Handle handle = owned(OpenProcess(PROCESS_QUERY_INFORMATION | SYNCHRONIZE, FALSE, process.id));
    if (!handle)
        return GetLastError() == ERROR_ACCESS_DENIED;
    return startOf(handle.get()) == process.started && WaitForSingleObject(handle.get(), 0) == WAIT_TIMEOUT;
}

std::int64_t uptime() {
    static const std::int64_t perSecond = [] {
        LARGE_INTEGER frequency{};
        QueryPerformanceFrequency(&frequency);
        return frequency.QuadPart;
    }();
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    return counter.QuadPart / perSecond * 1000 + counter.QuadPart % perSecond * 1000 / perSecond;
}

} // namespace standin
