#include "scripted_computer.h"

#include "complaints.h"
#include "imports.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

std::string ownFolder() {
    char folder[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, folder);
    return folder + ("computer-" + std::to_string(GetCurrentProcessId()));
}

void routerFunction() {
    complain("a function of the router was called");
}

} // namespace

ScriptedComputer::ScriptedComputer(Folders folders_)
    : systemFolder(ownFolder() + "\\system32"), peersFolder(ownFolder() + "\\peers"), folder(ownFolder()),
      folders(folders_) {
    if (folders == Folders::Real) {
        std::filesystem::create_directories(systemFolder + "\\Drivers");
        std::filesystem::create_directories(peersFolder);
    }
    for (const char* name : {"TapiSrv", "RasMan", "RemoteAccess"})
        services[name];
    setMiniport("0001", "ms_pptpminiport", 32, 10);
    setMiniport("0002", "ms_l2tpminiport", 0, 5);
    registry.keys[adapterClass];
    registry.keys[winLogon]["KeepRasConnections"] = ScriptedRegistry::text("1");
    answerForSystem();
    answerForServices();
    answerForDrivers();
    answerForPort();
}

ScriptedComputer::~ScriptedComputer() {
    if (folders == Folders::None)
        return;
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

void ScriptedComputer::setMiniport(const std::string& key, const std::string& deviceId, DWORD max,
                                   DWORD count) {
    registry.keys[std::string(adapterClass) + "\\" + key] = {
        {"MatchingDeviceId", ScriptedRegistry::text(deviceId)},
        {"MaxWanEndpoints", ScriptedRegistry::number(max)},
        {"WanEndpoints", ScriptedRegistry::number(count)}};
}

void ScriptedComputer::makePeerFolder(const std::string& name) const {
    std::filesystem::create_directories(peersFolder + "\\" + name);
}

void ScriptedComputer::writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string ScriptedComputer::readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (!file)
        return "none";
    bytes << file.rdbuf();
    return bytes.str();
}

void ScriptedComputer::answerForSystem() {
    on<"IsChineseOs">([this] { return chinese; });
    on<"IsWin6Plus">([this] { return win6; });
    on<"GetIs64Os">([this] { return is64; });
    on<"IsWin2K">([this] { return win2K; });
    on<"IsWinXP">([this] { return winXP; });
    on<"GetWorkingPath">([this] { return peersFolder; });
    on<"GetSystemDirectoryA">([this](LPSTR path, UINT room) {
        const auto length = static_cast<UINT>(systemFolder.copy(path, room - 1));
        path[length] = '\0';
        return length;
    });
    on<"SHGetFolderPathA">([](HWND, int, HANDLE, DWORD, LPSTR path) {
        strcpy(path, "C:\\all");
        return S_OK;
    });
    on<"LoadLibraryA">([](LPCSTR) { return reinterpret_cast<HMODULE>(0x6000); });
    on<"GetProcAddress">([](HMODULE, LPCSTR) { return reinterpret_cast<FARPROC>(&routerFunction); });
    on<"FreeLibrary">([](HMODULE) { return TRUE; });
}

void ScriptedComputer::answerForServices() {
    on<"IsServiceEnabled">([this](const char* name, bool* exists) {
        const auto found = services.find(name);
        if (found != services.end() && exists != nullptr)
            *exists = true;
        return found != services.end() && found->second.enabled;
    });
    on<"EnableService">([this](const char* name, unsigned long) {
        const auto found = services.find(name);
        return found != services.end() && found->second.canBeEnabled;
    });
    on<"DisableService">([this](const char* name) {
        services.at(name).enabled = false;
        return true;
    });
    on<"StopService">([this](const char* name) {
        DWORD& refusals = services.at(name).refusesToStop;
        return refusals == 0 || refusals-- == 0;
    });
}

void ScriptedComputer::answerForDrivers() {
    // Phonebooks are files of the scripted remote access, all else is real.
    on<"DeleteFileA">([this, phoneBooks = current<"DeleteFileA">()](LPCSTR path) {
        return std::string(path).starts_with(folder) ? DeleteFileA(path) : phoneBooks(path);
    });
    on<"IsFileExist">([](const char* path) { return IsFileExist(path); });
    on<"GetFileVersion">([this](const std::string& path) {
        return path.ends_with(".tmp") ? carriedVersion : installedVersion;
    });
    on<"OpenSCManagerA">([this](LPCSTR, LPCSTR, DWORD) { return reinterpret_cast<SC_HANDLE>(++lastHandle); });
    on<"OpenServiceA">([this](SC_HANDLE, LPCSTR name, DWORD) -> SC_HANDLE {
        if (!services.contains(name)) {
            SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
            return nullptr;
        }
        const auto handle = reinterpret_cast<SC_HANDLE>(++lastHandle);
        opened[handle] = name;
        return handle;
    });
    on<"CreateServiceA">([this](SC_HANDLE, LPCSTR name, const auto&...) -> SC_HANDLE {
        if (!services.try_emplace(name).second) {
            SetLastError(ERROR_SERVICE_EXISTS);
            return nullptr;
        }
        return reinterpret_cast<SC_HANDLE>(++lastHandle);
    });
    on<"ControlService">([this](SC_HANDLE, DWORD, LPSERVICE_STATUS status) {
        status->dwCurrentState = SERVICE_STOP_PENDING;
        SetLastError(stopError);
        return stopError == 0 ? TRUE : FALSE;
    });
    on<"QueryServiceStatus">([this](SC_HANDLE, LPSERVICE_STATUS status) {
        status->dwCurrentState = states.front();
        if (states.size() > 1)
            states.erase(states.begin());
        return TRUE;
    });
    on<"DeleteService">([this](SC_HANDLE service) {
        services.erase(opened.at(service));
        return TRUE;
    });
    on<"CloseServiceHandle">([](SC_HANDLE) { return TRUE; });
}

void ScriptedComputer::answerForPort() {
    on<"socket">([this](int, int, int) { return SOCKET{++lastHandle}; });
    on<"setsockopt">([](const auto&...) { return 0; });
    on<"bind">([this](const auto&...) {
        if (portTakenFor == 0)
            return 0;
        --portTakenFor;
        SetLastError(WSAEADDRINUSE);
        return SOCKET_ERROR;
    });
    on<"closesocket">([](SOCKET) { return 0; });
    on<"GetPortOccupyProcessW">([this](unsigned short, std::wstring& name) {
        name = portHolderName;
        return static_cast<unsigned long>(portHolder);
    });
}
