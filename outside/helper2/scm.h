// What starting and stopping of services share. Failures leave their code in the thread's last error.
#pragma once

#include <windows.h>

#include <memory>
#include <type_traits>

#include <winsvc.h>

namespace scm {

struct CloseHandle {
    void operator()(SC_HANDLE handle) const noexcept; // keeps the last error
};
using Handle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CloseHandle>;

// Null when there is no such service or no such access to it.
Handle openService(const char* name, DWORD access);

// The time that one operation on a service may take.
class Patience {
  public:
    // Sleeps as long as the service asks for; false once the time is used up.
    bool pause(const SERVICE_STATUS& status) const;

  private:
    const DWORD start = GetTickCount();
};

} // namespace scm
