// Things that one program of the computer, and one command of it, may do at a time.
#pragma once

#include "owners.h"

#include <string>

class Claim {
  public:
    // True when it is held from now on, until the claim goes; false when anybody else holds it.
    bool take(const std::wstring& name);

  private:
    Handle mutex;
};

// Preparing the computer: from init to the end of the program, since a second init would hang up what this
// one has dialled.
inline constexpr const wchar_t* theComputer = L"Global\\varnel-host";

// Dialling a peer, while it lasts.
std::wstring dialOf(const std::string& id);
