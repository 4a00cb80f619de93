#include "tests/end_to_end/computer_kit.h"

#include "outside/Helper2.h"
#include "tests/end_to_end/host_kit.h"

#include <catch2/catch.hpp>
#include <fmt/format.h>

#include <cstddef>
#include <fstream>

#include <shlobj.h>

#include <stdexcept>

namespace fs = std::filesystem;

size_t count(const std::string& text, const std::string& part) {
    size_t found = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size()))
        ++found;
    return found;
}

Service::Service(const char* serviceName)
    : name(serviceName), manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)),
      service(OpenServiceA(manager.get(), name, SERVICE_ALL_ACCESS)) {
    if (!service)
        throw std::runtime_error(fmt::format("the prefix has no service {}", name));
    alignas(QUERY_SERVICE_CONFIGA) char buffer[1024];
    DWORD needed = 0;
    auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
    if (!QueryServiceConfigA(service.get(), config, sizeof buffer, &needed))
        throw std::runtime_error("the service's settings cannot be read");
    startType = config->dwStartType;
    path = config->lpBinaryPathName;
}

Service::~Service() {
    if (!comesBack)
        return;
    if (!service)
        service.reset(CreateServiceA(manager.get(), name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                     startType, SERVICE_ERROR_NORMAL, path.c_str(), nullptr, nullptr, nullptr,
                                     nullptr, nullptr));
    else if (changed)
        change(startType, path.c_str());
}

void Service::change(DWORD newStartType, const char* newPath) {
    changed = true;
    ChangeServiceConfigA(service.get(), SERVICE_NO_CHANGE, newStartType, SERVICE_NO_CHANGE, newPath, nullptr,
                         nullptr, nullptr, nullptr, nullptr, nullptr);
}

void Service::remove() {
    REQUIRE(DeleteService(service.get()));
    service.reset();
}

void Service::uninstall() {
    stop();
    remove();
    comesBack = false;
}

void Service::start() {
    REQUIRE(StartServiceA(service.get(), 0, nullptr));
}

void Service::stop() {
    SERVICE_STATUS status = {};
    ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
}

DWORD Service::state() const {
    SERVICE_STATUS status = {};
    QueryServiceStatus(service.get(), &status);
    return status.dwCurrentState;
}

Listener::Listener() {
    WSADATA data = {};
    REQUIRE(WSAStartup(MAKEWORD(2, 2), &data) == 0);
    socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(1723);
    REQUIRE(bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
    REQUIRE(listen(socket, 1) == 0);
    // Wine finds the owner of a socket only after the process has tried to transfer something.
    u_long nonBlocking = 1;
    ioctlsocket(socket, static_cast<long>(FIONBIO), &nonBlocking);
    send(socket, "x", 1, 0);
}

Listener::~Listener() {
    closesocket(socket);
    WSACleanup();
}

bool canBind(unsigned short port) {
    WSADATA data = {};
    WSAStartup(MAKEWORD(2, 2), &data);
    const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    const bool bound = bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    closesocket(socket);
    WSACleanup();
    return bound;
}

fs::path systemFolder() {
    wchar_t folder[MAX_PATH] = L"";
    GetSystemDirectoryW(folder, MAX_PATH);
    return folder;
}

fs::path phonebookOfAllUsers() {
    wchar_t folder[MAX_PATH] = L"";
    SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
    return fs::path(folder) / "Microsoft/Network/Connections/Pbk/rasphone.pbk";
}

void writeDriver(const fs::path& file, char build) {
    HMODULE const library = LoadLibraryExA("Varnel.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    HRSRC const found = FindResourceA(library, "#109", "BINRES");
    REQUIRE(found != nullptr);
    std::string image(static_cast<const char*>(LockResource(LoadResource(library, found))),
                      SizeofResource(library, found));
    FreeLibrary(library);
    const size_t versionRecord = image.find("\xBD\x04\xEF\xFE");
    REQUIRE(versionRecord != image.npos);
    image[versionRecord + offsetof(VS_FIXEDFILEINFO, dwFileVersionLS)] = build;
    std::ofstream(file, std::ios::binary) << image;
}

void uninstallDriver(const char* service, const fs::path& file) {
    bool installed = false;
    IsServiceEnabled(service, &installed);
    if (installed)
        Service(service).uninstall();
    // Wine lets go of a stopped driver's image a moment later.
    for (const DWORD start = GetTickCount(); fs::exists(file) && GetTickCount() - start < 20'000; Sleep(10))
        DeleteFileW(file.c_str());
}
