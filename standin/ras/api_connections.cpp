// The exported functions that dial, hang up and tell of connections: their arguments and records.
#include "standin/ras/connection_table.h"
#include "standin/ras/dialing.h"
#include "standin/ras/error_text.h"
#include "standin/ras/fixed_text.h"
#include "standin/ras/guarded.h"
#include "standin/ras/peers.h"
#include "standin/ras/phonebook.h"
#include "standin/ras/record_sizes.h"

#include <windows.h>
#include <ras.h>
#include <raserror.h>

using namespace standin;

namespace {

constexpr DWORD lastNotifierType = 2;
constexpr char vpnDeviceType[] = "vpn";

DWORD findConnection(HRASCONN handle, ConnectionRecord& record) {
    const auto table = ConnectionTable::current();
    const auto found = table ? table->find(handle) : std::nullopt;
    if (!found)
        return ERROR_INVALID_HANDLE;
    record = *found;
    return ERROR_SUCCESS;
}

// A handle given to RasDial means a paused connection to go on with; no connection here ever pauses.
DWORD resume(HRASCONN handle) {
    ConnectionRecord record;
    const DWORD error = findConnection(handle, record);
    return error == ERROR_SUCCESS ? ERROR_INVALID_PARAMETER : error;
}

RASCONNA connectionOf(const ConnectionRecord& record) {
    RASCONNA connection{};
    connection.hrasconn = handleOf(record);
    fillField(connection.szEntryName, fieldText(record.entryName));
    fillField(connection.szDeviceType, vpnDeviceType);
    fillField(connection.szDeviceName, fieldText(record.deviceName));
    fillField(connection.szPhonebook, fieldText(record.phonebook));
    connection.dwSubEntry = 1;
    connection.guidEntry = record.guid;
    return connection;
}

RASCONNSTATUSA statusOf(const ConnectionRecord& record) {
    RASCONNSTATUSA status{};
    status.rasconnstate = static_cast<RASCONNSTATE>(record.progress.state);
    status.dwError = record.error;
    fillField(status.szPhoneNumber, fieldText(record.number));
    if (record.progress.state >= RASCS_ConnectDevice) {
        fillField(status.szDeviceType, vpnDeviceType);
        fillField(status.szDeviceName, fieldText(record.deviceName));
    }
    return status;
}

DWORD listConnections(std::vector<ConnectionRecord>& records) {
    const auto peers = currentPeers();
    const auto table = ConnectionTable::current();
    if (!table || !peers->service.isRunning)
        return ERROR_RASMAN_CANNOT_INITIALIZE;
    records = table->list(peers->service.listsDialing);
    return ERROR_SUCCESS;
}

bool isOtherProjection(RASPROJECTION projection) {
    switch (projection) {
    case RASP_Amb:
    case RASP_PppNbf:
    case RASP_PppIpx:
    case RASP_PppCcp:
    case RASP_PppLcp:
    case RASP_Slip:
        return true;
    default:
        return false;
    }
}

DWORD projectionOf(HRASCONN handle, RASPROJECTION projection, RASPPPIPA& result) {
    if (projection != RASP_PppIp && !isOtherProjection(projection))
        return ERROR_INVALID_PARAMETER;
    ConnectionRecord record;
    if (const DWORD error = findConnection(handle, record); error != ERROR_SUCCESS)
        return error;
    if (!record.isProjected)
        return ERROR_PROJECTION_NOT_COMPLETE;
    if (projection != RASP_PppIp || fieldText(record.clientAddress).empty())
        return ERROR_PROTOCOL_NOT_CONFIGURED;
    fillField(result.szIpAddress, fieldText(record.clientAddress));
    fillField(result.szServerIpAddress, fieldText(record.serverAddress));
    return ERROR_SUCCESS;
}

} // namespace

