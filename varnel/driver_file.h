#pragma once

#include "owners.h"

#include <string>

// A driver's installed file and the staging copy beside it, from which it is replaced in one step.
class DRIVER_FILE {
  public:
    // `installed` is a full path, or empty when it did not fit its buffer.
    explicit DRIVER_FILE(const char* installed)
        : installedPath(installed), stagingPath(installedPath + ".tmp") {}

    explicit operator bool() const { return !installedPath.empty(); }
    const std::string& installed() const { return installedPath; }
    const std::string& stagingCopy() const { return stagingPath; }

    // Moves the staging copy over the installed file; 0 or the system's code.
    DWORD replaceInstalled() const {
        const BOOL moved = MoveFileExA(stagingPath.c_str(), installedPath.c_str(),
                                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
        return moved != FALSE ? ERROR_SUCCESS : GetLastError();
    }

    void deleteStagingCopy() const { DeleteFileA(stagingPath.c_str()); }

  private:
    const std::string installedPath;
    const std::string stagingPath;
};
