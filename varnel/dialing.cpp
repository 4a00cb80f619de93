// The dial-up procedure: entry, dial, confirmation, and a redial under a fresh name.
#include "Varnel.h"
#include "call_trace.h"
#include "hanging_up.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "owners.h"
#include "phonebook_lock.h"
#include "ras_queries.h"

#include <optional>

#include <raserror.h>

#include <utility>

namespace {

constexpr DWORD refused = ~DWORD{0};
constexpr DWORD loopbackAddress = 0x7F000001;
constexpr DWORD firstDialTimeout = 10'000; // ms
constexpr DWORD redialTimeout = 20'000;    // ms
constexpr DWORD settlingTime = 1'000;      // ms, from a dial's end to the check of its status
constexpr DWORD retryPause = 1'000;        // ms
constexpr int maxTries = 3;
constexpr int maxRenames = 256;

bool fitsDialParams(const std::string& id, const std::string& password) {
    return id.size() <= UNLEN && password.size() <= PWLEN && id.find('\0') == std::string::npos &&
           password.find('\0') == std::string::npos;
}

// What is stored with the entry; nothing of the record is sure to be as it was, nor to have an end.
void takeStoredParams(const std::string& phoneBook, RASDIALPARAMSA& params) {
    BOOL passwordStored = FALSE;
    RasGetEntryDialParamsA(phoneBookArgument(phoneBook), &params, &passwordStored);
    endField(params.szPhoneNumber);
    endField(params.szCallbackNumber);
    endField(params.szDomain);
}

} // namespace

// One dial-up of a prepared entry. The password lives in the dial parameters alone and is wiped with them.
class VARNEL::Dialing {
  public:
    Dialing(const std::string& peer, const std::string& password, std::string file, std::string name);
    ~Dialing() {
        SecureZeroMemory(&params, sizeof params);
        const Owner<RasConnection> abandoned(conn); // none, unless an exception passes
    }
    Dialing(const Dialing&) = delete;
    Dialing& operator=(const Dialing&) = delete;

    DWORD run();

  private:
    // The result of the first dial, or nothing when the peer is to be dialled again.
    std::optional<DWORD> firstDial();
    std::optional<DWORD> judgeFailure(DWORD error);
    DWORD redial();
    bool moveEntryToFreshName();
    DWORD renameEntry() const;
    DWORD secondDial();
    // The error of a link whose dial ended without one, after it has had time to settle; nothing when the
    // service does not tell. A link with an error is hung up.
    std::optional<DWORD> settledError(bool first);

    DWORD dial(DWORD timeout);
    void hangUp() { dialDown(std::exchange(conn, nullptr), id); }
    std::string dialText() const { return "RasDial(" + phoneBook + "," + entryName + ")"; }

    const std::string& id;
    const std::string phoneBook;
    std::string entryName;
    RASDIALPARAMSA params = {};
    HRASCONN conn = nullptr;
};

VARNEL::Dialing::Dialing(const std::string& peer, const std::string& password, std::string file,
                         std::string name)
    : id(peer), phoneBook(std::move(file)), entryName(std::move(name)) {
    params.dwSize = rasDialParamsSize;
    copyToField(params.szEntryName, entryName);
    takeStoredParams(phoneBook, params);
    params.dwSize = rasDialParamsSize;
    copyToField(params.szEntryName, entryName);
    copyToField(params.szUserName, id);
    copyToField(params.szPassword, password);
}

DWORD VARNEL::Dialing::run() {
    const DWORD start = GetTickCount();
    const std::optional<DWORD> first = firstDial();
    const DWORD result = first ? *first : redial();
    LOG_LINE(3, phoneBook + "," + entryName + "," + id + " pptp dial return " + int2stru(result) + ",time " +
                    int2stru(GetTickCount() - start));
    conn = nullptr; // a connected one is the service's from here on
    return result;
}

DWORD VARNEL::Dialing::dial(DWORD timeout) {
    conn = nullptr;
    return dialUp3(phoneBook, params, timeout, &conn);
}

std::optional<DWORD> VARNEL::Dialing::firstDial() {
    const DWORD error = dial(firstDialTimeout);
    if (conn == nullptr)
        LOG_LINE(2, "oops, ErrorCode " + int2stru(error) + " conn is NULL");
    if (error != 0)
        return judgeFailure(error);
    const bool up = conn != nullptr && settledError(true) == DWORD{0};
    return up ? std::optional<DWORD>(0) : std::nullopt;
}

std::optional<DWORD> VARNEL::Dialing::judgeFailure(DWORD error) {
    if (conn != nullptr) {
        LOG_LINE(2, dialText() + "fail, error " + int2stru(error));
        hangUp();
    }
    if (error == ERROR_DIAL_ALREADY_IN_PROGRESS)
        return std::nullopt;
    LOG_LINE(2, dialText() + " fail, error " + int2stru(error) + errorText<1024>(error));
    removeEntry(phoneBook, entryName);
    return error;
}

