#include "driver_file.h"

#include "outside/Helper.h"

bool VARNEL::DriverFile::stage(const char* image) const {
    const unsigned long long installedVersion = GetFileVersion(installedPath);
    copyDriverFromResource(image, stagingPath);
    return GetFileVersion(stagingPath) > installedVersion;
}

DWORD VARNEL::DriverFile::replaceInstalled() const {
    const BOOL moved = MoveFileExA(stagingPath.c_str(), installedPath.c_str(),
                                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
    return moved != FALSE ? ERROR_SUCCESS : GetLastError();
}
