// Who has lent what to the library: every resource acquired through its imports is to be released once, and
// not to be used after that. Offences become complaints.
#pragma once

#include <windows.h>

#include <map>
#include <mutex>
#include <string>
#include <utility>

class Ledger {
  public:
    // Watches the imports that acquire, use and release.
    Ledger();
    ~Ledger() { settle(); }
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;

    void acquired(const std::string& kind, const void* value);
    void used(const std::string& kind, const void* value);
    void released(const std::string& kind, const void* value);

    // Complains of what was not released, and forgets it.
    void settle();

  private:
    enum class State { Open, Released };

    std::mutex lock;
    std::map<std::pair<std::string, const void*>, State> states;
};
