// The computer in which the library is tried: in memory, made of facts, with a clock that takes no time, a
// remote-access service, a registry, services, files, a router and a list of networks.
#pragma once

#include "facts.h"

#include <winsock2.h>
#include <windows.h>

#include <deque>
#include <functional>
#include <map>
#include <mutex>

#include <ras.h>

#include <set>
#include <string>
#include <vector>

// Time that passes when the library sleeps or waits, and what is to happen in it.
class Clock {
  public:
    static constexpr DWORD pollTakes = 1; // ms that a wait of none takes
    DWORD tick = 0;                       // what GetTickCount gives
    DWORD yieldTakes = pollTakes;

    void in(DWORD ms, std::function<void()> action);
    void pass(DWORD ms);
    // Until the object is signalled, as WaitForSingleObject.
    DWORD wait(HANDLE object, DWORD ms);
    unsigned long long elapsed = 0;

  private:
    bool actNext(unsigned long long limit);

    std::multimap<unsigned long long, std::function<void()>> agenda;
};

// How one dial goes, as the course of a play has it in words.
struct Dial {
    explicit Dial(const std::string& course);

    DWORD code = 0;        // of RasDialA itself
    DWORD error = 0;       // that ends the dial
    DWORD extended = 0;    // its extended error
    DWORD after = 300;     // ms until the dial ends
    DWORD statusCode = 0;  // of later status queries
    DWORD statusError = 0; // that those queries report
    DWORD lingers = 0;     // status queries that still find it after its hang-up
    // "silent", "disconnects", "handleless", and "handle" for one that comes although the dial is refused
    std::set<std::string> flags;

    bool is(const char* flag) const { return flags.contains(flag); }
    bool givesHandle() const { return code == 0 ? !is("handleless") : is("handle"); }
};

struct Connection {
    std::string entryName, phoneBook, address;
    HRASCONN handle;
    bool listed = true;   // among the active connections
    bool dialled = false; // and its handle given to the library
    bool hungUp = false;
    Dial dial{""};
};

class Computer {
  public:
    Computer();
    ~Computer();
    Computer(const Computer&) = delete;
    Computer& operator=(const Computer&) = delete;

    Facts facts;
    Clock clock;
    std::deque<Connection> connections; // in the order in which they are listed
    std::deque<Dial> dials;             // for the coming dials; one that connects when there is none
    std::vector<std::string> log;       // "2 RasDial fail, error 633"
    std::vector<std::string> traces;    // "3 ==>>VARNEL::dialUp(...)"
    std::vector<std::string> told;      // the ids of which the host was told
    const volatile char* passwordPlace = nullptr; // of the last dial, on its stack

    // An item of a text: "service TapiSrv = disabled", "no service RasMan", "up visitor #1 = {all} 10.7.0.2".
    void apply(const std::string& item);
    // The facts, with the connections among them.
    Facts state() const;
    Connection* find(HRASCONN handle);
    void traced(int level, const char* file, long line, const std::string& text);
    void settle(); // complains of what the library has left behind

    // Handles of what only exists here.
    template<class HANDLE_TYPE>
    HANDLE_TYPE lend(const std::string& thing) {
        things[++lastHandle] = thing;
        return reinterpret_cast<HANDLE_TYPE>(lastHandle);
    }
    template<class HANDLE_TYPE>
    std::string thing(HANDLE_TYPE handle) const {
        const auto found = things.find((ULONG_PTR)handle);
        return found != things.end() ? found->second : std::string();
    }

    bool isMutexOwned = false;
    bool showsRecords = false; // among the calls
    HRASCONN lastConnection = nullptr;

  private:
    std::map<ULONG_PTR, std::string> things;
    ULONG_PTR lastHandle = 0x1000'0000;
    std::map<DWORD, std::vector<std::string>> entered; // by thread: operations entered and not yet left
};

// The one in which the present play takes place.
Computer& theComputer();

// Each gives the imports of its subject their answers.
void answerForSystem();
void answerForRemoteAccess();
void answerForRegistryAndServices();
void answerForRouterAndNetworks();
void answerForHeap();
void releaseHeapPages();

// Where the answers pass: they are honest unless the play is one of lies.
namespace answers {
inline bool lie = false;
// Fills a field; a text as long as the field is left without an end. A lie may be any text, with or without
// one.
void fill(char* field, std::size_t room, const std::string& text);
template<std::size_t SIZE>
void fill(char (&field)[SIZE], const std::string& text) {
    fill(field, SIZE, text);
}
DWORD number(DWORD truth);
// A connection as it is shown to the library.
void show(RASCONNA& record, const Connection& connection);
} // namespace answers
