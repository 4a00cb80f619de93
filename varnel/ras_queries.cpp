#include "ras_queries.h"

LinkStatus linkStatus(HRASCONN conn) {
    RASCONNSTATUSA status = {};
    status.dwSize = rasConnStatusSize;
    const DWORD queryError = RasGetConnectStatusA(conn, &status);
    return {queryError, queryError == 0 ? status.dwError : 0};
}

std::optional<std::string> pppAddress(HRASCONN conn) {
    RASPPPIPA projection = {};
    DWORD size = rasPppIpSize;
    projection.dwSize = rasPppIpSize;
    if (RasGetProjectionInfoA(conn, RASP_PppIp, &projection, &size) != 0)
        return std::nullopt;
    return textOfField(projection.szIpAddress);
}
