// TCP port 1723, PPTP's control port: bound to prove that it is
// free, and held while the computer is prepared.
#include "port_guard.h"

#include "Varnel.h"
#include "call_trace.h"
#include "log_line.h"
#include "outside/Helper.h"

namespace {

constexpr DWORD bindPause = 50; // ms between two attempts

sockaddr_in controlPortAddress(bool anyAddress) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(pptpControlPort);
    address.sin_addr.s_addr = anyAddress ? htonl(INADDR_ANY) : inet_addr("127.0.0.1");
    return address;
}

} // namespace

bool VARNEL::bind1723(DWORD timeout, bool anyAddress) {
    const CallTrace trace("VARNEL::bind1723", "", __LINE__, 3);
    s1723 = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    const DWORD reuse = 1;
    setsockopt(s1723, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse), sizeof reuse);
    const sockaddr_in address = controlPortAddress(anyAddress);
    const DWORD start = GetTickCount();
    while (GetTickCount() - start <= timeout) {
        if (bind(s1723, reinterpret_cast<const sockaddr*>(&address), sizeof address) != SOCKET_ERROR)
            return true;
        Sleep(bindPause);
    }
    LOG_LINE(2, "Can't bind 0:1723");
    close1723();
    return false;
}

bool VARNEL::close1723() {
    if (s1723 == INVALID_SOCKET)
        return true;
    const int result = closesocket(s1723);
    const int error = result == 0 ? 0 : WSAGetLastError();
    s1723 = INVALID_SOCKET;
    if (result != 0)
        LOG_LINE(2, "oops, closesocket(s1723) fail, error " + int2strd(error));
    return result == 0;
}
