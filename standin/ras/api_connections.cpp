// The exported functions that dial, hang up and tell of connections: their arguments and records.
#include "standin/ras/connection_table.h"
#include "standin/ras/dialing.h"
#include "standin/ras/error_text.h"
#include "standin/ras/guarded.h"
#include "standin/ras/peers.h"
#include "standin/ras/records.h"

#include <windows.h>
#include <ras.h>
#include <raserror.h>

using namespace standin;

namespace {

constexpr DWORD onlyNotifierType = 2; // RasDialFunc2
constexpr char vpnDeviceType[] = "vpn";

DWORD findConnection(HRASCONN handle, ConnectionRecord& record) {
    const auto table = ConnectionTable::current();
    const auto found = table ? table->find(handle) : std::nullopt;
    if (!found)
        return ERROR_INVALID_HANDLE;
    record = *found;
    return ERROR_SUCCESS;
}

DWORD listConnections(std::vector<RASCONNA>& connections) {
    const Peers peers = currentPeers();
    const auto table = ConnectionTable::current();
    if (!table || !peers.isServiceUp())
        return ERROR_RASMAN_CANNOT_INITIALIZE;
    for (const ConnectionRecord& record : table->list(peers.service.listsDialing)) {
        RASCONNA& connection = connections.emplace_back();
        connection.hrasconn = handleOf(record);
        fillField(connection.szEntryName, fieldText(record.entryName));
        fillField(connection.szDeviceType, vpnDeviceType);
        fillField(connection.szDeviceName, pptpDevice);
        fillField(connection.szPhonebook, fieldText(record.phonebook));
        connection.dwSubEntry = 1;
        connection.guidEntry = record.guid;
    }
    return ERROR_SUCCESS;
}

void fillStatus(RASCONNSTATUSA& status, const ConnectionRecord& record) {
    status = {};
    status.dwSize = statusSize;
    status.rasconnstate = static_cast<RASCONNSTATE>(record.state);
    status.dwError = record.error;
    fillField(status.szPhoneNumber, fieldText(record.number));
    if (record.state >= RASCS_ConnectDevice) {
        fillField(status.szDeviceType, vpnDeviceType);
        fillField(status.szDeviceName, pptpDevice);
    }
}

DWORD checkProjection(const ConnectionRecord& record) {
    if (!record.isProjected)
        return ERROR_PROJECTION_NOT_COMPLETE;
    return fieldText(record.clientAddress).empty() ? ERROR_PROTOCOL_NOT_CONFIGURED : ERROR_SUCCESS;
}

} // namespace

extern "C" {

DWORD WINAPI RasDialA(LPRASDIALEXTENSIONS, LPCSTR phonebook, LPRASDIALPARAMSA params, DWORD notifierType,
                      LPVOID notifier, LPHRASCONN handle) {
    return guarded([&]() -> DWORD {
        if (!params || !handle || *handle || !notifier || notifierType != onlyNotifierType)
            return ERROR_INVALID_PARAMETER;
        if (params->dwSize != dialParamsSize)
            return ERROR_INVALID_SIZE;
        DialRequest request{phonebook,
                            fieldText(params->szEntryName),
                            fieldText(params->szUserName),
                            fieldText(params->szPassword),
                            reinterpret_cast<RASDIALFUNC2>(notifier),
                            params->dwCallbackId};
        const DWORD error = dial(request, *handle);
        SecureZeroMemory(request.password.data(), request.password.size());
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
        if (status->dwSize != statusSize)
            return ERROR_INVALID_SIZE;
        ConnectionRecord record;
        const DWORD error = findConnection(handle, record);
        if (error == ERROR_SUCCESS)
            fillStatus(*status, record);
        return error;
    });
}

DWORD WINAPI RasEnumConnectionsA(LPRASCONNA connections, LPDWORD bytes, LPDWORD count) {
    return guarded([&] { return enumerate<connectionSize>(connections, bytes, count, listConnections); });
}

DWORD WINAPI RasGetProjectionInfoA(HRASCONN handle, RASPROJECTION projection, LPVOID buffer, LPDWORD bytes) {
    return guarded([&]() -> DWORD {
        if (!bytes || projection != RASP_PppIp)
            return ERROR_INVALID_PARAMETER;
        ConnectionRecord record;
        DWORD error = findConnection(handle, record);
        if (error == ERROR_SUCCESS)
            error = checkProjection(record);
        if (error != ERROR_SUCCESS)
            return error;
        if (std::exchange(*bytes, projectionSize) < projectionSize || !buffer)
            return ERROR_BUFFER_TOO_SMALL;
        auto& result = *static_cast<RASPPPIPA*>(buffer);
        if (result.dwSize != projectionSize)
            return ERROR_INVALID_SIZE;
        result = {};
        result.dwSize = projectionSize;
        fillField(result.szIpAddress, fieldText(record.clientAddress));
        fillField(result.szServerIpAddress, fieldText(record.serverAddress));
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
