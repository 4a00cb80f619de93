#include "standin/ras/mutex_lock.h"

#include <system_error>

namespace standin {

MutexLock::MutexLock(HANDLE heldMutex) : mutex(heldMutex) {
    const DWORD result = WaitForSingleObject(mutex, INFINITE);
    if (result != WAIT_OBJECT_0 && result != WAIT_ABANDONED)
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
}

MutexLock::~MutexLock() {
    ReleaseMutex(mutex);
}

} // namespace standin
