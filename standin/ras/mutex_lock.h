// Holding one of the system's named mutexes for a scope.
#pragma once

#include <windows.h>

namespace standin {

// Waits for `mutex` however long it takes. A mutex whose owner died is taken like a free one: all that such a
// mutex guards here is written so that it makes sense at any moment.
class MutexLock {
  public:
    explicit MutexLock(HANDLE mutex);
    ~MutexLock();
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    HANDLE mutex;
};

} // namespace standin
