#include "outside/helper2/scm.h"

#include "outside/last_error.h"

#include <algorithm>

namespace scm {
namespace {

constexpr DWORD maxWait = 30'000; // ms
constexpr DWORD minPause = 50;    // ms
constexpr DWORD maxPause = 1'000; // ms
constexpr DWORD hintParts = 10;   // the fraction of its hint after which a service should be asked again

} // namespace

void CloseHandle::operator()(SC_HANDLE handle) const noexcept {
    const LastErrorKept kept;
    CloseServiceHandle(handle);
}

Handle openService(const char* name, DWORD access) {
    const Handle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    return Handle(manager ? OpenServiceA(manager.get(), name, access) : nullptr);
}

bool Patience::pause(const SERVICE_STATUS& status) const {
    const DWORD waited = GetTickCount() - start;
    if (waited >= maxWait) {
        SetLastError(ERROR_SERVICE_REQUEST_TIMEOUT);
        return false;
    }
    Sleep(std::min(std::clamp(status.dwWaitHint / hintParts, minPause, maxPause), maxWait - waited));
    return true;
}

} // namespace scm
