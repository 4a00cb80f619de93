// The port-redirect driver: service "Kestrin", started by the kernel at boot, 32-bit Windows only.
#include "Varnel.h"
#include "call_trace.h"
#include "driver_file.h"
#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "registry.h"

#include <cstring>

namespace {

constexpr char kestrinService[] = "Kestrin";
constexpr char kestrinImage[] = "#106";
constexpr char serviceKey[] = "SYSTEM\\CurrentControlSet\\Services\\Kestrin";
constexpr char wantedImagePath[] = "system32\\drivers\\kestrin.sys";

constexpr unsigned long enableAsItsKindDoes = 0;
constexpr unsigned long enableForBoot = 2;

bool logged(LSTATUS error, const char* failureText) {
    if (error != ERROR_SUCCESS)
        LOG_LINE(2, std::string(failureText) + int2stru(static_cast<DWORD>(error)));
    return error != ERROR_SUCCESS;
}

// Whether the image path is as wanted now.
bool correctImagePath(HKEY key) {
    char path[MAX_PATH];
    if (logged(readValue(key, "ImagePath", path), "Get kestrin imagepath fail, error "))
        return false;
    if (_stricmp(textOfField(path).c_str(), wantedImagePath) == 0)
        return true;
    if (logged(RegSetValueExA(key, "ImagePath", 0, REG_EXPAND_SZ,
                              reinterpret_cast<const BYTE*>(wantedImagePath), sizeof wantedImagePath),
               "set kestrin imagepath fail, error "))
        return false;
    LOG_LINE(3, "set kestrin imagepath success");
    return true;
}

void correctStartType(HKEY key) {
    DWORD start = 0;
    DWORD size = sizeof start;
    if (logged(RegQueryValueExA(key, "Start", nullptr, nullptr, reinterpret_cast<BYTE*>(&start), &size),
               "Get kestrin start fail, error "))
        return;
    if (start == SERVICE_BOOT_START)
        return;
    start = SERVICE_BOOT_START;
    if (!logged(
            RegSetValueExA(key, "Start", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&start), sizeof start),
            "set kestrin start fail, error "))
        LOG_LINE(3, "set kestrin start success");
}

void replaceAndLog(const DRIVER_FILE& file) {
    const DWORD error = file.replaceInstalled();
    if (error != ERROR_SUCCESS)
        LOG_LINE(2, "MoveFileEx fail " + file.stagingCopy() + "->" + file.installed() + " fail, error " +
                        int2stru(error));
}

} // namespace

// The two ways to bring the driver up.
class VARNEL::KESTRIN {
  public:
    explicit KESTRIN(const DRIVER_FILE& file_) : file(file_) {}

    bool update() const;
    bool enable(bool exists) const;

  private:
    void install() const {
        LOG_LINE(1, "Try to install Kestrin " + file.installed());
        installDriver(kestrinService, file.installed().c_str(), SERVICE_BOOT_START);
    }

    const DRIVER_FILE& file;
};

// The carried driver is newer: the file and the service are replaced.
bool VARNEL::KESTRIN::update() const {
    LOG_LINE(1, "Need to update kestrin driver");
    file.replaceInstalled();
    bool exists = false;
    IsServiceEnabled(kestrinService, &exists);
    if (exists)
        removeDriver(kestrinService);
    install();
    return EnableService(kestrinService, enableAsItsKindDoes);
}

// The driver is not newer, and its service is disabled or not there.
bool VARNEL::KESTRIN::enable(bool exists) const {
    if (!exists)
        install();
    LOG_LINE(1, "Try to enable Kestrin");
    const bool enabled = EnableService(kestrinService, exists ? enableForBoot : enableAsItsKindDoes);
    if (enabled)
        replaceAndLog(file);
    else
        LOG_LINE(2, "Enable Kestrin fail");
    file.deleteStagingCopy();
    return enabled;
}

void VARNEL::chkKestrinStartTypeToBoot() {
    OWNER<REGISTRY_KEY> key;
    if (openMachineKey(serviceKey, key) == ERROR_SUCCESS && correctImagePath(key.get()))
        correctStartType(key.get());
}

bool VARNEL::tryinstallDriverAndLaunchKestrin() {
    const CALL_TRACE trace("VARNEL::tryinstallDriverAndLaunchKestrin", "", __LINE__, 1);
    const DRIVER_FILE file(pathNameKestrin);
    if (!file)
        return false;
    chkKestrinStartTypeToBoot();
    const unsigned long long installedVersion = GetFileVersion(file.installed());
    copyDriverFromResource(kestrinImage, file.stagingCopy());
    if (GetFileVersion(file.stagingCopy()) > installedVersion)
        return KESTRIN(file).update();
    LOG_LINE(3, "doesnot need to update kestrin driver");
    bool exists = false;
    if (!IsServiceEnabled(kestrinService, &exists))
        return KESTRIN(file).enable(exists);
    LOG_LINE(3, "Kestrin has enabled");
    replaceAndLog(file);
    return true;
}

void VARNEL::uninstallDriverAndDeleteKestrin() {
    removeDriver(kestrinService);
    if (IsFileExist(pathNameKestrin))
        DeleteFileA(pathNameKestrin);
}

bool VARNEL::setKestrinChgPort(bool) {
    return false;
}
