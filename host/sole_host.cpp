#include "sole_host.h"

namespace {

constexpr const wchar_t* mutexName = L"Global\\varnel-host";

} // namespace

// The mutex's existence says it all, so nobody ever waits for it. Another user's may refuse to be opened.
bool SoleHost::take() {
    if (mutex)
        return true;
    mutex.reset(CreateMutexW(nullptr, FALSE, mutexName));
    if (GetLastError() == ERROR_ALREADY_EXISTS)
        mutex.reset();
    return mutex != nullptr;
}

bool hasAdministratorRights() {
    BYTE administrators[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof administrators;
    BOOL isMember = FALSE;
    return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size) &&
           CheckTokenMembership(nullptr, administrators, &isMember) && isMember;
}
