// Owners of system handles, and of named mutexes for a scope.
#pragma once

#include <windows.h>

#include <memory>
#include <system_error>

namespace standin {

struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};

using Handle = std::unique_ptr<void, HandleCloser>;

// Takes over what a creating call returned; both of the system's ways to say "none" give an empty owner.
inline Handle owned(HANDLE handle) {
    return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

// Waits for a mutex however long it takes. One whose owner died is taken like a free one: all that such a
// mutex guards here is written so that it makes sense at any moment.
class MutexLock {
  public:
    explicit MutexLock(HANDLE wanted) : mutex(wanted) {
        const DWORD result = WaitForSingleObject(mutex, INFINITE);
        if (result != WAIT_OBJECT_0 && result != WAIT_ABANDONED)
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    ~MutexLock() { ReleaseMutex(mutex); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    HANDLE mutex;
};

} // namespace standin
