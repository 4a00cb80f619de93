// Hanging connections up: one by its handle, that of a peer, those that share an address range, all.
#include "Varnel.h"
#include "active_connections.h"
#include "call_trace.h"
#include "hanging_up.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "ras_queries.h"

#include <raserror.h>

namespace {

constexpr DWORD goneTimeout = 3'000; // ms until the service must have forgotten a handle
constexpr DWORD tellingPause = 100;  // ms before the host is told

// The service hangs up behind the caller's back, and a redial before it has done so can fail.
bool waitUntilGone(HRASCONN conn) {
    const DWORD start = GetTickCount();
    for (;;) {
        const DWORD answer = linkStatus(conn).queryError;
        if (answer == ERROR_INVALID_HANDLE)
            return true;
        if (GetTickCount() - start > goneTimeout) {
            LOG_LINE(2, "OOPS, dialdown fail,StatusRet " + int2stru(answer));
            return false;
        }
        Sleep(0);
    }
}

// `hostsFunction` is read again after the pause, since clean() may have cleared it meanwhile.
void tellHost(void (*const volatile& hostsFunction)(const std::string&), const std::string& id) {
    if (hostsFunction == nullptr)
        return;
    Sleep(tellingPause);
    if (const auto function = hostsFunction)
        function(id);
}

void logHangUp(const std::string& entryName, bool hungUp) {
    if (hungUp)
        LOG_LINE(3, "dialdown " + entryName + " success");
    else
        LOG_LINE(2, "dialdown " + entryName + " fail");
}

// The connection's own address on its link, in host byte order; 0 when it has none or it cannot be read.
DWORD addressOf(HRASCONN conn, const std::string& entryName) {
    LOG_LINE(3, "Try to get " + entryName + " ip");
    const std::optional<std::string> text = pppAddress(conn);
    if (!text) {
        LOG_LINE(2, "Can't get ppp ip from " + entryName);
        return 0;
    }
    const DWORD address = ntohl(inet_addr(text->c_str()));
    LOG_LINE(3, entryName + "ip " + ip2string(address));
    return address;
}

bool sameFirstOctet(DWORD one, DWORD other) {
    return one >> 24 == other >> 24;
}

} // namespace

bool VARNEL::dialDown(HRASCONN conn, const std::string& id) {
    Owner<RasConnection> connection(conn);
    LOG_LINE(1, "=>RasHangUp " + id);
    const DWORD error = RasHangUpA(connection.release());
    LOG_LINE(1, "<=RasHangUp " + id);
    if (error != 0 && error != ERROR_NO_CONNECTION)
        LOG_LINE(2, "RasHangUp fail, error " + int2stru(error));
    const bool hungUp = waitUntilGone(conn) || error == 0;
    if (!id.empty())
        tellHost(pptpsrvDialDownCallback, id);
    return hungUp;
}

bool VARNEL::dialDown(const std::string& id) {
    HRASCONN none = nullptr;
    return HangingUp::peer(id, none);
}

bool VARNEL::HangingUp::peer(const std::string& id, HRASCONN& dialled) {
    const CallTrace trace("VARNEL::dialDown", id, __LINE__, 3);
    if (id.empty())
        return false;
    bool hungUp = false;
    {
        const ActiveConnections connections(ActiveConnections::ampleRoom, 0);
        for (DWORD i = 0; i < connections.examined(); ++i) {
            const std::string entryName = connections.entryName(i);
            if (!matchId(entryName, id))
                continue;
            if (connections.handle(i) == dialled)
                dialled = nullptr;
            hungUp = dialDown(connections.handle(i), "");
            logHangUp(entryName, hungUp);
            removeEntry(connections.phoneBook(i), entryName);
            break;
        }
    }
    removePhoneBook(id);
    tellHost(pptpsrvDialDownCallback, id);
    return hungUp;
}

// The result is that of the last hang-up, true without any.
template<class Wanted>
bool VARNEL::HangingUp::each(Wanted wanted) {
    const ActiveConnections connections(ActiveConnections::maxExamined, HEAP_ZERO_MEMORY);
    if (connections.error() != 0)
        return true;
    LOG_LINE(3, "get " + int2stru(connections.reported()) + " connections");
    bool hungUp = true;
    for (DWORD i = 0; i < connections.examined(); ++i) {
        const std::string entryName = connections.entryName(i);
        if (!wanted(connections.handle(i), entryName))
            continue;
        hungUp = dialDown(connections.handle(i), "");
        logHangUp(entryName, hungUp);
    }
    return hungUp;
}

bool VARNEL::dialDownAllPptp() {
    const CallTrace trace("VARNEL::dialDownAllPptp", "", __LINE__, 3);
    return HangingUp::each([](HRASCONN, const std::string&) { return true; });
}

bool VARNEL::dialDownSameIp(DWORD ip) {
    const CallTrace trace("VARNEL::dialDownSameIp", ip2string(ip), __LINE__, 3);
    return HangingUp::each([ip](HRASCONN conn, const std::string& entryName) {
        const DWORD address = addressOf(conn, entryName);
        return address != 0 && sameFirstOctet(address, ip);
    });
}