extern "C" {

DWORD WINAPI RasDialA(LPRASDIALEXTENSIONS, LPCSTR phonebook, LPRASDIALPARAMSA params, DWORD notifierType,
                      LPVOID notifier, LPHRASCONN handle) {
    return guarded([&]() -> DWORD {
        if (!params || !handle || (notifier && notifierType > lastNotifierType))
            return ERROR_INVALID_PARAMETER;
        if (!isKnownSize(dialParamsSizes, params->dwSize))
            return ERROR_INVALID_SIZE;
        if (*handle)
            return resume(*handle);
        DialRequest request{phonebook,
                            fieldText(params->szEntryName),
                            fieldText(params->szPhoneNumber),
                            fieldText(params->szUserName),
                            fieldText(params->szPassword),
                            Notifier(notifierType, notifier, params->dwCallbackId)};
        const DWORD error = dial(request, *handle);
        wipe(request.password);
        return error;
    });
}

DWORD WINAPI RasHangUpA(HRASCONN handle) {
    return guarded([&] { return hangUp(handle); });
}

DWORD WINAPI RasGetConnectStatusA(HRASCONN handle, LPRASCONNSTATUSA status) {
    return guarded([&]() -> DWORD {
        if (!status)
            return ERROR_INVALID_PARAMETER;
        const DWORD size = status->dwSize;
        if (!isKnownSize(statusSizes, size))
            return ERROR_INVALID_SIZE;
        ConnectionRecord record;
        const DWORD error = findConnection(handle, record);
        if (error == ERROR_SUCCESS)
            handOut(status, statusOf(record), size, statusFront);
        return error;
    });
}

DWORD WINAPI RasEnumConnectionsA(LPRASCONNA connections, LPDWORD bytes, LPDWORD count) {
    return guarded([&]() -> DWORD {
        if (!bytes || !count)
            return ERROR_INVALID_PARAMETER;
        if (connections && !isKnownSize(connectionSizes, connections->dwSize))
            return ERROR_INVALID_SIZE;
        // A caller without a buffer has not said its generation: the largest record serves all.
        const DWORD size = connections ? connections->dwSize : connectionSizes.back();
        std::vector<ConnectionRecord> records;
        if (const DWORD error = listConnections(records); error != ERROR_SUCCESS)
            return error;
        *count = static_cast<DWORD>(records.size());
        const DWORD room = *bytes;
        *bytes = *count * size;
        if (*count > 0 && (!connections || room < *bytes))
            return ERROR_BUFFER_TOO_SMALL;
        for (std::size_t i = 0; i < records.size(); ++i)
            handOut(reinterpret_cast<char*>(connections) + i * size, connectionOf(records[i]), size,
                    connectionFront);
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI RasGetProjectionInfoA(HRASCONN handle, RASPROJECTION projection, LPVOID buffer, LPDWORD bytes) {
    return guarded([&]() -> DWORD {
        if (!bytes)
            return ERROR_INVALID_PARAMETER;
        RASPPPIPA result{};
        if (const DWORD error = projectionOf(handle, projection, result); error != ERROR_SUCCESS)
            return error;
        const bool hasSize = buffer && *bytes >= sizeof(DWORD);
        const DWORD size = hasSize ? static_cast<RASPPPIPA*>(buffer)->dwSize : projectionSizes.back();
        if (!isKnownSize(projectionSizes, size))
            return ERROR_INVALID_SIZE;
        const DWORD room = *bytes;
        *bytes = size;
        if (!buffer || room < size)
            return ERROR_BUFFER_TOO_SMALL;
        handOut(buffer, result, size, sizeof result);
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI RasGetErrorStringA(UINT code, LPSTR buffer, DWORD characters) {
    return guarded([&]() -> DWORD {
        const std::string text = errorText(code);
        if (!buffer || text.empty())
            return ERROR_INVALID_PARAMETER;
        if (characters <= text.size())
            return ERROR_INSUFFICIENT_BUFFER;
        std::memcpy(buffer, text.c_str(), text.size() + 1);
        return ERROR_SUCCESS;
    });
}

} // extern "C"
