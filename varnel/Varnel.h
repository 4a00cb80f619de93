// Varnel.dll: PPTP links to the peers of a virtual network.
//
// A host calls VARNEL::init once, then dialUp, dialDown and getCurrentEntryNameById from any of its threads,
// and VARNEL::clean once at the end. init and clean must not overlap any other call. Narrow strings are in
// the ANSI code page; IPv4 addresses are in host byte order, the first octet in the most significant byte.
// Failures are results and log records. Two kinds of exception pass through to the host, with everything
// released: what its own call-back throws, and std::bad_alloc. The library must be loaded together with the
// run-time DLLs of the compiler that built it, since strings and lists cross its border.
#pragma once

#include <list>
#include <map>
#include <string>
#include <utility>

#include <windef.h>

#ifdef VARNEL_BUILDING
#define VARNEL_API __declspec(dllexport)
#include <winsock2.h>

#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <windows.h>
#include <ras.h>
#else
#define VARNEL_API __declspec(dllimport)
#endif

// Only declared, so that a host needs neither Boost nor the remote-access service's header.
namespace boost {
template<class T>
class shared_ptr;
class recursive_mutex;
} // namespace boost
struct HRASCONN__;
struct tagRASDIALPARAMSA;
struct tagRASENTRYNAMEA;

// The dial attempts in progress, by callback id: where the thread that dials and the remote-access service's
// notifier thread meet. The storage is shared by all objects of the class; every operation locks it.
class VARNEL_API DIALUP_CALLBACK {
  public:
    // One dial attempt. Its event is closed with the last
    // reference, so neither thread can meet a closed handle.
    struct VARNEL_API ITEM {
        explicit ITEM(unsigned int id);
        ~ITEM();
        ITEM(const ITEM&) = delete;
        ITEM& operator=(const ITEM&) = delete;

        unsigned int callbackId;
        HRASCONN__* hConn; // of the last notification
        HANDLE hEvent;     // manual reset; set when the attempt has ended
        DWORD error;  // of the last notification, or 617 after a disconnection; to be read once hEvent is set
        DWORD error2; // extended code of the last notification
    };

    // Registers a new attempt under `callbackId`, in place of an earlier one of that id.
    boost::shared_ptr<ITEM> addItem(unsigned int callbackId);
    // The attempt of `callbackId`, or an empty pointer.
    boost::shared_ptr<ITEM> findItem(unsigned int callbackId);
    void removeItem(unsigned int callbackId);
    void clearItems();

  private:
    static std::map<unsigned int, boost::shared_ptr<ITEM>> items;
    static boost::recursive_mutex itemsLock;
};

class VARNEL_API VARNEL {
  public:
    VARNEL() = delete;

    // An entry to be written: the peer's id and the address of its server.
    struct INFO {
        std::string id;
        unsigned long ip;
    };

    // Prepares the computer and hangs up the known peers, which are those with a folder in the working
    // folder. Blocks for as long as that takes, which with many peers or shortly after boot may be minutes.
    //   dialDownCallback      told the peer's id after each hang-up of a peer, connected or not, on the thread
    //                         that hung up; may be null
    //   installKestrin        no effect in a 64-bit process: the port-redirect driver is for 32-bit Windows
    //   installOmbrel         install the DNS-filter driver (before Windows 6 only)
    //   bindAnyAddress        test TCP port 1723 on every address, else on 127.0.0.1
    //   onlyClient            the host only dials out: known peers, RemoteAccess and port 1723 are left alone
    //   disableRemoteAccess   disable the RemoteAccess service instead of stopping it: it does not start
    //                         again, but one that runs keeps running, and with it port 1723
    //   message               on a failure that the user must correct: what to tell the user, several lines
    // True when the host is ready.
    static bool init(void (*dialDownCallback)(const std::string&), bool installKestrin, bool installOmbrel,
                     bool bindAnyAddress, bool onlyClient, bool disableRemoteAccess, std::wstring& message);

    // Ends the library's work: nothing is told to the host any more. Unless the host only dials out, the
    // known peers are hung up and (before Windows 6) their entries and phonebooks removed.
    static void clean();

    // What dialUp gives, beside the codes of the service (600 to 899) and of Windows.
    enum DIALUP_RESULT : DWORD {
        dialled = 0,             // the service reports no error, even at the end of the time limit
        incomplete = 0xFFFFFFFF, // `id` or `password` is empty
        unfit = 87, // the id is not a peer's (at most 128 characters), the password does not fit the
                    // service's record (at most 256), or the entry could not be written, as without
                    // the peer's folder
        busy = 756, // the entry was being dialled each time
    };

