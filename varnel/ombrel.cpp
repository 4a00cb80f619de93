// The DNS-filter driver: service "Ombrel", started on demand, before Windows Vista only.
#include "Varnel.h"
#include "call_trace.h"
#include "driver_file.h"
#include "outside/Helper.h"
#include "outside/Helper2.h"

namespace {

constexpr char ombrelService[] = "Ombrel";
constexpr char image32[] = "#108";
constexpr char image64[] = "#109";

} // namespace

bool VARNEL::tryinstallDriverAndLaunchOmbrel() {
    const CallTrace trace("VARNEL::tryinstallDriverAndLaunchOmbrel", "", __LINE__, 1);
    const DriverFile file(pathNameOmbrel);
    if (!file)
        return false;
    if (file.stage(GetIs64Os() ? image64 : image32))
        file.replaceInstalled();
    else
        file.deleteStagingCopy();

    bool exists = false;
    if (IsServiceEnabled(ombrelService, &exists))
        return true;
    if (!exists)
        installDriver(ombrelService, file.installed().c_str(), SERVICE_DEMAND_START);
    return EnableService(ombrelService, enableAsKindDoes);
}

void VARNEL::uninstallDriverAndDeleteSOmbrel() {
    if (IsFileExist(pathNameOmbrel))
        DeleteFileA(pathNameOmbrel);
}
