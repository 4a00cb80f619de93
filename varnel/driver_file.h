#pragma once

#include "Varnel.h"

// A driver's installed file and the staging copy beside it, from which it is replaced in one step.
class VARNEL::DriverFile {
  public:
    // `installed` is a full path, or empty when it did not fit its buffer.
    explicit DriverFile(const char* installed)
        : installedPath(installed), stagingPath(installedPath + ".tmp") {}

    explicit operator bool() const { return !installedPath.empty(); }
    const std::string& installed() const { return installedPath; }
    const std::string& stagingCopy() const { return stagingPath; }

    // Writes the image that the library carries into the staging copy; whether its version is newer than that
    // of the installed file.
    bool stage(const char* image) const;

    // Moves the staging copy over the installed file; 0 or the system's code.
    DWORD replaceInstalled() const;

    void deleteStagingCopy() const { DeleteFileA(stagingPath.c_str()); }

  private:
    const std::string installedPath;
    const std::string stagingPath;
};
