#pragma once

#include "owners.h"
#include "ras_records.h"

// The active connections as one enumeration by the service lists them.
class ActiveConnections {
  public:
    // Room for as many records as any computer has connections, or just for those that are ever examined.
    static constexpr DWORD ampleRoom = 256;
    static constexpr DWORD maxExamined = 3;

    // Asks the service, with room for `records` records; `heapFlags` as for HeapAlloc.
    ActiveConnections(DWORD records, DWORD heapFlags);

    // The service's code; 8 when there was no memory.
    DWORD error() const { return code; }
    // How many the service says it listed, and how many of them there was room for.
    DWORD reported() const { return count; }
    DWORD listed() const { return std::min(count, room); }
    // How many a search for one connection looks at.
    DWORD examined() const { return std::min(listed(), maxExamined); }

    HRASCONN handle(DWORD index) const { return record(index).hrasconn; }
    std::string entryName(DWORD index) const { return textOfField(record(index).szEntryName); }
    std::string phoneBook(DWORD index) const { return textOfField(record(index).szPhonebook); }

  private:
    RASCONNA& record(DWORD index) const;

    const DWORD room; // records
    Owner<HeapBlock> block;
    DWORD count = 0;
    DWORD code = ERROR_NOT_ENOUGH_MEMORY;
};
