// The port counts of the WAN miniports, each in its adapter's registry key.
#include "Varnel.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "registry.h"

#include <cstring>

namespace {

constexpr char pptpMiniport[] = "ms_pptpminiport";
constexpr char l2tpMiniport[] = "ms_l2tpminiport";
constexpr char maxWanEndpointsValue[] = "MaxWanEndpoints";
constexpr char wanEndpointsValue[] = "WanEndpoints";

bool openAdapterKey(const std::string& keyPath, Owner<RegistryKey>& key) {
    const LSTATUS error = openMachineKey(keyPath.c_str(), key);
    if (error != ERROR_SUCCESS)
        LOG_LINE(2, "RegOpenKeyEx " + keyPath + " failed, error " + int2stru(static_cast<DWORD>(error)));
    return error == ERROR_SUCCESS;
}

using ValueBuffer = char[80];

bool readDeviceId(HKEY key, ValueBuffer& deviceId) {
    return readValue(key, "MatchingDeviceId", deviceId) == ERROR_SUCCESS &&
           std::memchr(deviceId, '\0', sizeof deviceId) != nullptr;
}

bool readCount(HKEY key, const char* name, DWORD* count) {
    ValueBuffer value;
    if (readValue(key, name, value) != ERROR_SUCCESS)
        return false;
    std::memcpy(count, value, sizeof *count);
    return true;
}

bool writeCount(HKEY key, const char* name, DWORD count) {
    return RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&count), sizeof count) ==
           ERROR_SUCCESS;
}

} // namespace

bool VARNEL::setWanEndpointsToRegistry(const std::string& keyPath, DWORD maxWanEndpoints,
                                       DWORD wanEndpoints) {
    Owner<RegistryKey> key;
    ValueBuffer deviceId;
    return openAdapterKey(keyPath, key) && readDeviceId(key.get(), deviceId) &&
           _stricmp(deviceId, pptpMiniport) == 0 &&
           writeCount(key.get(), maxWanEndpointsValue, maxWanEndpoints) &&
           writeCount(key.get(), wanEndpointsValue, wanEndpoints);
}

bool VARNEL::getWanEndPointsFromRegistry(const std::string& keyPath, DWORD* maxWanEndpoints,
                                         DWORD* wanEndpoints, DWORD* l2tpWanEndpoints) {
    Owner<RegistryKey> key;
    ValueBuffer deviceId;
    if (!openAdapterKey(keyPath, key) || !readDeviceId(key.get(), deviceId))
        return false;
    if (_stricmp(deviceId, l2tpMiniport) == 0)
        return readCount(key.get(), wanEndpointsValue, l2tpWanEndpoints);
    if (_stricmp(deviceId, pptpMiniport) == 0)
        return readCount(key.get(), maxWanEndpointsValue, maxWanEndpoints) &&
               readCount(key.get(), wanEndpointsValue, wanEndpoints);
    return true;
}
