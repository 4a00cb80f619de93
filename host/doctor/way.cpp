#include "connections.h"
#include "control_port.h"
#include "doctor/doctor.h"
#include "outside/Helper.h"
#include "phonebook_file.h"
#include "text.h"
#include "words/explain.h"

#include <winsock2.h>

#include <fmt/format.h>

#include <chrono>

namespace {

constexpr long patience = 3; // s

// The process's right to use sockets.
class Sockets {
  public:
    Sockets() = default;
    ~Sockets() {
        if (error == 0)
            WSACleanup();
    }
    Sockets(const Sockets&) = delete;
    Sockets& operator=(const Sockets&) = delete;

    WSADATA about = {};
    const int error = WSAStartup(MAKEWORD(2, 2), &about);
};

class Socket {
  public:
    Socket() = default;
    ~Socket() { closesocket(handle); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    const SOCKET handle = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
};

fd_set only(SOCKET socket) {
    fd_set set = {};
    set.fd_count = 1;
    set.fd_array[0] = socket;
    return set;
}

// 0 when the connection stood in time, else why not.
int connectTo(unsigned long ip) {
    const Socket socket;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(pptpControlPort);
    address.sin_addr.s_addr = htonl(ip);
    u_long nonBlocking = 1;
    if (ioctlsocket(socket.handle, static_cast<long>(FIONBIO), &nonBlocking) != 0)
        return WSAGetLastError();
    if (connect(socket.handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return 0;
    if (WSAGetLastError() != WSAEWOULDBLOCK)
        return WSAGetLastError();
    fd_set connected = only(socket.handle);
    fd_set failed = only(socket.handle);
    timeval time = {.tv_sec = patience, .tv_usec = 0};
    const int ready = select(0, nullptr, &connected, &failed, &time);
    if (ready <= 0)
        return ready == 0 ? WSAETIMEDOUT : WSAGetLastError();
    int error = 0;
    int size = sizeof error;
    getsockopt(socket.handle, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
    return error;
}

Finding serverAnswers(unsigned long ip) {
    const std::string subject = fmt::format("{}, TCP port {}", ip2string(ip), pptpControlPort);
    const Sockets sockets;
    const auto start = std::chrono::steady_clock::now();
    const int error = sockets.error != 0 ? sockets.error : connectTo(ip);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (error == 0)
        return {
            subject, Grade::well,
            fmt::format("answers after {:.2f} s; whether the tunnel's data (GRE) passes, only a dial tells",
                        elapsed.count())};
    const Explanation why = explain(static_cast<std::uint32_t>(error), Language::english);
    return {subject, Grade::wrong,
            fmt::format("after {:.2f} s error {} {}, {}", elapsed.count(), error, why.name, why.meaning),
            causeOf(static_cast<std::uint32_t>(error)) == Cause::nobodyAnswers
                ? "check the address, that the peer's server runs, and that no firewall drops TCP port 1723"
                : why.advice};
}

bool isOf(const std::string& id, const PhonebookEntry& entry) {
    std::string peer;
    std::string suffix;
    return CheckIdFormat(nullptr, entry.name, &peer, &suffix, nullptr) && !suffix.empty() &&
           _stricmp(peer.c_str(), id.c_str()) == 0;
}

Findings entriesOf(const std::string& id, unsigned long ip) {
    Findings findings;
    for (const auto& file : {privatePhonebook(id), publicPhonebook()}) {
        for (const PhonebookEntry& entry : readPhonebook(file).entries) {
            if (!isOf(id, entry))
                continue;
            const std::string found =
                fmt::format("\"{}\" in {}, for {}", entry.name, unicode2utf8(file.wstring()), entry.address);
            if (entry.address == ip2string(ip))
                findings.push_back({"entry", Grade::well, found});
            else
                findings.push_back({"entry", Grade::doubtful, found,
                                    "the next dial writes the address anew; which of the two is right?"});
        }
    }
    if (findings.empty())
        findings.push_back({"entry", Grade::well, "none yet; a dial writes it"});
    return findings;
}

Finding connection(const std::string& id) {
    const Connections connections = activeConnections();
    const auto place = connections.placeOf(id);
    if (!place)
        return {"connection", Grade::well, "none"};
    return {"connection", Grade::well,
            fmt::format("up, by the entry \"{}\"", utf8FromAnsi(connections.list[*place].entry))};
}

} // namespace

Findings examineWay(const std::string& id, unsigned long ip) {
    Findings findings = {serverAnswers(ip)};
    for (Finding& entry : entriesOf(id, ip))
        findings.push_back(std::move(entry));
    findings.push_back(connection(id));
    return findings;
}
