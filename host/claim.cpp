#include "claim.h"

#include "text.h"

// The mutex's existence says it all, so nobody ever waits for it. Another user's may refuse to be opened.
bool Claim::take(const std::wstring& name) {
    if (mutex)
        return true;
    mutex.reset(CreateMutexW(nullptr, FALSE, name.c_str()));
    if (GetLastError() == ERROR_ALREADY_EXISTS)
        mutex.reset();
    return mutex != nullptr;
}

std::wstring dialOf(const std::string& id) {
    return L"Global\\varnel-host dials " + wideFromAnsi(lowCase(id));
}
