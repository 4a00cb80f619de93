// Keeping connections up when the user logs off.
#include "Varnel.h"
#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "registry.h"

namespace {

constexpr char winLogonKey[] = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\WinLogon";
constexpr char keepConnectionsValue[] = "KeepRasConnections";

} // namespace

void VARNEL::addKeepRasConnections() {
    if (isWin6Plus)
        return;
    Owner<RegistryKey> key;
    LSTATUS error = openMachineKey(winLogonKey, key);
    if (error != ERROR_SUCCESS) {
        LOG_LINE(2,
                 "RegOpenKeyEx CurrentVersion\\WinLogon fail, error " + int2stru(static_cast<DWORD>(error)));
        return;
    }
    char value[10];
    if (readValue(key.get(), keepConnectionsValue, value) == ERROR_SUCCESS && textOfField(value) == "1")
        return;

    // The value has always been stored with the whole buffer as its data, and stays so.
    constexpr char wanted[sizeof value] = "1";
    error = RegSetValueExA(key.get(), keepConnectionsValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(wanted),
                           sizeof wanted);
    if (error == ERROR_SUCCESS)
        LOG_LINE(3, "set KeepRasConnections to 1 success");
    else
        LOG_LINE(2, "set KeepRasConnections to 1 fail, error " + int2stru(static_cast<DWORD>(error)));
}
