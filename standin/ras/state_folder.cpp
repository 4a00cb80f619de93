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
    SHGetFolderPathA(nullptr, folder | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT, path.data());
    return path.data();
}

std::string phonebookBelow(int folder) {
    return systemFolder(folder) + "\\Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk";
}

} // namespace

std::string stateFolder() {
    static const std::string usual = systemFolder(CSIDL_COMMON_APPDATA) + "\\StandinRas";
    std::string folder = environmentVariable("STANDIN_RAS_FOLDER");
    if (folder.empty())
        return usual;
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
    static const std::string path = phonebookBelow(CSIDL_COMMON_APPDATA);
    return path;
}

std::string userPhonebook() {
    static const std::string path = phonebookBelow(CSIDL_APPDATA);
    return path;
}

std::string fullPath(const std::string& path) {
    std::array<char, MAX_PATH> full{};
    const DWORD length =
        GetFullPathNameA(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    return length > 0 && length < full.size() ? std::string(full.data(), length) : path;
}

void createFolders(const std::string& folder) {
    SHCreateDirectoryExA(nullptr, folder.c_str(), nullptr);
}

} // namespace standin
