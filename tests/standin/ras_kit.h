// A computer with remote access of its own for each test, and verbs to dial with.
#pragma once

#include "tests/kit/record_sizes.h"

#include <windows.h>

#include <condition_variable>
#include <mutex>

#include <ras.h>
#include <raserror.h>

#include <string>
#include <utility>
#include <vector>

namespace standin_test {

inline constexpr DWORD patience = 20'000; // ms for what takes a few

// A state folder that nobody used before, with short times, for the life of the object.
class Computer {
  public:
    explicit Computer(const std::string& peers = {});
    ~Computer();
    Computer(const Computer&) = delete;

    // Writes peers.ini anew: a [service] section with short times, unless `peers` has one, and `peers`.
    void describe(const std::string& peers) const;

    std::string path(const std::string& file) const { return folder + "\\" + file; }
    std::string phonebook() const { return path("test.pbk"); }

    // An entry for 10.1.1.1 or another number, in the test's phonebook.
    void addEntry(const std::string& name, const std::string& number = "10.1.1.1") const;

  private:
    std::string folder;
};

RASENTRYA pptpEntry(const std::string& number);
RASDIALPARAMSA dialParams(const std::string& entry, const std::string& user = "user",
                          const std::string& password = "secret");

// An asynchronous dial with what its notifier heard. The handle is hung up with the object.
class Dial {
  public:
    using Heard = std::vector<std::pair<RASCONNSTATE, DWORD>>;

    Dial(const Computer& computer, const std::string& entry, const std::string& password = "secret");
    explicit Dial(const Computer& computer, const RASDIALPARAMSA& params);
    ~Dial();
    Dial(const Dial&) = delete;

    DWORD result = ERROR_SUCCESS; // of the call
    HRASCONN handle = nullptr;

    // What to do within the notifier; false ends the notifications.
    bool (*whenNotified)(Dial& dial, RASCONNSTATE state) = nullptr;
    void start(const Computer& computer, RASDIALPARAMSA params);
    Dial() = default;

    // Waits for a notification of this state, of an error or of the end; what was heard up to then.
    Heard waitFor(RASCONNSTATE state);
    Heard waitForEnd() { return waitFor(RASCS_Disconnected); }
    Heard heard();
    HRASCONN handleHeard();

  private:
    static DWORD CALLBACK notify(ULONG_PTR id, DWORD subEntry, HRASCONN connection, UINT message,
                                 RASCONNSTATE state, DWORD error, DWORD extendedError);
    bool hasEnded() const;

    std::mutex lock;
    std::condition_variable changed;
    Heard notifications;
    HRASCONN notifiedHandle = nullptr;
    bool isContractKept = true;
};

// The status of a connection: what RasGetConnectStatus returned, and the record.
struct Status {
    DWORD result;
    RASCONNSTATE state;
    DWORD error;
    std::string device;
    std::string number;
};
Status statusOf(HRASCONN handle);

// Waits until the handle is unknown; false when it stays known.
bool isGoneInTime(HRASCONN handle);

// The names of the connected entries, as enumerated.
std::vector<std::string> connectedEntries();

std::string readText(const std::string& path);
void writeText(const std::string& path, const std::string& text);

// This test program, running the hidden test case `name` in a process of its own.
class Child {
  public:
    explicit Child(const std::string& name);
    ~Child();
    Child(const Child&) = delete;

    // Waits for the child's signal, which it gives by `signalParent`.
    bool isReadyInTime() const;
    // Lets the child's `waitForParent` return.
    void letGo() const;
    void kill() const;
    // The child's exit code: 0 when its assertions held.
    DWORD exitCode() const;

    static void signalParent();
    static void waitForParent();

  private:
    HANDLE ready;
    HANDLE go;
    PROCESS_INFORMATION process{};
};

} // namespace standin_test
