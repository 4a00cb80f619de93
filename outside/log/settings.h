// Where the log goes and how much of it is kept, from the environment, else from Log.ini beside Log.dll.
#pragma once

#include <cstddef>
#include <string>

namespace logging {

// A path that stands for standard error instead of a file.
inline constexpr wchar_t standardError[] = L"-";

struct FileSettings {
    std::wstring path;
    std::size_t maxBytes; // of one file
    std::size_t files;    // kept, with the one being written
};

// The level at start. Safe while the library is being loaded.
long startLevel();

// Asks the shell for a folder, and so must not be called with a
// lock held that is needed while modules are loaded.
FileSettings fileSettings();

} // namespace logging
