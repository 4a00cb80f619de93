// Who may prepare the computer: one host at a time, and a person with the rights for it.
#pragma once

#include <windows.h>

#include <memory>

struct ObjectCloser {
    void operator()(HANDLE object) const { CloseHandle(object); }
};

// While one is held, no other program of the computer can take it. From init to the end of the program, since
// a second init would hang up what this one has dialled.
class SoleHost {
  public:
    // True when it is held from now on; false when another program holds it.
    bool take();

  private:
    std::unique_ptr<void, ObjectCloser> mutex;
};

// Whether the program has an administrator's rights in full, which with user account control an
// administrator's own programs may lack.
bool hasAdministratorRights();
