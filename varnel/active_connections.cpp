#include "active_connections.h"

#include "log_line.h"
#include "outside/Helper.h"

ActiveConnections::ActiveConnections(DWORD records, DWORD heapFlags)
    : room(records), block(HeapAlloc(GetProcessHeap(), heapFlags, std::size_t{records} * rasConnSize)) {
    if (block) {
        record(0).dwSize = rasConnSize;
        DWORD size = room * rasConnSize;
        code = RasEnumConnectionsA(&record(0), &size, &count);
    }
    if (code != 0) {
        count = 0;
        LOG_LINE(2, "RasEnumConnections fail, error " + int2stru(code));
    }
}

// Records follow one another at the size that was asked for,
// which is less than that of the header's own record.
RASCONNA& ActiveConnections::record(DWORD index) const {
    return *reinterpret_cast<RASCONNA*>(static_cast<char*>(block.get()) + std::size_t{index} * rasConnSize);
}
