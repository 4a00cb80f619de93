#pragma once

#include <windows.h>

// Puts the thread's last error back as it was.
class LastErrorKept {
  public:
    LastErrorKept() = default;
    ~LastErrorKept() { SetLastError(code); }
    LastErrorKept(const LastErrorKept&) = delete;
    LastErrorKept& operator=(const LastErrorKept&) = delete;

  private:
    const DWORD code = GetLastError();
};
