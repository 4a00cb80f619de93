// Preparing the computer, and ending the library's work.
#include "Varnel.h"
#include "call_trace.h"
#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "phonebook_lock.h"
#include "port_guard.h"
#include "user_messages.h"

#include <utility>

namespace {

constexpr DWORD bindTimeout = 1'000;         // ms
constexpr DWORD bootPeriod = 300'000;        // ms of uptime within which services are still settling
constexpr DWORD stopRetryInBoot = 10'000;    // ms
constexpr DWORD stopRetryAfterBoot = 30'000; // ms
constexpr char remoteAccess[] = "RemoteAccess";

// A path that does not fit the buffer is refused: it stays empty.
void setDriverPath(char (&path)[MAX_PATH], const std::string& systemFolder, const char* fileName) {
    std::string text = systemFolder;
    if (text.empty() || text.back() != '\\')
        text += '\\';
    text += fileName;
    copyToField(path, text.size() < MAX_PATH ? text : std::string());
}

// How a step of init() ended. One that ends init() has said in the message what the user must correct.
enum class Step { notNeeded, done, failed, endsInit };

} // namespace

// The steps of init(), in the order in which they run.
class VARNEL::Initialisation {
  public:
    Initialisation(bool anyAddress, bool disable, std::wstring& text)
        : bindAnyAddress(anyAddress), disableRemoteAccess(disable), message(text) {}
    ~Initialisation();
    Initialisation(const Initialisation&) = delete;
    Initialisation& operator=(const Initialisation&) = delete;

    Step startKestrin();
    Step startOmbrel();
    Step enableTapiSrv() { return enableIfDisabled("TapiSrv", tapiSrvMessage); }
    Step enableRasMan() { return enableIfDisabled("RasMan", rasManMessage); }
    void stopRemoteAccess();
    Step takePort1723();
    Step enableRemoteAccessAgain() const;

  private:
    Step enableIfDisabled(const char* service, std::wstring (*failureMessage)(bool chinese));

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

Step VARNEL::Initialisation::startKestrin() {
    if (GetIs64Os()) {
        LOG_LINE(1, "x64 doesn't need to install kestrin");
        return Step::notNeeded;
    }
    kestrinStarted = tryinstallDriverAndLaunchKestrin();
    if (kestrinStarted)
        return Step::done;
    LOG_LINE(2, "tryinstallDriverAndLaunchKestrin fail!!!");
    if (!IsWin2K() && !IsWinXP())
        return Step::failed;
    message = driverMessage(chinese);
    return Step::endsInit;
}

Step VARNEL::Initialisation::startOmbrel() {
    if (isWin6Plus) {
        LOG_LINE(1, "Vista can't install ombrel");
        return Step::notNeeded;
    }
    if (tryinstallDriverAndLaunchOmbrel())
        return Step::done;
    LOG_LINE(2, "tryinstallDriverAndLaunchOmbrel fail!!!");
    return Step::failed;
}

Step VARNEL::Initialisation::enableIfDisabled(const char* service,
                                              std::wstring (*failureMessage)(bool chinese)) {
    bool exists = false;
    if (IsServiceEnabled(service, &exists) || !exists)
        return Step::notNeeded;
    if (EnableService(service, enableAsKindDoes))
        return Step::done;
    LOG_LINE(2, std::string("Can't enable service ") + service);
    message = failureMessage(chinese);
    return Step::endsInit;
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

// The remote-access server of the system itself listens while it
// has connections; hanging them up may free the port.
Step VARNEL::Initialisation::takePort1723() {
    if (bind1723(bindTimeout, bindAnyAddress))
        return Step::done;
    LOG_LINE(2, "Can't bind tcp port 1723");
    if (!IsWin2K() && !IsWinXP())
        LOG_LINE(2, "The os is not win2k or xp, but we still can't bind 1723, who bind it?");
    std::wstring processName;
    const DWORD pid = GetPortOccupyProcessW(pptpControlPort, processName);
    if (isSystemProcess(pid) && !dialDownAllPptp())
        LOG_LINE(2, "Can't dialdown all pptp");
    if (bind1723(bindTimeout, bindAnyAddress))
        return Step::done;
    LOG_LINE(2, "Can't bind TCP port 1723(2)," + int2stru(pid) + "," + unicode2utf8(processName));
    message = portMessage(chinese, pid, processName);
    return Step::endsInit;
}

Step VARNEL::Initialisation::enableRemoteAccessAgain() const {
    if (!remoteAccessWasEnabled || !kestrinStarted || bindAnyAddress || disableRemoteAccess)
        return Step::notNeeded;
    if (EnableService(remoteAccess, enableAsKindDoes))
        return Step::done;
    LOG_LINE(2, "Can't enable service RemoteAccess");
    return Step::failed;
}

bool VARNEL::init(void (*dialDownCallback)(const std::string&), bool installKestrin, bool installOmbrel,
                  bool bindAnyAddress, bool onlyClient, bool disableRemoteAccess, std::wstring& message) {
    const CallTrace trace("VARNEL::init", "", __LINE__, 3);
    Initialisation steps(bindAnyAddress, disableRemoteAccess, message);
    isWin6Plus = IsWin6Plus();
    pptpsrvDialDownCallback = dialDownCallback;
    chkRasPbFile();
    message.clear();
    VARNEL::onlyClient = onlyClient;
    getPublicPhoneBook();
    chgWanEndPoints();
    addKeepRasConnections();
    getPathName();
    clearAllEntry();

    // The last step that did something decides; a server of one's own needs the port.
    bool ready = onlyClient;
    const auto goesOn = [&ready](Step step) {
        if (step != Step::notNeeded)
            ready = step == Step::done;
        return step != Step::endsInit;
    };
    if (installKestrin && !onlyClient && !goesOn(steps.startKestrin()))
        return false;
    if (installOmbrel)
        goesOn(steps.startOmbrel());
    if (!goesOn(steps.enableTapiSrv()) || !goesOn(steps.enableRasMan()))
        return false;
    if (onlyClient)
        return ready;

    steps.stopRemoteAccess();
    if (!goesOn(steps.takePort1723()))
        return false;
    goesOn(steps.enableRemoteAccessAgain());
    close1723();
    return ready;
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
