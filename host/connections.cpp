#include "connections.h"

#include "outside/Helper.h"
#include "text.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

#include <ras.h>
#include <raserror.h>

namespace {

// A record as Windows 2000 has it, which every later one knows; the header's own is longer.
constexpr DWORD recordSize = 696;
constexpr DWORD firstRoom = 16; // records

// The list in `records`, which are made as many as it takes.
DWORD enumerate(std::vector<char>& records, DWORD& count) {
    DWORD size = firstRoom * recordSize;
    DWORD error = ERROR_BUFFER_TOO_SMALL;
    for (int tries = 0; tries < 5 && error == ERROR_BUFFER_TOO_SMALL; ++tries) {
        records.assign(size, '\0');
        std::memcpy(records.data(), &recordSize, sizeof recordSize);
        error = RasEnumConnectionsA(reinterpret_cast<RASCONNA*>(records.data()), &size, &count);
    }
    return error;
}

} // namespace

std::optional<size_t> Connections::placeOf(const std::string& id) const {
    const auto found = std::ranges::find(list, lowCase(id), &Connection::peer);
    if (found == list.end())
        return std::nullopt;
    return static_cast<size_t>(found - list.begin());
}

Connections activeConnections() {
    std::vector<char> records;
    DWORD count = 0;
    Connections connections{.error = enumerate(records, count)};
    if (connections.error != 0)
        return connections;
    for (size_t at = 0; count > 0 && at + recordSize <= records.size(); at += recordSize, --count) {
        const char* name = records.data() + at + offsetof(RASCONNA, szEntryName);
        Connections::Connection connection{.entry = std::string(name, strnlen(name, RAS_MaxEntryName)),
                                           .peer = {}};
        CheckIdFormat(nullptr, connection.entry, &connection.peer, nullptr, nullptr);
        connections.list.push_back(connection);
    }
    return connections;
}
