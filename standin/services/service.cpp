// standin-service.exe: a Windows service that does nothing, so that a Wine prefix has the services of remote
// access.
//
//   standin-service.exe --install   installs TapiSrv and RasMan, to be started on demand, and RemoteAccess,
//                                   disabled as on a computer that was never set up as a server
//   standin-service.exe NAME        what the service control manager runs
#include <windows.h>

#include <cstdio>
#include <string>

namespace {

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
    if (statusHandle == nullptr)
        return;
    report(SERVICE_RUNNING);
    WaitForSingleObject(stopped, INFINITE);
    report(SERVICE_STOPPED);
}

bool install(SC_HANDLE manager, const char* name, DWORD startType) {
    char program[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, program, sizeof program - 1);
    const std::string command = "\"" + std::string(program) + "\" " + name;
    SC_HANDLE const service =
        CreateServiceA(manager, name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, startType,
                       SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    const DWORD error = service != nullptr ? ERROR_SUCCESS : GetLastError();
    if (service != nullptr)
        CloseServiceHandle(service);
    if (error != ERROR_SUCCESS && error != ERROR_SERVICE_EXISTS)
        std::fprintf(stderr, "standin-service: cannot install %s, error %lu\n", name, error);
    return error == ERROR_SUCCESS || error == ERROR_SERVICE_EXISTS;
}

int installAll() {
    SC_HANDLE const manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE);
    if (manager == nullptr) {
        std::fprintf(stderr, "standin-service: no service control manager, error %lu\n", GetLastError());
        return 1;
    }
    const bool installed = install(manager, "TapiSrv", SERVICE_DEMAND_START) &&
                           install(manager, "RasMan", SERVICE_DEMAND_START) &&
                           install(manager, "RemoteAccess", SERVICE_DISABLED);
    CloseServiceHandle(manager);
    return installed ? 0 : 1;
}

int run(const char* name) {
    serviceName = name;
    stopped = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SERVICE_TABLE_ENTRYA table[] = {{serviceName.data(), serviceMain}, {nullptr, nullptr}};
    return stopped != nullptr && StartServiceCtrlDispatcherA(table) != FALSE ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: standin-service --install | NAME\n");
        return 2;
    }
    return std::string(argv[1]) == "--install" ? installAll() : run(argv[1]);
}
