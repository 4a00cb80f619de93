// A Windows service that does nothing, so that a Wine prefix has the services of remote access.
//
//   standin-service --install   installs those that are missing: TapiSrv and RasMan, to be started on demand, and
//                               RemoteAccess, disabled as on a computer that was never set up as a server
//   standin-service NAME        what the service control manager runs
#include <windows.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

struct ServiceCloser {
    using pointer = SC_HANDLE;
    void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<SC_HANDLE, ServiceCloser>;

std::string serviceName;
SERVICE_STATUS_HANDLE statusHandle;
HANDLE stopped;

void report(DWORD state) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
    SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI control(DWORD code, DWORD, void*, void*) {
    if (code == SERVICE_CONTROL_INTERROGATE)
        return NO_ERROR;
    if (code != SERVICE_CONTROL_STOP)
        return ERROR_CALL_NOT_IMPLEMENTED;
    report(SERVICE_STOP_PENDING);
    SetEvent(stopped);
    return NO_ERROR;
}

void WINAPI serviceMain(DWORD, char**) {
    statusHandle = RegisterServiceCtrlHandlerExA(serviceName.c_str(), control, nullptr);
    if (!statusHandle)
        return;
    report(SERVICE_RUNNING);
    WaitForSingleObject(stopped, INFINITE);
    report(SERVICE_STOPPED);
}

bool install(SC_HANDLE manager, const char* name, DWORD startType) {
    char program[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, program, sizeof program - 1);
    const std::string command = "\"" + std::string(program) + "\" " + name;
    const ServiceHandle service(CreateServiceA(manager, name, name, SERVICE_ALL_ACCESS,
                                               SERVICE_WIN32_OWN_PROCESS, startType, SERVICE_ERROR_NORMAL,
                                               command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (service || GetLastError() == ERROR_SERVICE_EXISTS)
        return true;
    std::fprintf(stderr, "standin-service: cannot install %s, error %lu\n", name, GetLastError());
    return false;
}

int installAll() {
    const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (!manager) {
        std::fprintf(stderr, "standin-service: no service control manager, error %lu\n", GetLastError());
        return 1;
    }
    const bool areInstalled = install(manager.get(), "TapiSrv", SERVICE_DEMAND_START) &&
                              install(manager.get(), "RasMan", SERVICE_DEMAND_START) &&
                              install(manager.get(), "RemoteAccess", SERVICE_DISABLED);
    return areInstalled ? 0 : 1;
}

int run(const char* name) {
    serviceName = name;
    stopped = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SERVICE_TABLE_ENTRYA table[] = {{serviceName.data(), serviceMain}, {nullptr, nullptr}};
    return stopped && StartServiceCtrlDispatcherA(table) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: standin-service --install | NAME\n");
        return 2;
    }
    return std::string(argv[1]) == "--install" ? installAll() : run(argv[1]);
}
