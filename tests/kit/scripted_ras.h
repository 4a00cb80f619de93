// A remote-access service in memory. It knows phonebooks, entries and connections, answers as the real one
// does, and takes from a test's script how dials go and which calls fail.
#pragma once

#include "virtual_clock.h"

#include <winsock2.h>
#include <windows.h>

#include <deque>
#include <map>
#include <mutex>

#include <ras.h>

#include <string>
#include <vector>

class ScriptedRas {
  public:
    struct Notification {
        DWORD after; // ms; 0: before RasDialA returns
        long state;
        DWORD error = 0;
        DWORD error2 = 0;
    };

    // How one dial goes.
    struct Dial {
        DWORD code = 0; // of RasDialA itself
        std::vector<Notification> notifications = {};
        bool givesHandle = true;
        DWORD statusCode = 0;             // of later status queries
        DWORD statusError = 0;            // that those queries report
        std::string address = "10.7.0.2"; // none: no projection
    };

    struct Entry {
        std::string name;
        RASENTRYA properties = {};
        std::string userName = {};
        bool passwordRemoved = false;
    };

    struct Connection {
        std::string entryName;
        std::string phoneBook = {};
        std::string address = "10.7.0.2";
        HRASCONN handle = nullptr;
        bool listed = true; // among the active connections
        DWORD lingers = 0;  // status queries that still find it after its hang-up
        bool hungUp = false;
        bool dialled = false; // and its handle given to the library
        Dial dial = {};
    };

    explicit ScriptedRas(VirtualClock& clock);

    std::deque<Dial> dials;                         // for the coming dials; connects() when there is none
    std::map<std::string, std::deque<DWORD>> codes; // by function, for its coming calls; 0: as usual
    std::map<std::string, std::vector<Entry>> phoneBooks; // by path; empty: the user's default one
    std::vector<Connection> connections;                  // in the order in which they are listed
    std::vector<DWORD> answers;                           // of the library's notifier, in order
    DWORD lingers = 0;                                    // as in Connection, for those that are dialled

    HRASCONN connect(const std::string& entryName, const std::string& phoneBook = {},
                     const std::string& address = "10.7.0.2");
    Connection* find(HRASCONN handle);

  private:
    DWORD scripted(const std::string& function);
    Entry* findEntry(const std::string& phoneBook, const std::string& name);
    void notify(HRASCONN handle, const Notification& notification, DWORD callbackId, LPVOID notifier);

    DWORD dial(LPCSTR phoneBook, LPRASDIALPARAMSA params, LPVOID notifier, LPHRASCONN conn);
    DWORD hangUp(HRASCONN conn);
    DWORD status(HRASCONN conn, LPRASCONNSTATUSA record);
    DWORD projection(HRASCONN conn, RASPROJECTION kind, LPVOID record, LPDWORD size);
    DWORD enumerateConnections(LPRASCONNA first, LPDWORD size, LPDWORD count);
    DWORD enumerateEntries(LPCSTR phoneBook, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count);
    DWORD setProperties(LPCSTR phoneBook, LPCSTR name, LPRASENTRYA entry, DWORD size);
    DWORD setDialParams(LPCSTR phoneBook, LPRASDIALPARAMSA params, WINBOOL removePassword);
    DWORD getDialParams(LPCSTR phoneBook, LPRASDIALPARAMSA params, LPBOOL password);
    DWORD renameEntry(LPCSTR phoneBook, LPCSTR oldName, LPCSTR newName);
    DWORD deleteEntry(LPCSTR phoneBook, LPCSTR name);

    VirtualClock& clock;
    std::recursive_mutex lock;
    ULONG_PTR lastHandle = 0;
};

// Ways in which a dial goes.
ScriptedRas::Dial connects(DWORD after = 300);
ScriptedRas::Dial connectsButReports(DWORD statusError);
ScriptedRas::Dial connectsUnreadably(DWORD statusCode);
ScriptedRas::Dial connectsWithoutHandle();
ScriptedRas::Dial fails(DWORD error, DWORD after = 300); // its handle stays to be hung up
ScriptedRas::Dial failsWithoutHandle(DWORD error);
ScriptedRas::Dial refused(DWORD code);           // by RasDialA itself
ScriptedRas::Dial refusedWithHandle(DWORD code); // which stays to be hung up
ScriptedRas::Dial neverEnds();
