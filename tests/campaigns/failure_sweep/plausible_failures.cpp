#include "plausible_failures.h"

#include <winsock2.h>

#include <algorithm>
#include <iterator>

#include <raserror.h>

namespace {

constexpr DWORD noMemory = ERROR_NOT_ENOUGH_MEMORY;
constexpr DWORD denied = ERROR_ACCESS_DENIED;
constexpr DWORD notFound = ERROR_FILE_NOT_FOUND;
constexpr DWORD rpcGone = 1722; // RPC_S_SERVER_UNAVAILABLE: the service is not running

const PlausibleFailure failures[] = {
    {"RasDialA",
     {noMemory, ERROR_INVALID_HANDLE, ERROR_PORT_NOT_AVAILABLE, ERROR_FROM_DEVICE,
      ERROR_DIAL_ALREADY_IN_PROGRESS, ERROR_CANNOT_OPEN_PHONEBOOK},
     {"RasDial fail, error {}"}},
    {"RasHangUpA",
     {noMemory, ERROR_INVALID_HANDLE, ERROR_NO_CONNECTION},
     {"RasHangUp fail, error {}"},
     {ERROR_NO_CONNECTION}},
    {"RasGetConnectStatusA", {noMemory, ERROR_INVALID_HANDLE, ERROR_NO_CONNECTION}},
    {"RasGetProjectionInfoA",
     {ERROR_INVALID_HANDLE, ERROR_PROTOCOL_NOT_CONFIGURED},
     {"can't get ppp ip", "Can't get ppp ip"}},
    {"RasEnumConnectionsA",
     {noMemory, ERROR_BUFFER_TOO_SMALL, ERROR_INVALID_SIZE, rpcGone},
     {"RasEnumConnections fail, error {}"}},
    {"RasEnumEntriesA",
     {noMemory, ERROR_BUFFER_TOO_SMALL, ERROR_CANNOT_OPEN_PHONEBOOK, ERROR_INVALID_SIZE},
     {"RasEnumEntries failed: error {}"},
     {ERROR_BUFFER_TOO_SMALL}},
    {"RasSetEntryPropertiesA",
     {denied, ERROR_BUFFER_INVALID, ERROR_CANNOT_OPEN_PHONEBOOK},
     {"RasSetEntryProperties fail *error {}"}},
    {"RasSetEntryDialParamsA",
     {denied, ERROR_BUFFER_INVALID, ERROR_CANNOT_FIND_PHONEBOOK_ENTRY},
     {"RasSetEntryDialParams fail *error {}"}},
    {"RasGetEntryDialParamsA", {denied, ERROR_CANNOT_FIND_PHONEBOOK_ENTRY}},
    {"RasRenameEntryA",
     {denied, ERROR_CANNOT_FIND_PHONEBOOK_ENTRY, ERROR_ALREADY_EXISTS},
     {"RasRenameEntry fail, error {}"},
     {ERROR_ALREADY_EXISTS}},
    {"RasDeleteEntryA", {denied, ERROR_CANNOT_FIND_PHONEBOOK_ENTRY}, {"RasDeleteEntry fail *error {}"}},
    {"RasGetErrorStringA", {ERROR_INVALID_PARAMETER, ERROR_INSUFFICIENT_BUFFER}},

    {"HeapAlloc", {noMemory}, {"RasEnumConnections fail, error {}", "RasEnumEntries failed: error {}"}},
    {"CreateEventA", {noMemory, ERROR_NO_SYSTEM_RESOURCES}},
    {"WaitForSingleObject",
     {ERROR_INVALID_HANDLE, denied},
     {"dialUp3 WaitForSingleObject fail, error {}", "Wait RasPbFile return 4294967295"}},
    {"SetEvent", {ERROR_INVALID_HANDLE}},
    {"OpenMutexA", {notFound, denied}, {"Can't open mutex RasPbFile, error:{}"}},
    {"SHGetFolderPathA", {denied, notFound}, {"SHGetFolderPath(CSIDL_COMMON_APPDATA) fail, error {}"}},
    {"GetSystemDirectoryA", {noMemory}},
    {"LoadLibraryA", {noMemory, ERROR_MOD_NOT_FOUND}, {"LoadLibrary * failed, error {}"}},
    {"GetProcAddress", {ERROR_PROC_NOT_FOUND}},

    {"FindFirstFileA", {notFound, ERROR_PATH_NOT_FOUND, denied}},
    {"FindNextFileA", {noMemory, ERROR_NO_MORE_FILES}},
    {"DeleteFileA", {notFound, denied, ERROR_SHARING_VIOLATION}},
    {"CreateFileA",
     {denied, ERROR_SHARING_VIOLATION, ERROR_PATH_NOT_FOUND},
     {"CreateFile(*) fail, error {}"}},
    {"WriteFile", {ERROR_DISK_FULL}},
    {"MoveFileExA", {denied, notFound}},
    {"FindResourceA", {ERROR_RESOURCE_NAME_NOT_FOUND}},
    {"LoadResource", {noMemory}, {"LoadResource(*) fail, error {}"}},

    {"RegOpenKeyExA", {notFound, denied}, {"RegOpenKeyEx * fail*, error {}"}},
    {"RegQueryValueExA", {notFound, ERROR_MORE_DATA}},
    {"RegSetValueExA", {denied, noMemory}},
    {"RegQueryInfoKeyA", {denied}},
    {"RegEnumKeyExA", {ERROR_NO_MORE_ITEMS, ERROR_MORE_DATA}},
    {"OpenSCManagerA", {denied, rpcGone}, {"OpenSCManager fail, error {}"}},
    {"OpenServiceA",
     {denied, ERROR_SERVICE_DOES_NOT_EXIST},
     {"OpenService(*) fail, error {}"},
     {ERROR_SERVICE_DOES_NOT_EXIST}},
    {"CreateServiceA",
     {denied, ERROR_SERVICE_EXISTS, ERROR_SERVICE_MARKED_FOR_DELETE},
     {"CreateService(*) fail, error {}"}},
    {"ControlService", {ERROR_SERVICE_NOT_ACTIVE, denied}, {"ControlService(*) fail, error {}"}},
    {"QueryServiceStatus", {ERROR_INVALID_HANDLE}},
    {"DeleteService", {denied, ERROR_SERVICE_MARKED_FOR_DELETE}},
    {"StopService", {ERROR_SERVICE_CANNOT_ACCEPT_CTRL}, {"Can't stop service RemoteAccess"}},

    {"socket", {WSAENOBUFS, WSANOTINITIALISED}},
    {"setsockopt", {WSAENOTSOCK}},
    {"bind", {WSAEADDRINUSE, WSAEACCES}},
    {"CoInitialize", {static_cast<DWORD>(E_OUTOFMEMORY), static_cast<DWORD>(RPC_E_CHANGED_MODE)}},
    {"CoCreateInstance",
     {static_cast<DWORD>(E_OUTOFMEMORY), static_cast<DWORD>(REGDB_E_CLASSNOTREG),
      static_cast<DWORD>(E_ACCESSDENIED)},
     {"CoCreateInstance fail"}},
    {"INetworkListManager::GetNetworkConnections", {noMemory}, {"GetNetworkConnections fail"}},
    {"IEnumNetworkConnections::Next", {noMemory}, {"GetNetworkConnections fail"}},
    {"INetworkConnection::GetNetwork", {noMemory}, {"GetNetwork fail"}},
    {"INetwork::SetCategory", {denied}, {"SetCategory fail "}},
    {"MprAdminServerConnect", {denied, rpcGone}, {"MprAdminServerConnect failed, error "}},
    {"MprAdminServerSetInfo", {denied, ERROR_INVALID_PARAMETER}, {"MprAdminServerSetInfo failed, error "}},
    {"MprConfigServerConnect", {denied, rpcGone}, {"MprConfigServerConnect failed, error "}},
    {"MprConfigServerSetInfo", {denied, ERROR_INVALID_PARAMETER}, {"MprConfigServerSetInfo failed, error "}},
};

} // namespace

PlausibleFailure plausibleFailure(const std::string& function) {
    const auto found =
        std::find_if(std::begin(failures), std::end(failures),
                     [&function](const auto& failure) { return failure.function == function; });
    return found != std::end(failures) ? *found : PlausibleFailure{function, {noMemory}};
}

bool tells(const std::string& line, std::string_view pattern, DWORD code) {
    std::string wanted(pattern);
    if (const auto place = wanted.find("{}"); place != std::string::npos)
        wanted.replace(place, 2, std::to_string(code));
    const auto star = wanted.find('*');
    const auto head = line.find(wanted.substr(0, star));
    if (head == std::string::npos || star == std::string::npos)
        return head != std::string::npos;
    return tells(line.substr(head + star), wanted.substr(star + 1), code);
}
