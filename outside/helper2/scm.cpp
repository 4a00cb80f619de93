#include "outside/helper2/scm.h"

#include <algorithm>

namespace scm {
namespace {

constexpr DWORD MaxWait = 30'000; // ms
constexpr DWORD MinPause = 50;    // ms
constexpr DWORD MaxPause = 1'000; // ms
constexpr DWORD HintParts = 10;   // the fraction of its hint after which a service should be asked again

} // namespace

void CloseHandle::operator()(SC_HANDLE handle) const noexcept {
    const DWORD error = GetLastError();
    CloseServiceHandle(handle);
    SetLastError(error);
}

Handle openService(const char* name, DWORD access) {
    const Handle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    return Handle(manager ? OpenServiceA(manager.get(), name, access) : nullptr);
}

bool Patience::pause(const SERVICE_STATUS& status) const {
    const DWORD waited = GetTickCount() - start;
    if (waited >= MaxWait) {
        SetLastError(ERROR_SERVICE_REQUEST_TIMEOUT);
        return false;
    }
    Sleep(std::min(std::clamp(status.dwWaitHint / HintParts, MinPause, MaxPause), MaxWait - waited));
    return true;
}

} // namespace scm
