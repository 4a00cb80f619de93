#include "standin/ras/state_folder.h"

#include <windows.h>

#include <array>

#include <shlobj.h>

namespace standin {
namespace {

std::string environmentVariable(const char* name) {
    std::string value(MAX_PATH, '\0');
    const DWORD length = GetEnvironmentVariableA(name, value.data(), static_cast<DWORD>(value.size()));
    value.resize(length < value.size() ? length : 0);
    return value;
}

std::string systemFolder(int folder) {
    std::array<char, MAX_PATH> path{};
    if (SHGetFolderPathA(nullptr, folder | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT, path.data()) !=
        S_OK)
        return {};
    std::string result = path.data();
    if (!result.empty() && result.back() == '\\')
        result.pop_back();
    return result;
}

std::string phonebookBelow(const std::string& folder) {
    return folder.empty() ? folder : folder + "\\Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk";
}

const std::string& commonData() {
    static const std::string folder = systemFolder(CSIDL_COMMON_APPDATA);
    return folder;
}

} // namespace

std::string stateFolder() {
    std::string folder = environmentVariable("STANDIN_RAS_FOLDER");
    if (folder.empty())
        return commonData() + "\\StandinRas";
    folder = fullPath(folder);
    if (folder.back() == '\\')
        folder.pop_back();
    return folder;
}

std::string peersPath() {
    const std::string path = environmentVariable("STANDIN_RAS_PEERS");
    return path.empty() ? stateFolder() + "\\peers.ini" : path;
}

std::string allUsersPhonebook() {
    static const std::string path = phonebookBelow(commonData());
    return path;
}

std::string userPhonebook() {
    static const std::string path = phonebookBelow(systemFolder(CSIDL_APPDATA));
    return path;
}

std::string fullPath(const std::string& path) {
    std::array<char, MAX_PATH> full{};
    const DWORD length =
        GetFullPathNameA(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    return length > 0 && length < full.size() ? std::string(full.data(), length) : path;
}

bool createFolders(const std::string& folder) {
    const int result = SHCreateDirectoryExA(nullptr, folder.c_str(), nullptr);
    return result == ERROR_SUCCESS || result == ERROR_ALREADY_EXISTS || result == ERROR_FILE_EXISTS;
}

} // namespace standin
