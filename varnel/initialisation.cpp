// Preparing the computer, and ending the library's work.
#include "Varnel.h"
#include "call_trace.h"
#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "phonebook_lock.h"
#include "user_messages.h"

#include <utility>

namespace {

constexpr DWORD bindTimeout = 1'000;         // ms
constexpr DWORD bootPeriod = 300'000;        // ms of uptime within which services are still settling
constexpr DWORD stopRetryInBoot = 10'000;    // ms
constexpr DWORD stopRetryAfterBoot = 30'000; // ms
constexpr u_short pptpControlPort = 1723;
constexpr char remoteAccess[] = "RemoteAccess";

// A path that does not fit the buffer is refused: it stays empty.
void setDriverPath(char (&path)[MAX_PATH], const std::string& systemFolder, const char* fileName) {
    std::string text = systemFolder;
    if (text.empty() || text.back() != '\\')
        text += '\\';
    text += fileName;
    copyToField(path, text.size() < MAX_PATH ? text : std::string());
}

} // namespace

// The steps of init(), in the order in which they run. A step that returns false has failed in a way that the
// user must correct, and has said so in the message.
class VARNEL::Initialisation {
  public:
    Initialisation(bool bindAnyAddress_, bool disableRemoteAccess_, std::wstring& message_)
        : bindAnyAddress(bindAnyAddress_), disableRemoteAccess(disableRemoteAccess_), message(message_) {}
    ~Initialisation();
    Initialisation(const Initialisation&) = delete;
    Initialisation& operator=(const Initialisation&) = delete;

    bool startKestrin();
    void startOmbrel();
    bool enableTapiSrv() { return enableService("TapiSrv", tapiSrvMessage); }
    bool enableRasMan() { return enableService("RasMan", rasManMessage); }
    void stopRemoteAccess();
    bool takePort1723();
    void enableRemoteAccessAgain();

    bool result = false; // init()'s own, as far as no step failed

  private:
    bool enableService(const char* name, std::wstring (*failureMessage)(bool chinese));
    void logPortTaken() const;

    const bool chinese = IsChineseOs();
    const bool bindAnyAddress;
    const bool disableRemoteAccess;
    std::wstring& message;
    bool kestrinStarted = false;
    bool remoteAccessWasEnabled = false;
};

// The port is let go by the last step; it is still held here only when an exception passes.
VARNEL::Initialisation::~Initialisation() {
    if (s1723 != INVALID_SOCKET)
        closesocket(std::exchange(s1723, INVALID_SOCKET));
}

bool VARNEL::Initialisation::startKestrin() {
    if (GetIs64Os()) {
        LOG_LINE(1, "x64 doesn't need to install kestrin");
        return true;
    }
    kestrinStarted = tryinstallDriverAndLaunchKestrin();
    if (kestrinStarted)
        return true;
    LOG_LINE(2, "tryinstallDriverAndLaunchKestrin fail!!!");
    if (!IsWin2K() && !IsWinXP())
        return true;
    message = driverMessage(chinese);
    return false;
}

void VARNEL::Initialisation::startOmbrel() {
    if (isWin6Plus) {
        LOG_LINE(1, "Vista can't install ombrel");
        return;
    }
    result = tryinstallDriverAndLaunchOmbrel();
    if (!result)
        LOG_LINE(2, "tryinstallDriverAndLaunchOmbrel fail!!!");
}

bool VARNEL::Initialisation::enableService(const char* name, std::wstring (*failureMessage)(bool chinese)) {
    bool exists = false;
    if (IsServiceEnabled(name, &exists) || !exists)
        return true;
    result = EnableService(name, enableAsKindDoes);
    if (!result) {
        LOG_LINE(2, std::string("Can't enable service ") + name);
        message = failureMessage(chinese);
    }
    return result;
}

