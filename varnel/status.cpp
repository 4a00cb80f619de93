// Which entries have an active connection.
#include "Varnel.h"
#include "active_connections.h"
#include "call_trace.h"
#include "outside/Helper.h"

std::string VARNEL::getCurrentEntryNameById(const std::string& id) {
    const CallTrace trace("VARNEL::getCurrentEntryNameById", id, __LINE__, 3);
    if (id.empty())
        return {};
    const ActiveConnections connections(ActiveConnections::ampleRoom, 0);
    for (DWORD i = 0; i < connections.examined(); ++i) {
        std::string entryName = connections.entryName(i);
        if (matchId(entryName, id))
            return entryName;
    }
    return {};
}

std::list<std::string> VARNEL::getAllActiveEntry() {
    std::list<std::string> entryNames;
    const ActiveConnections connections(ActiveConnections::ampleRoom, 0);
    for (DWORD i = 0; i < connections.listed(); ++i) {
        std::string entryName = connections.entryName(i);
        Convert2LowCase(entryName);
        if (CheckIdFormat(nullptr, entryName, nullptr, nullptr, nullptr))
            entryNames.push_back(entryName);
    }
    return entryNames;
}

bool VARNEL::getEntryStatus(const std::string& id) {
    if (id.empty())
        return false;
    for (const std::string& entryName : getAllActiveEntry())
        if (matchId(entryName, id))
            return true;
    return false;
}