// The records of the two dials differ by a blank here and the phonebook there.
std::optional<DWORD> VARNEL::Dialing::settledError(bool first) {
    Sleep(settlingTime);
    const LinkStatus status = linkStatus(conn);
    if (status.queryError != 0) {
        LOG_LINE(2, "RasGetConnectStatus " +
                        (first ? phoneBook + " " + entryName + " fail,error " : entryName + " fail, error ") +
                        int2stru(status.queryError));
        return std::nullopt;
    }
    if (status.linkError == 0) {
        LOG_LINE(3, phoneBook + "," + entryName + " RasDial must success");
        return 0;
    }
    hangUp();
    LOG_LINE(2, dialText() + (first ? "" : " ") + "return success, but RasGetConnectStatus return " +
                    int2stru(status.linkError));
    return status.linkError;
}

DWORD VARNEL::Dialing::redial() {
    LOG_LINE(2, "dialUp(" + phoneBook + "," + entryName +
                    ") return ERROR_DIAL_ALREADY_IN_PROGRESS or DailFakeSuccess");
    HangingUp::peer(id, conn);
    if (!moveEntryToFreshName())
        return ERROR_DIAL_ALREADY_IN_PROGRESS;
    const DWORD result = secondDial();
    if (result != 0 && result != ERROR_DIAL_ALREADY_IN_PROGRESS)
        removeEntry(phoneBook, entryName);
    return result;
}

// A name that has grown out of its field is refused as the service refuses one.
DWORD VARNEL::Dialing::renameEntry() const {
    if (entryName.size() > RAS_MaxEntryName)
        return ERROR_INVALID_NAME;
    return RasRenameEntryA(phoneBookArgument(phoneBook), params.szEntryName, entryName.c_str());
}

bool VARNEL::Dialing::moveEntryToFreshName() {
    DWORD error = ERROR_ALREADY_EXISTS;
    for (int renames = 0; renames < maxRenames && error == ERROR_ALREADY_EXISTS; ++renames) {
        entryName = getEntryNameWithSuffix(id, true);
        error = renameEntry();
        if (error == ERROR_ALREADY_EXISTS)
            removeEntry(phoneBook, entryName);
    }
    if (error != 0) {
        LOG_LINE(2, "RasRenameEntry fail, error " + int2stru(error));
        return false;
    }
    copyToField(params.szEntryName, entryName);
    return true;
}

DWORD VARNEL::Dialing::secondDial() {
    const DWORD error = dial(redialTimeout);
    if (error != 0) {
        LOG_LINE(2, dialText() + " again fail, error " + int2stru(error));
        if (conn != nullptr)
            hangUp();
        return error;
    }
    if (conn == nullptr) {
        LOG_LINE(2, "Oops, ErrorCode = 0, but Conn is NULL");
        return 0;
    }
    return settledError(false).value_or(0);
}

DWORD VARNEL::dialUp2(const std::string& id, const std::string& password, bool usePublicPhoneBook,
                      bool requireEncryption, DWORD ip) {
    const CallTrace trace("VARNEL::dialUp2", id + " ip " + ip2string(ip), __LINE__, 3);
    if (id.empty() || password.empty() || !fitsDialParams(id, password))
        return ERROR_INVALID_PARAMETER;
    chkRasPbFile();
    INFO info{id, ip != 0 ? ip : loopbackAddress};
    const auto [phoneBook, entryName] = createEntry(&info, usePublicPhoneBook, requireEncryption);
    if (entryName.empty() || (phoneBook.empty() && !usePublicPhoneBook))
        return ERROR_INVALID_PARAMETER;
    return Dialing(id, password, phoneBook, entryName).run();
}

DWORD VARNEL::dialUp(const std::string& id, const std::string& password, bool usePublicPhoneBook,
                     bool requireEncryption, DWORD ip) {
    const CallTrace trace("VARNEL::dialUp", id + " ip " + ip2string(ip), __LINE__, 3);
    if (id.empty() || password.empty())
        return refused;
    DWORD result = 0;
    for (int tries = 0; tries < maxTries; ++tries) {
        result = dialUp2(id, password, usePublicPhoneBook, requireEncryption, ip);
        if (result != 0)
            LOG_LINE(2, "dialUp2 fail, error " + int2stru(result));
        const bool portFailed = result == ERROR_PORT_NOT_AVAILABLE || result == ERROR_FROM_DEVICE;
        if (portFailed && tries != 0) {
            LOG_LINE(2, "ask kestrin chg port 1723->1724 and redial");
            return result;
        }
        if (!portFailed && result != ERROR_DIAL_ALREADY_IN_PROGRESS)
            return result;
        Sleep(retryPause);
    }
    return result;
}
