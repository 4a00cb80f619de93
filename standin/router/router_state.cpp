#include "router_state.h"

#include <shlobj.h>

#include <string>

namespace standin {
namespace {

constexpr DWORD defaultCeiling = 1000;

std::string stateFolder() {
    char folder[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableA("STANDIN_ROUTER_FOLDER", folder, sizeof folder);
    if (length > 0 && length < sizeof folder)
        return folder;
    if (SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder) != S_OK)
        return {};
    return std::string(folder) + "\\StandinRouter";
}

std::string stateFile() {
    const std::string folder = stateFolder();
    CreateDirectoryA(folder.c_str(), nullptr);
    return folder + "\\router.ini";
}

DWORD readNumber(const char* section, const char* key, DWORD unset) {
    return GetPrivateProfileIntA(section, key, static_cast<INT>(unset), stateFile().c_str());
}

DWORD writeNumber(const char* section, const char* key, DWORD number) {
    const std::string text = std::to_string(number);
    return WritePrivateProfileStringA(section, key, text.c_str(), stateFile().c_str()) ? ERROR_SUCCESS
                                                                                       : GetLastError();
}

const char* sectionOf(Side side) {
    return side == Side::running ? "running" : "stored";
}

} // namespace

bool routerRuns() {
    return readNumber("router", "Running", 0) != 0;
}

DWORD portCeiling() {
    return readNumber("router", "Ceiling", defaultCeiling);
}

MPR_SERVER_1 readPorts(Side side) {
    const char* const section = sectionOf(side);
    return {readNumber(section, "PptpPorts", 0), readNumber(section, "PptpFlags", 0),
            readNumber(section, "L2tpPorts", 0), readNumber(section, "L2tpFlags", 0)};
}

DWORD writePorts(Side side, const MPR_SERVER_1& ports) {
    const struct {
        const char* key;
        DWORD number;
    } values[] = {{"PptpPorts", ports.dwNumPptpPorts},
                  {"PptpFlags", ports.dwPptpPortFlags},
                  {"L2tpPorts", ports.dwNumL2tpPorts},
                  {"L2tpFlags", ports.dwL2tpPortFlags}};
    for (const auto& value : values)
        if (const DWORD error = writeNumber(sectionOf(side), value.key, value.number); error != ERROR_SUCCESS)
            return error;
    return ERROR_SUCCESS;
}

} // namespace standin
