#include "status.h"

#include "console.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "sole_host.h"
#include "text.h"
#include "varnel/Varnel.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr unsigned short pptpControlPort = 1723;
constexpr const wchar_t* adapterClass =
    L"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}";

struct KeyCloser {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

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

// The peers that have a folder in the working folder, by id.
std::set<std::string> knownPeers(const fs::path& workingFolder) {
    std::set<std::string> ids;
    std::error_code unreadable;
    for (const auto& found : fs::directory_iterator(workingFolder, unreadable)) {
        const auto id = toAnsi(unicode2utf8(found.path().filename().wstring()));
        std::error_code gone;
        if (id && found.is_directory(gone) && CheckIdFormat(nullptr, *id, nullptr, nullptr, nullptr))
            ids.insert(*id);
    }
    return ids;
}

void showPeers(Console& console) {
    const std::string folder = GetWorkingPath();
    const std::set<std::string> ids = knownPeers(wideFromAnsi(folder));
    console.result(fmt::format("working folder: {}, {} peer{}", utf8FromAnsi(folder), ids.size(),
                               ids.size() == 1 ? "" : "s"));
    for (const std::string& id : ids) {
        const std::string entry = VARNEL::getCurrentEntryNameById(id);
        console.result(fmt::format(
            "peer {}: {}", utf8FromAnsi(id),
            entry.empty() ? "not connected" : fmt::format("connected, entry \"{}\"", utf8FromAnsi(entry))));
    }
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
    std::wstring program;
    const unsigned long process = GetPortOccupyProcessW(pptpControlPort, program);
    console.result(process == 0 ? fmt::format("TCP port {}: held by no process", pptpControlPort)
                                : fmt::format("TCP port {}: held by process {} ({})", pptpControlPort,
                                              process, program.empty() ? "unknown" : unicode2utf8(program)));
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

} // namespace

void showStatus(Console& console) {
    showPeers(console);
    for (const char* service : {"TapiSrv", "RasMan", "RemoteAccess"})
        showService(service, console);
    showPort(console);
    for (const wchar_t* driver : {L"KESTRIN.SYS", L"Ombrel.SYS"})
        showDriver(driver, console);
    showMiniport("PPTP", L"ms_pptpminiport", console);
    showMiniport("L2TP", L"ms_l2tpminiport", console);
    console.result(fmt::format("administrator rights: {}", hasAdministratorRights() ? "yes" : "no"));
}
