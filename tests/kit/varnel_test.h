// What a test of the library stands on: the shipped Varnel.dll with its imports redirected, time that takes
// none, a remote-access service in memory, and a close watch. At its end every test fails for what is still
// open, registered, dialled or entered, without asking for it.
#pragma once

#include "guarded_heap.h"
#include "import_table.h"
#include "imports.h"
#include "ledger.h"
#include "private_members.h"
#include "scripted_ras.h"
#include "virtual_clock.h"

#include <catch2/catch.hpp>

#include <initializer_list>
#include <map>
#include <mutex>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

// What a host asks of a dial-up, beside the peer.
struct Wish {
    std::string password = "secret";
    bool publicBook = false;
    bool encryption = false;
    DWORD ip = 0x0A000001;
};

// What a host asks of init.
struct Ask {
    bool kestrin = false;
    bool ombrel = false;
    bool anyAddress = false;
    bool onlyClient = false;
    bool disableRemoteAccess = false;
};

class VarnelTest {
  public:
    VarnelTest();
    ~VarnelTest();
    VarnelTest(const VarnelTest&) = delete;
    VarnelTest& operator=(const VarnelTest&) = delete;

  protected:
    // The peer of this test, whom no other test knows; its phonebook, and the names of its entries.
    const std::string peer;
    std::string book() const { return bookOf(peer); }
    std::string entry(int suffix = 0) const;
    static std::string bookOf(const std::string& id) { return "C:\\peers\\" + id + "\\pptp.pbk"; }

    // Before Windows 6 the hang-up by peer id takes the private phonebook along, not the public one.
    static constexpr char publicBook[] = "C:\\all\\rasphone.pbk";
    static inline const Wish inPublicBook{.publicBook = true};
    // Dials this test's peer as a host does, or one round of that. Complains when a handle that a dial gave
    // was neither hung up nor led to success.
    DWORD dial(const Wish& wish);
    DWORD dial() { return dial(Wish{}); }
    DWORD dialOnce(const Wish& wish);
    DWORD dialOnce() { return dialOnce(Wish{}); }
    void whenRasDials(std::initializer_list<ScriptedRas::Dial> dials);
    // The codes of the next calls of a RAS function; 0 leaves a call to take its usual course.
    void whenRasAnswers(const std::string& function, std::initializer_list<DWORD> codes);

    // Records as "2 RasDial fail, error 633", in order, of all levels or of one; `trace` has the call traces
    // so.
    Lines log(int level = 0);
    Lines trace();
    bool logged(int level, const std::string& text);
    void forgetLog();
    // The calls whose names begin with one of `names`, in order; all of them without names.
    Lines calls(std::initializer_list<std::string> names = {});
    // The ids of which the host was told, in order.
    static Lines told();

    // Complains of what an end of the test would find still open, registered or entered, and forgets it.
    void settle();

  private:
    // Destroyed last: reports what the others had to complain of.
    struct Report {
        ~Report();
    } report;

  protected:
    VirtualClock clock;
    Ledger ledger;
    GuardedHeap heap;
    ScriptedRas ras{clock};
    // The lock of the system's phonebook code, free; null when nobody has made one.
    HANDLE phoneBookLock = nullptr;

  private:
    void record(bool isTrace, int level, const char* file, long line, const std::string& text);
    void followTrace(const std::string& text);
    DWORD checkHandles(DWORD result);

    std::mutex logLock;
    struct Record {
        bool isTrace;
        std::string text;
    };
    std::vector<Record> records;
    std::map<DWORD, Lines> entered; // by thread: operations entered and not yet left
    const long levelBefore;
    ImportTable table;
};
