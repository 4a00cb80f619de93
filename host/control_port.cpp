#include "control_port.h"

#include "outside/Helper.h"
#include "outside/Helper2.h"

#include <winsock2.h>

#include <fmt/format.h>

namespace {

// Whether a program could listen there.
bool isPortFree() {
    WSADATA data;
    if (WSAStartup(MAKEWORD(2, 0), &data) != 0)
        return false;
    const SOCKET port = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(pptpControlPort);
    const bool isFree = bind(port, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    closesocket(port);
    WSACleanup();
    return isFree;
}

} // namespace

PortHolder holderOfControlPort() {
    std::wstring program;
    const unsigned long process = GetPortOccupyProcessW(pptpControlPort, program);
    if (process != 0)
        return {false, fmt::format("held by process {} ({})", process,
                                   program.empty() ? "unknown" : unicode2utf8(program))};
    if (isPortFree())
        return {true, "free"};
    return {false, "held by a process that cannot be told"};
}