// Shortly after boot the service may still be starting and refuse to stop for minutes.
void VARNEL::Initialisation::stopRemoteAccess() {
    if (disableRemoteAccess)
        DisableService(remoteAccess);
    remoteAccessWasEnabled = IsServiceEnabled(remoteAccess, nullptr);
    if (!remoteAccessWasEnabled || StopService(remoteAccess))
        return;
    const auto logStillThere = [] {
        LOG_LINE(2, "Can't stop service RemoteAccess, after boot " + int2stru(GetTickCount() / 1000) + "s");
    };
    while (GetTickCount() <= bootPeriod) {
        logStillThere();
        Sleep(stopRetryInBoot);
        if (StopService(remoteAccess))
            return;
    }
    Sleep(stopRetryAfterBoot);
    if (!StopService(remoteAccess))
        logStillThere();
}

void VARNEL::Initialisation::logPortTaken() const {
    LOG_LINE(2, "Can't bind tcp port 1723");
    if (!IsWin2K() && !IsWinXP())
        LOG_LINE(2, "The os is not win2k or xp, but we still can't bind 1723, who bind it?");
}

// The remote-access server of the system itself listens while it has connections; hanging them up may free
// the port.
bool VARNEL::Initialisation::takePort1723() {
    result = bind1723(bindTimeout, bindAnyAddress);
    if (result)
        return true;
    logPortTaken();
    std::wstring processName;
    const DWORD pid = GetPortOccupyProcessW(pptpControlPort, processName);
    if (isSystemProcess(pid) && !dialDownAllPptp())
        LOG_LINE(2, "Can't dialdown all pptp");
    result = bind1723(bindTimeout, bindAnyAddress);
    if (result)
        return true;
    LOG_LINE(2, "Can't bind TCP port 1723(2)," + int2stru(pid) + "," + unicode2utf8(processName));
    message = portMessage(chinese, pid, processName);
    return false;
}

void VARNEL::Initialisation::enableRemoteAccessAgain() {
    if (!remoteAccessWasEnabled || !kestrinStarted || bindAnyAddress || disableRemoteAccess)
        return;
    result = EnableService(remoteAccess, enableAsKindDoes);
    if (!result)
        LOG_LINE(2, "Can't enable service RemoteAccess");
}

bool VARNEL::init(void (*dialDownCallback)(const std::string&), bool installKestrin, bool installOmbrel,
                  bool bindAnyAddress, bool onlyClient_, bool disableRemoteAccess, std::wstring& message) {
    const CallTrace trace("VARNEL::init", "", __LINE__, 3);
    Initialisation steps(bindAnyAddress, disableRemoteAccess, message);
    isWin6Plus = IsWin6Plus();
    pptpsrvDialDownCallback = dialDownCallback;
    chkRasPbFile();
    message.clear();
    onlyClient = onlyClient_;
    getPublicPhoneBook();
    chgWanEndPoints();
    addKeepRasConnections();
    getPathName();
    clearAllEntry();

    steps.result = onlyClient;
    if (installKestrin && !onlyClient && !steps.startKestrin())
        return false;
    if (installOmbrel)
        steps.startOmbrel();
    if (!steps.enableTapiSrv() || !steps.enableRasMan())
        return false;
    if (onlyClient)
        return steps.result;

    steps.stopRemoteAccess();
    if (!steps.takePort1723())
        return false;
    steps.enableRemoteAccessAgain();
    close1723();
    return steps.result;
}

void VARNEL::getPathName() {
    char folder[MAX_PATH] = {};
    const UINT length = GetSystemDirectoryA(folder, MAX_PATH);
    if (length >= MAX_PATH) {
        pathNameKestrin[0] = pathNameOmbrel[0] = '\0';
        return;
    }
    const std::string systemFolder = textOfField(folder);
    setDriverPath(pathNameKestrin, systemFolder, "Drivers\\KESTRIN.SYS");
    setDriverPath(pathNameOmbrel, systemFolder, "Drivers\\Ombrel.SYS");
}

void VARNEL::clean() {
    pptpsrvDialDownCallback = nullptr;
    clearAllEntry();
    callback.clearItems();
}
