// The computer in which the library is tried: in memory, made of facts, with a clock that takes no time, a
// remote-access service, a registry, services, files, a router and a list of networks.
#pragma once

#include "facts.h"
#include "imports.h"

#include <deque>
#include <map>

// Time that passes when the library sleeps or waits, and what is to happen in it.
class Clock {
  public:
    DWORD yieldTakes = 1; // ms that a sleep of none takes
    unsigned long long elapsed = 0;

    void in(DWORD ms, std::function<void()> action);
    void pass(DWORD ms);
    // Until the object is signalled, as WaitForSingleObject.
    DWORD wait(HANDLE object, DWORD ms);

  private:
    void passUntil(unsigned long long end, const std::function<bool()>& isOver);

    std::multimap<unsigned long long, std::function<void()>> agenda;
};

struct Connection {
    std::string entryName, phoneBook, address;
    HRASCONN handle;
    std::string course;   // of its dial
    bool listed = true;   // among the active connections
    bool dialled = false; // and its handle given to the library
    bool hungUp = false;
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
    std::vector<std::string> dials;     // the courses of the coming dials; one connects when there is none
    const volatile char* passwordPlace = nullptr; // of the last dial, on its stack
    bool isMutexOwned = false;
    bool showsRecords = false; // among the calls
    HRASCONN lastConnection = nullptr;

    // An item of a text: "service TapiSrv = disabled", "no service RasMan", "up visitor #1 = {all} 10.7.0.2".
    void apply(const std::string& item);
    // The facts, with the connections among them.
    Facts state() const;
    Connection* find(HRASCONN handle);
    void settle(); // complains of what the library has left behind

    // Handles of what only exists here.
    template<class Handle>
    Handle lend(const std::string& thing) {
        things[++lastHandle] = thing;
        return reinterpret_cast<Handle>(lastHandle);
    }
    template<class Handle>
    Handle lendIf(bool isThere, const std::string& thing, DWORD error) {
        SetLastError(error);
        return isThere ? lend<Handle>(thing) : nullptr;
    }
    std::string thing(auto handle) const {
        const auto found = things.find((ULONG_PTR)handle);
        return found != things.end() ? found->second : std::string();
    }

  private:
    std::map<ULONG_PTR, std::string> things;
    ULONG_PTR lastHandle = 0x1000'0000;
};

// The one in which the present play takes place.
inline Computer* present = nullptr;
inline Computer& theComputer() {
    return *present;
}
inline Facts& facts() {
    return present->facts;
}

// Each gives the imports of its subject their answers.
void answerForSystem();
void answerForRemoteAccess();
void answerForRegistryAndServices();
void answerForRouterAndNetworks();
void answerForHeap();

// Where the answers pass: they are honest unless the play is one of lies.
namespace answers {
inline bool lie = false;
// Fills a field; a text as long as the field is left without an end. A lie may be any text, with or without
// one.
void fill(char* field, std::size_t room, const std::string& text);
template<std::size_t Size>
void fill(char (&field)[Size], const std::string& text) {
    fill(field, Size, text);
}
DWORD number(DWORD truth);
// A connection as it is shown to the library.
void show(RASCONNA& record, const Connection& connection);
} // namespace answers
