#include "outside/Helper.h"
#include "outside/helper/ansi_path.h"

#include <windows.h>
#include <shlobj.h>

std::size_t lengthToLastSeparator(const std::string& path) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '\\')
            length = i + 1;
        else if (IsDBCSLeadByte(static_cast<BYTE>(path[i])))
            ++i;
    }
    return length;
}

bool IsFileExist(const char* path) {
    if (!path)
        return false;
    const DWORD attributes = GetFileAttributesA(path);
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::string PathName2Name(const std::string& path) {
    return path.substr(lengthToLastSeparator(path));
}

std::string GetWorkingPath() {
    std::string chosen(GetEnvironmentVariableA("TAVIK_WORKING_FOLDER", nullptr, 0), '\0');
    const DWORD length =
        GetEnvironmentVariableA("TAVIK_WORKING_FOLDER", chosen.data(), static_cast<DWORD>(chosen.size()));
    if (length > 0 && length < chosen.size())
        return chosen.substr(0, length);
    char common[MAX_PATH] = "";
    if (FAILED(SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common)))
        return {};
    return std::string(common) + "\\Tavik\\peers";
}
