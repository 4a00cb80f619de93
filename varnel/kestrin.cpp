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

// Whether the registry gave an error, which is logged then.
bool failed(LSTATUS error, const char* text) {
    if (error != ERROR_SUCCESS)
        LOG_LINE(2, std::string(text) + int2stru(static_cast<DWORD>(error)));
    return error != ERROR_SUCCESS;
}

// Whether the image path is as wanted now.
bool correctImagePath(HKEY key) {
    char path[MAX_PATH];
    if (failed(readValue(key, "ImagePath", path), "Get kestrin imagepath fail, error "))
        return false;
    if (_stricmp(textOfField(path).c_str(), wantedImagePath) == 0)
        return true;
    if (failed(RegSetValueExA(key, "ImagePath", 0, REG_EXPAND_SZ,
                              reinterpret_cast<const BYTE*>(wantedImagePath), sizeof wantedImagePath),
               "set kestrin imagepath fail, error "))
        return false;
    LOG_LINE(3, "set kestrin imagepath success");
    return true;
}

void correctStartType(HKEY key) {
    DWORD start = 0;
    DWORD size = sizeof start;
    if (failed(RegQueryValueExA(key, "Start", nullptr, nullptr, reinterpret_cast<BYTE*>(&start), &size),
               "Get kestrin start fail, error "))
        return;
    if (start == SERVICE_BOOT_START)
        return;
    start = SERVICE_BOOT_START;
    if (!failed(
            RegSetValueExA(key, "Start", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&start), sizeof start),
            "set kestrin start fail, error "))
        LOG_LINE(3, "set kestrin start success");
}

} // namespace

// The ways to bring the driver up.
class VARNEL::Kestrin {
  public:
    bool start() const;

  private:
    bool update() const;
    bool enable(bool exists) const;
    void install() const {
        LOG_LINE(1, "Try to install Kestrin " + file.installed());
        installDriver(kestrinService, file.installed().c_str(), SERVICE_BOOT_START);
    }
    void replaceFile() const {
        const DWORD error = file.replaceInstalled();
        if (error != ERROR_SUCCESS)
            LOG_LINE(2, "MoveFileEx fail " + file.stagingCopy() + "->" + file.installed() + " fail, error " +
                            int2stru(error));
    }

    const DriverFile file{pathNameKestrin};
};

bool VARNEL::Kestrin::start() const {
    if (!file)
        return false;
    chkKestrinStartTypeToBoot();
    if (file.stage(kestrinImage))
        return update();
    LOG_LINE(3, "doesnot need to update kestrin driver");
    bool exists = false;
    if (!IsServiceEnabled(kestrinService, &exists))
        return enable(exists);
    LOG_LINE(3, "Kestrin has enabled");
    replaceFile();
    return true;
}

// The carried driver is newer: the file and the service are replaced.
bool VARNEL::Kestrin::update() const {
    LOG_LINE(1, "Need to update kestrin driver");
    file.replaceInstalled();
    bool exists = false;
    IsServiceEnabled(kestrinService, &exists);
    if (exists)
        removeDriver(kestrinService);
    install();
    return EnableService(kestrinService, enableAsKindDoes);
}

// The driver is not newer, and its service is disabled or not there.
bool VARNEL::Kestrin::enable(bool exists) const {
    if (!exists)
        install();
    LOG_LINE(1, "Try to enable Kestrin");
    const bool enabled = EnableService(kestrinService, exists ? enableEarliest : enableAsKindDoes);
    if (enabled)
        replaceFile();
    else
        LOG_LINE(2, "Enable Kestrin fail");
    file.deleteStagingCopy();
    return enabled;
}

void VARNEL::chkKestrinStartTypeToBoot() {
    Owner<RegistryKey> key;
    if (openMachineKey(serviceKey, key) == ERROR_SUCCESS && correctImagePath(key.get()))
        correctStartType(key.get());
}

bool VARNEL::tryinstallDriverAndLaunchKestrin() {
    const CallTrace trace("VARNEL::tryinstallDriverAndLaunchKestrin", "", __LINE__, 1);
    return Kestrin().start();
}

void VARNEL::uninstallDriverAndDeleteKestrin() {
    removeDriver(kestrinService);
    if (IsFileExist(pathNameKestrin))
        DeleteFileA(pathNameKestrin);
}

bool VARNEL::setKestrinChgPort(bool) {
    return false;
}
