#include "connections.h"
#include "control_port.h"
#include "doctor/doctor.h"
#include "miniports.h"
#include "outside/Helper.h"
#include "rights.h"
#include "text.h"
#include "words/explain.h"

#include <fmt/format.h>

#include <windows.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <type_traits>

#include <winsvc.h>

extern "C" LONG NTAPI RtlGetVersion(RTL_OSVERSIONINFOW* version);

namespace {

constexpr unsigned long wantedPptpPorts = 10; // what init raises them to
constexpr const char* mayNeedRights =
    "init and clean need them: use a console that was opened with \"Run as administrator\"";

struct ServiceCloser {
    void operator()(SC_HANDLE service) const { CloseServiceHandle(service); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceCloser>;

struct Service {
    DWORD start;
    DWORD state;

    bool isDisabled() const { return start == SERVICE_DISABLED; }
    bool runs() const { return state == SERVICE_RUNNING; }
    std::string words() const {
        return fmt::format("{}, {}", isDisabled() ? "disabled" : "enabled", runs() ? "runs" : "does not run");
    }
};

// Nothing when it is not installed, or nobody may ask.
std::optional<Service> findService(const wchar_t* name) {
    const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const ServiceHandle service(
        manager ? OpenServiceW(manager.get(), name, SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG) : nullptr);
    alignas(QUERY_SERVICE_CONFIGW) BYTE buffer[8 * 1024]; // the most that the system gives
    const auto config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
    DWORD needed = 0;
    SERVICE_STATUS status = {};
    if (!service || !QueryServiceConfigW(service.get(), config, sizeof buffer, &needed) ||
        !QueryServiceStatus(service.get(), &status))
        return std::nullopt;
    return Service{config->dwStartType, status.dwCurrentState};
}

Finding windows() {
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    RtlGetVersion(&version);
    const std::string found = fmt::format("{}.{}.{}, {}-bit", version.dwMajorVersion, version.dwMinorVersion,
                                          version.dwBuildNumber, GetIs64Os() ? 64 : 32);
    if (version.dwMajorVersion > 5 || (version.dwMajorVersion == 5 && version.dwMinorVersion >= 2))
        return {"Windows", Grade::well, found};
    return {"Windows", Grade::wrong, found, "the library needs 64-bit Windows XP (5.2) or a later one"};
}

Finding rights() {
    if (hasAdministratorRights())
        return {"rights", Grade::well, "an administrator's"};
    return {"rights", Grade::doubtful, "not an administrator's", mayNeedRights};
}

Finding dialService(const wchar_t* name) {
    const std::string subject = "service " + unicode2utf8(name);
    const auto service = findService(name);
    if (!service)
        return {subject, Grade::wrong, "not installed",
                "nothing can be dialled without it: repair Windows' remote access"};
    if (service->isDisabled())
        return {subject, Grade::wrong, service->words(),
                "nothing can be dialled without it: \"varnel-host init\" enables it"};
    return {subject, Grade::well, service->words()};
}

// What serves those who dial in; it holds the port of a server of one's own.
Finding serverService() {
    const std::string subject = "service RemoteAccess";
    const auto service = findService(L"RemoteAccess");
    if (!service)
        return {subject, Grade::well, "not installed"};
    if (service->runs())
        return {subject, Grade::doubtful, service->words(),
                "it holds TCP port 1723: \"varnel-host init\" stops it; it does no harm who only dials out"};
    return {subject, Grade::well, service->words()};
}

Finding port() {
    const std::string subject = fmt::format("TCP port {}", pptpControlPort);
    const PortHolder holder = holderOfControlPort();
    if (holder.isFree)
        return {subject, Grade::well, holder.words};
    return {subject, Grade::doubtful, holder.words,
            "unless that is your own server, end it before \"varnel-host init\"; it does no harm who only "
            "dials out"};
}

// Whether the service answers at all.
Finding remoteAccess() {
    const Connections connections = activeConnections();
    if (connections.error == 0)
        return {"remote access", Grade::well,
                fmt::format("answers; {} active connection{}", connections.list.size(),
                            connections.list.size() == 1 ? "" : "s")};
    const Explanation why = explain(connections.error, Language::english);
    return {"remote access", Grade::wrong,
            fmt::format("error {} {}, {}", connections.error, why.name, why.meaning), why.advice};
}

Finding driver(const wchar_t* service) {
    const std::string subject = "driver " + unicode2utf8(service);
    wchar_t folder[MAX_PATH] = L"";
    GetSystemDirectoryW(folder, MAX_PATH);
    const auto file = std::filesystem::path(folder) / L"Drivers" / (std::wstring(service) + L".SYS");
    std::error_code unknown;
    const bool isThere = std::filesystem::exists(file, unknown);
    const auto installed = findService(service);
    if (!isThere && !installed)
        return {subject, Grade::well, "not installed"};
    if (!isThere)
        return {subject, Grade::wrong, "its service is there, but not its file",
                "\"varnel-host init\" with the driver's option installs it again"};
    const unsigned long long version = GetFileVersion(toAnsi(unicode2utf8(file.wstring())).value_or(""));
    if (version == 0)
        return {subject, Grade::wrong, "its file is damaged: it has no version",
                fmt::format("delete {}; \"varnel-host init\" with the driver's option installs it again",
                            unicode2utf8(file.wstring()))};
    const std::string found =
        fmt::format("version {}.{}.{}.{}, {}", version >> 48, version >> 32 & 0xFFFF, version >> 16 & 0xFFFF,
                    version & 0xFFFF, installed ? installed->words() : "without a service");
    if (!installed)
        return {subject, Grade::doubtful, found,
                "\"varnel-host init\" with the driver's option gives it its service"};
    return {subject, Grade::well, found};
}

std::string countText(std::optional<DWORD> count) {
    return count ? std::to_string(*count) : "an unknown number";
}

Finding pptpPorts() {
    const auto miniport = findMiniport(pptpMiniport);
    if (!miniport)
        return {"PPTP ports", Grade::wrong, "the device \"WAN Miniport (PPTP)\" is not installed",
                "nothing can be dialled without it: repair Windows' remote access"};
    const std::string found =
        fmt::format("{}, at most {}", countText(miniport->ports), countText(miniport->mostPorts));
    if (miniport->ports == 0UL)
        return {"PPTP ports", Grade::wrong, found, "\"varnel-host init\" raises their number"};
    // Since Windows Vista the router keeps the number, and the registry need not say it.
    if (miniport->ports.value_or(wantedPptpPorts) < wantedPptpPorts && !IsWin6Plus())
        return {"PPTP ports", Grade::doubtful, found,
                "so many peers can be connected at once; \"varnel-host init\" raises their number"};
    return {"PPTP ports", Grade::well, found};
}

Finding l2tpPorts() {
    const auto miniport = findMiniport(l2tpMiniport);
    return {"L2TP ports", Grade::well,
            miniport ? fmt::format("{}, at most {}; dials do not use them", countText(miniport->ports),
                                   countText(miniport->mostPorts))
                     : "none; dials do not use them"};
}

} // namespace

Findings examineComputer() {
    return {windows(),      rights(), dialService(L"TapiSrv"), dialService(L"RasMan"), serverService(),
            remoteAccess(), port(),   driver(L"KESTRIN"),      driver(L"Ombrel"),      pptpPorts(),
            l2tpPorts()};
}
