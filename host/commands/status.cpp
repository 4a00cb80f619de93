#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "console.h"
#include "control_port.h"
#include "miniports.h"
#include "outcome.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "peer_folders.h"
#include "rights.h"
#include "text.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <system_error>

namespace fs = std::filesystem;

namespace {

std::string counted(size_t count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string stateOf(const std::string& id, const Connections& connections) {
    if (connections.error != 0)
        return "unknown";
    const auto place = connections.placeOf(id);
    if (!place)
        return "not connected";
    return fmt::format("connected, entry \"{}\"{}", utf8FromAnsi(connections.list[*place].entry),
                       *place < Connections::libraryReach ? "" : ", beyond the library's reach");
}

ExitCode showPeers(Console& console) {
    const std::string folder = utf8FromAnsi(GetWorkingPath());
    const KnownPeers known = knownPeers();
    const Connections connections = activeConnections();
    console.result(fmt::format("working folder: {}, {}", folder,
                               !known.isThere     ? "not there"
                               : known.error != 0 ? "cannot be read: " + systemMessage(known.error)
                                                  : counted(known.ids.size(), "peer")));
    for (const std::string& id : known.ids)
        console.result(fmt::format("peer {}: {}", id, stateOf(id, connections)));
    if (connections.error != 0)
        return tell(failure("remote access", "no list of connections", connections.error), console);
    console.result("remote access: " + counted(connections.list.size(), "active connection"));
    return known.error == 0 ? ExitCode::done : ExitCode::failed;
}

void showService(const char* name, Console& console) {
    bool installed = false;
    const bool enabled = IsServiceEnabled(name, &installed);
    console.result(fmt::format("service {}: {}", name,
                               enabled     ? "enabled"
                               : installed ? "disabled"
                                           : "not installed"));
}

void showPort(Console& console) {
    console.result(fmt::format("TCP port {}: {}", pptpControlPort, holderOfControlPort().words));
}

void showDriver(const wchar_t* fileName, Console& console) {
    wchar_t folder[MAX_PATH] = L"";
    GetSystemDirectoryW(folder, MAX_PATH);
    const fs::path file = fs::path(folder) / L"Drivers" / fileName;
    const std::string name = unicode2utf8(fileName);
    const std::string path = unicode2utf8(file.wstring());
    std::error_code error;
    if (!fs::exists(file, error)) {
        console.result(fmt::format("driver {}: not installed", name));
        return;
    }
    const unsigned long long version = GetFileVersion(toAnsi(path).value_or(""));
    console.result(fmt::format("driver {}: version {}.{}.{}.{}, {}", name, version >> 48,
                               version >> 32 & 0xFFFF, version >> 16 & 0xFFFF, version & 0xFFFF, path));
}

std::string countText(std::optional<DWORD> count) {
    return count ? std::to_string(*count) : "unknown";
}

void showMiniport(const char* name, const wchar_t* deviceId, Console& console) {
    const auto miniport = findMiniport(deviceId);
    console.result(miniport ? fmt::format("{} miniport: {} ports, at most {}", name,
                                          countText(miniport->ports), countText(miniport->mostPorts))
                            : fmt::format("{} miniport: not installed", name));
}

ExitCode showStatus(Context& context) {
    Console& console = context.console;
    const ExitCode peers = showPeers(console);
    for (const char* service : {"TapiSrv", "RasMan", "RemoteAccess"})
        showService(service, console);
    showPort(console);
    for (const wchar_t* driver : {L"KESTRIN.SYS", L"Ombrel.SYS"})
        showDriver(driver, console);
    showMiniport("PPTP", pptpMiniport, console);
    showMiniport("L2TP", l2tpMiniport, console);
    console.result(fmt::format("administrator rights: {}", hasAdministratorRights() ? "yes" : "no"));
    return peers;
}

constexpr const char* examples =
    R"(The peers with a folder in the working folder, the services, TCP port 1723, the
drivers and the ports of the miniports. Changes nothing.

Example:
  varnel-host status

Exit codes: 0 told, 6 the remote-access service is not there, 1 the working
folder cannot be read)";

} // namespace

const Command statusCommand = {"status", "Tells of the peers, services, port and drivers", examples, false,
                               declareBare<showStatus>};
