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
#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>
#include <system_error>

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

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

// What is told line by line to a person, and in JSON as one object.
struct Status {
    const Telling& telling;
    Json object = {};
    ExitCode exit = ExitCode::done;

    void line(const std::string& text) const {
        if (!telling.json)
            telling.console.result(text);
    }
};

void tellFolder(const KnownPeers& known, Status& status) {
    const std::string folder = utf8FromAnsi(GetWorkingPath());
    const std::string error = known.error == 0 ? "" : systemMessage(known.error);
    status.line(fmt::format("working folder: {}, {}", folder,
                            !known.isThere     ? "not there"
                            : known.error != 0 ? "cannot be read: " + error
                                               : counted(known.ids.size(), "peer")));
    status.object["workingFolder"] = {{"path", folder}, {"isThere", known.isThere}, {"error", error}};
    if (known.error != 0)
        status.exit = ExitCode::failed;
}

void tellPeers(Status& status) {
    const KnownPeers known = knownPeers();
    const Connections connections = activeConnections();
    tellFolder(known, status);
    Json& peers = status.object["peers"] = Json::array();
    for (const std::string& id : known.ids) {
        const auto place = connections.placeOf(id);
        status.line(fmt::format("peer {}: {}", id, stateOf(id, connections)));
        peers.push_back({{"peer", id},
                         {"connected", connections.error == 0 ? Json(place.has_value()) : Json()},
                         {"entry", place ? utf8FromAnsi(connections.list[*place].entry) : std::string()},
                         {"withinReach", !place || *place < Connections::libraryReach}});
    }
    status.object["connections"] = connections.error == 0 ? Json(connections.list.size()) : Json();
    status.object["error"] = nullptr;
    if (connections.error == 0) {
        status.line("remote access: " + counted(connections.list.size(), "active connection"));
        return;
    }
    const Outcome noList = failure("remote access", "no list of connections", connections.error);
    status.exit = noList.exit;
    if (status.telling.json)
        status.object["error"] = jsonOf(noList);
    else
        tell(noList, status.telling);
}

void tellService(const char* name, Status& status) {
    bool installed = false;
    const bool enabled = IsServiceEnabled(name, &installed);
    const char* state = enabled ? "enabled" : installed ? "disabled" : "not installed";
    status.line(fmt::format("service {}: {}", name, state));
    status.object["services"][name] = state;
}

void tellPort(Status& status) {
    const PortHolder holder = holderOfControlPort();
    status.line(fmt::format("TCP port {}: {}", pptpControlPort, holder.words));
    status.object["controlPort"] = {{"free", holder.isFree}, {"words", holder.words}};
}

void tellDriver(const wchar_t* fileName, Status& status) {
    wchar_t folder[MAX_PATH] = L"";
    GetSystemDirectoryW(folder, MAX_PATH);
    const fs::path file = fs::path(folder) / L"Drivers" / fileName;
    const std::string name = unicode2utf8(fileName);
    const std::string path = unicode2utf8(file.wstring());
    std::error_code error;
    if (!fs::exists(file, error)) {
        status.line(fmt::format("driver {}: not installed", name));
        status.object["drivers"][name] = nullptr;
        return;
    }
    const unsigned long long number = GetFileVersion(toAnsi(path).value_or(""));
    const std::string version = fmt::format("{}.{}.{}.{}", number >> 48, number >> 32 & 0xFFFF,
                                            number >> 16 & 0xFFFF, number & 0xFFFF);
    status.line(fmt::format("driver {}: version {}, {}", name, version, path));
    status.object["drivers"][name] = {{"version", version}, {"path", path}};
}

std::string countText(std::optional<DWORD> count) {
    return count ? std::to_string(*count) : "unknown";
}

void tellMiniport(const char* name, const wchar_t* deviceId, Status& status) {
    const auto orNull = [](std::optional<DWORD> count) { return count ? Json(*count) : Json(); };
    const auto miniport = findMiniport(deviceId);
    status.line(miniport ? fmt::format("{} miniport: {} ports, at most {}", name, countText(miniport->ports),
                                       countText(miniport->mostPorts))
                         : fmt::format("{} miniport: not installed", name));
    Json& told = status.object["miniports"][name];
    if (miniport)
        told = {{"ports", orNull(miniport->ports)}, {"mostPorts", orNull(miniport->mostPorts)}};
}

ExitCode showStatus(Context& context) {
    Status status{context.telling};
    tellPeers(status);
    for (const char* service : {"TapiSrv", "RasMan", "RemoteAccess"})
        tellService(service, status);
    tellPort(status);
    for (const wchar_t* driver : {L"KESTRIN.SYS", L"Ombrel.SYS"})
        tellDriver(driver, status);
    tellMiniport("PPTP", pptpMiniport, status);
    tellMiniport("L2TP", l2tpMiniport, status);
    const bool rights = hasAdministratorRights();
    status.line(fmt::format("administrator rights: {}", rights ? "yes" : "no"));
    status.object["administratorRights"] = rights;
    if (context.telling.json)
        tellJson(status.object, context.telling);
    return status.exit;
}

constexpr const char* examples =
    R"(The peers with a folder in the working folder, the services, TCP port 1723, the
drivers and the ports of the miniports. Changes nothing.

Example:
  varnel-host status

Exit codes: 0 told, 1 the working folder cannot be read; for an error as with
"dial")";

} // namespace

const Command statusCommand = {"status", "Tells of the peers, services, port and drivers", examples, false,
                               declareBare<showStatus>};