    // Connects to peer `id` at `ip` (0: 127.0.0.1), with `id` as the user name; blocks until the dial has
    // ended. Calls for different peers may run at once. The entry goes into the peer's own phonebook, in the
    // peer's folder, which the host has made before; or into that of all users. `requireEncryption` demands
    // MS-CHAP v2 and data encryption.
    // Before Windows 6 a try that would dial a private entry once more ends with `busy` instead: the hang-up
    // before it has deleted the phonebook. The next try writes it anew.
    // From its first dial on the library stays loaded until the process ends: a dial that has run into its
    // time limit goes on in the service, which will still call the library.
    static DWORD dialUp(const std::string& id, const std::string& password, bool usePublicPhoneBook,
                        bool requireEncryption, DWORD ip);

    // Hangs up the connection of peer `id`, removes its entry and its phonebook (before Windows 6), and tells
    // the host. True when one of the first three connections that the service lists was the peer's and the
    // service took the hang-up; the host is told either way, unless `id` is empty.
    static bool dialDown(const std::string& id);

    // The name of the entry whose active connection serves peer `id`; empty when none of the first three that
    // the service lists does.
    static std::string getCurrentEntryNameById(const std::string& id);

    // What follows is here since a class is declared in one piece; a host has no use for it.
  private:
    static const DWORD MaxWanEndPoints; // 32
    static const DWORD WanEndPoints;    // 10
    static DIALUP_CALLBACK callback;
    static volatile long callbackIdIndex;
    static bool isWin6Plus;
    static bool onlyClient;
    static char pathNameKestrin[260];
    static char pathNameOmbrel[260];
    static void (*pptpsrvDialDownCallback)(const std::string&);
    static std::string publicPhoneBook;
    static UINT_PTR s1723; // a SOCKET

    static void getPathName();

    static long getCallbackIdIndex();
#ifdef VARNEL_BUILDING // RASCONNSTATE is an enumeration, which cannot be declared ahead
    static DWORD CALLBACK rasDialFunc2(DWORD callbackId, DWORD subEntry, HRASCONN hConn, unsigned int message,
                                       RASCONNSTATE state, DWORD error, DWORD error2);
    static std::string getStateString(RASCONNSTATE state);
#endif
    static DWORD dialUp3(const std::string& phoneBook, tagRASDIALPARAMSA& dialParams, DWORD timeout,
                         HRASCONN__** conn);
    static DWORD dialUp2(const std::string& id, const std::string& password, bool usePublicPhoneBook,
                         bool requireEncryption, DWORD ip);

    static void getPublicPhoneBook();
    static std::string getPhoneBook(const std::string& id, bool usePublicPhoneBook);
    static bool removePhoneBook(const std::string& id);
    static std::pair<std::string, std::string> createEntry(INFO* info, bool usePublicPhoneBook,
                                                           bool requireEncryption);
    static std::string getEntryNameWithSuffix(const std::string& id, bool advance);
    static std::list<tagRASENTRYNAMEA> getAllEntries(const std::string& phoneBook);
    static std::string getCurrentEntryName(const std::string& phoneBook, const std::string& id);
    static bool matchId(const std::string& entryName, const std::string& id);
    static bool removeEntry(const std::string& phoneBook, const std::string& entryName);
    static void removeEntries(const std::list<std::string>& ids);
    static bool clearAllEntry();

    static bool dialDown(HRASCONN__* conn, const std::string& id);
    static bool dialDownSameIp(DWORD ip);
    static bool dialDownAllPptp();
    static std::list<std::string> getAllActiveEntry();
    static bool getEntryStatus(const std::string& id);

    static bool loadMprFunctions();
    static bool setPptpPorts(bool useMprApi, DWORD maxWanEndpoints, DWORD wanEndpoints,
                             DWORD l2tpWanEndpoints);
    static bool getCurrentPptpPorts(DWORD* maxWanEndpoints, DWORD* wanEndpoints, DWORD* l2tpWanEndpoints);
    static bool setWanEndpointsToRegistry(const std::string& keyPath, DWORD maxWanEndpoints,
                                          DWORD wanEndpoints);
    static bool getWanEndPointsFromRegistry(const std::string& keyPath, DWORD* maxWanEndpoints,
                                            DWORD* wanEndpoints, DWORD* l2tpWanEndpoints);
    static bool chgWanEndPoints();

    static bool bind1723(DWORD timeout, bool anyAddress);
    static bool close1723();
    static bool copyDriverFromResource(const std::string& resourceName, const std::string& filePath);
    static bool installDriver(const char* serviceName, const char* driverPath, DWORD startType);
    static bool removeDriver(const char* serviceName);
    static bool tryinstallDriverAndLaunchKestrin();
    static void chkKestrinStartTypeToBoot();
    static void uninstallDriverAndDeleteKestrin();
    static bool setKestrinChgPort(bool changed);
    static bool tryinstallDriverAndLaunchOmbrel();
    static void uninstallDriverAndDeleteSOmbrel();

    static bool setLocation(const std::string& name);
    static void addKeepRasConnections();

    // The steps of the longer operations; each is defined in that operation's own source.
    class Dialing;
    class HangingUp;
    class Initialisation;
    class DriverFile;
    class Kestrin;
};
