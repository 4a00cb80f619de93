// The heap blocks that the library asks the system for: each ends at pages that may not be touched, holds
// junk unless zeros were asked for, and stays forbidden once freed. A forbidden access becomes a complaint,
// not a crash.
#pragma once

#include <windows.h>

#include <map>
#include <mutex>

class GuardedHeap {
  public:
    GuardedHeap();
    ~GuardedHeap();
    GuardedHeap(const GuardedHeap&) = delete;
    GuardedHeap& operator=(const GuardedHeap&) = delete;

    // What the last block asked for was meant to hold, in bytes.
    SIZE_T lastSize() const { return size; }
    DWORD lastFlags() const { return flags; }

    // How many forbidden pages were touched since the last call.
    static unsigned int takeForbiddenAccesses();

  private:
    void* allocate(DWORD heapFlags, SIZE_T bytes);
    bool free(void* block);

    std::mutex lock;
    std::map<void*, char*> pages; // by block, their first
    SIZE_T size = 0;
    DWORD flags = 0;
};
