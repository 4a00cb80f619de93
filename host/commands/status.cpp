#include "command_line.h"
#include "commands.h"
#include "connections.h"
#include "console.h"
#include "outcome.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "owners.h"
#include "peer_folders.h"
#include "rights.h"
#include "text.h"

#include <winsock2.h>

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr unsigned short pptpControlPort = 1723;
constexpr const wchar_t* adapterClass =
    L"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}";

Key openKey(HKEY parent, const wchar_t* path) {
    HKEY key = nullptr;
    return Key(RegOpenKeyExW(parent, path, 0, KEY_READ, &key) == ERROR_SUCCESS ? key : nullptr);
}

std::optional<DWORD> readNumber(HKEY key, const wchar_t* name) {
    DWORD number = 0;
    DWORD size = sizeof number;
    DWORD type = REG_NONE;
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size) !=
            ERROR_SUCCESS ||
        type != REG_DWORD)
        return std::nullopt;
    return number;
}

std::wstring readText(HKEY key, const wchar_t* name) {
    wchar_t text[256] = L"";
    DWORD size = sizeof text - sizeof *text;
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size) != ERROR_SUCCESS)
        return {};
    return text;
}

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

// Whether a program could listen there, on every address.
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

std::string holderOfPort() {
    std::wstring program;
    const unsigned long process = GetPortOccupyProcessW(pptpControlPort, program);
    if (process != 0)
        return fmt::format("held by process {} ({})", process,
                           program.empty() ? "unknown" : unicode2utf8(program));
    return isPortFree() ? "free" : "held by a process that cannot be told";
}

void showPort(Console& console) {
    console.result(fmt::format("TCP port {}: {}", pptpControlPort, holderOfPort()));
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

// Tells of the first adapter with that device id.
void showMiniport(const char* name, const wchar_t* deviceId, Console& console) {
    const Key adapters = openKey(HKEY_LOCAL_MACHINE, adapterClass);
    wchar_t subkey[256] = L"";
    DWORD length = ARRAYSIZE(subkey);
    for (DWORD i = 0; adapters && RegEnumKeyExW(adapters.get(), i, subkey, &length, nullptr, nullptr, nullptr,
                                                nullptr) == ERROR_SUCCESS;
         ++i, length = ARRAYSIZE(subkey)) {
        const Key adapter = openKey(adapters.get(), subkey);
        if (!adapter || _wcsicmp(readText(adapter.get(), L"MatchingDeviceId").c_str(), deviceId) != 0)
            continue;
        console.result(fmt::format("{} miniport: {} ports, at most {}", name,
                                   countText(readNumber(adapter.get(), L"WanEndpoints")),
                                   countText(readNumber(adapter.get(), L"MaxWanEndpoints"))));
        return;
    }
    console.result(fmt::format("{} miniport: not installed", name));
}

ExitCode showStatus(Context& context) {
    Console& console = context.console;
    const ExitCode peers = showPeers(console);
    for (const char* service : {"TapiSrv", "RasMan", "RemoteAccess"})
        showService(service, console);
    showPort(console);
    for (const wchar_t* driver : {L"KESTRIN.SYS", L"Ombrel.SYS"})
        showDriver(driver, console);
    showMiniport("PPTP", L"ms_pptpminiport", console);
    showMiniport("L2TP", L"ms_l2tpminiport", console);
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
