// Kernel drivers: their images, carried as resources of the library, and their services.
#include "Varnel.h"
#include "log_line.h"
#include "module_instance.h"
#include "outside/Helper.h"
#include "owners.h"

namespace {

constexpr char imageType[] = "BINRES";
constexpr DWORD stopPause = 100;      // ms between two looks at a stopping driver
constexpr DWORD stopTimeout = 30'000; // ms

// `error` is read by the caller before it builds the name of the call.
void logFailure(const std::string& call, DWORD error) {
    LOG_LINE(2, call + " fail, error " + int2stru(error));
}

Owner<ServiceHandle> openServiceManager(DWORD access) {
    Owner<ServiceHandle> manager(OpenSCManagerA(nullptr, nullptr, access));
    if (!manager) {
        const DWORD error = GetLastError();
        logFailure("OpenSCManager", error);
    }
    return manager;
}

bool writeFile(const std::string& filePath, const void* bytes, DWORD size) {
    DeleteFileA(filePath.c_str());
    const Owner<FileHandle> file(CreateFileA(filePath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        const DWORD error = GetLastError();
        logFailure("CreateFile(" + filePath + ")", error);
        return false;
    }
    DWORD written = 0;
    WriteFile(file.get(), bytes, size, &written, nullptr);
    return true;
}

// The last known state of a driver that was told to stop.
DWORD stateOnceStopped(SC_HANDLE service, SERVICE_STATUS status) {
    const DWORD start = GetTickCount();
    do {
        Sleep(stopPause);
    } while (QueryServiceStatus(service, &status) != FALSE && status.dwCurrentState == SERVICE_STOP_PENDING &&
             GetTickCount() - start <= stopTimeout);
    return status.dwCurrentState;
}

// Whether the driver may be deleted: it has stopped, or refused to be told so (it may not be running).
bool stopDriver(SC_HANDLE service, const std::string& serviceName) {
    SERVICE_STATUS status = {};
    if (ControlService(service, SERVICE_CONTROL_STOP, &status) == FALSE) {
        const DWORD error = GetLastError();
        logFailure("ControlService(" + serviceName + ")", error);
        return true;
    }
    const DWORD state = stateOnceStopped(service, status);
    if (state != SERVICE_STOPPED)
        LOG_LINE(2, serviceName + " Status.dwCurrentState " + int2stru(state));
    return state == SERVICE_STOPPED;
}

} // namespace

bool VARNEL::copyDriverFromResource(const std::string& resourceName, const std::string& filePath) {
    HRSRC const resource = FindResourceA(moduleInstance, resourceName.c_str(), imageType);
    if (resource == nullptr)
        return false;
    HGLOBAL const image = LoadResource(moduleInstance, resource);
    if (image == nullptr) {
        const DWORD error = GetLastError();
        logFailure("LoadResource(" + resourceName + ")", error);
        return false;
    }
    const DWORD size = SizeofResource(moduleInstance, resource);
    return writeFile(filePath, LockResource(image), size);
}

bool VARNEL::installDriver(const char* serviceName, const char* driverPath, DWORD startType) {
    // A boot driver is loaded before there are drive letters, so its path is relative to the Windows folder.
    const std::string imagePath =
        startType == SERVICE_BOOT_START ? "system32\\drivers\\" + PathName2Name(driverPath) : driverPath;
    const Owner<ServiceHandle> manager(openServiceManager(SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
    if (!manager)
        return false;
    const Owner<ServiceHandle> service(
        CreateServiceA(manager.get(), serviceName, serviceName, 0, SERVICE_KERNEL_DRIVER, startType,
                       SERVICE_ERROR_NORMAL, imagePath.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service) {
        const DWORD error = GetLastError();
        logFailure("CreateService(" + std::string(serviceName) + ")", error);
    }
    return static_cast<bool>(service);
}

bool VARNEL::removeDriver(const char* serviceName) {
    const Owner<ServiceHandle> manager(openServiceManager(SC_MANAGER_CONNECT));
    if (!manager)
        return false;
    const Owner<ServiceHandle> service(
        OpenServiceA(manager.get(), serviceName, DELETE | SERVICE_STOP | SERVICE_QUERY_STATUS));
    if (!service) {
        const DWORD error = GetLastError();
        if (error == ERROR_SERVICE_DOES_NOT_EXIST)
            return true;
        logFailure("OpenService(" + std::string(serviceName) + ")", error);
        return false;
    }
    return stopDriver(service.get(), serviceName) && DeleteService(service.get()) != FALSE;
}
