// A small remote-access service for many threads at once, with notifier threads of its own. How a dial goes
// is the plan of the thread that dials; time-outs come when the plan says so, not when a busy computer is
// slow.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

#include <ras.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

// When the notification of a dial's outcome comes.
enum class Timing { early, late, twice, aboutToGiveUp, never };

// How the dials of one call go, on the thread that makes it.
struct Plan {
    std::string peer;
    DWORD outcome = 0; // of the connection, whether notified or asked for
    Timing timing = Timing::early;
    bool busyAtFirst = false;
    DWORD lingers = 0; // status queries that still find a connection after its hang-up
    std::vector<DWORD> callbackIds = {};
};

class BusyRas {
  public:
    BusyRas();
    ~BusyRas();
    BusyRas(const BusyRas&) = delete;
    BusyRas& operator=(const BusyRas&) = delete;

    // Makes the plan that of the calling thread for as long as it lives.
    class Planned {
      public:
        explicit Planned(Plan& plan) { current = &plan; }
        ~Planned() { current = nullptr; }
        Planned(const Planned&) = delete;
        Planned& operator=(const Planned&) = delete;
    };
    static const std::string& peerOfThread() { return current->peer; }

    // Notifies attempts that nobody waits for any more.
    void notifyTooLate(const std::vector<DWORD>& tooLate, DWORD error);
    // To be said before and after the registry of attempts is cleared.
    void clearing() { ++clearings; }
    // For an attempt that is about to be registered: whether it may have been cleared since.
    unsigned int clearingsSoFar() const { return clearings; }
    bool mayBeCleared(unsigned int soFar) const { return soFar % 2 != 0 || soFar != clearings; }
    std::string connectedEntry(const std::string& peer);
    DWORD dialsSoFar() const { return dials; }

  private:
    struct Connection {
        std::string peer;
        std::string entryName;
        DWORD outcome;
        DWORD lingers;
        bool listed = false;
        bool hungUp = false;
    };

    DWORD dial(LPRASDIALPARAMSA params, LPVOID notifier, LPHRASCONN conn);
    DWORD hangUp(HRASCONN conn);
    DWORD status(HRASCONN conn, LPRASCONNSTATUSA record);
    DWORD enumerateConnections(LPRASCONNA first, LPDWORD count);
    DWORD enumerateEntries(LPRASENTRYNAMEA first, LPDWORD count);
    DWORD rename(const std::string& oldName, const std::string& newName);
    DWORD remove(const std::string& name);
    DWORD wait(HANDLE object, DWORD ms) const;

    HRASCONN connect(const std::string& entryName, DWORD callbackId);
    void notify(DWORD callbackId, HRASCONN conn, DWORD error);
    void notifyLater(DWORD callbackId, HRASCONN conn, DWORD error);
    void serve();

    std::mutex lock;
    std::map<HRASCONN, Connection> connections;
    std::map<std::string, std::set<std::string>> entries; // by peer
    std::set<DWORD> callbackIds;
    ULONG_PTR lastHandle = 0;
    std::atomic<LPVOID> libraryNotifier = nullptr;
    std::atomic<unsigned int> clearings = 0;
    std::atomic<DWORD> dials = 0;

    std::mutex queueLock;
    std::condition_variable queueChanged;
    std::deque<std::function<void()>> queue;
    bool over = false;
    std::vector<std::thread> notifiers;

    static inline thread_local Plan* current = nullptr;
    static inline thread_local unsigned int clearingsAtRegistration = 0;
};
