// The heap blocks that the library asks the system for: each ends where a page ends that may not be touched,
// and is no memory any more once freed, so that an overrun or a late use is a crash, which the watchdog
// tells. A block holds junk unless zeros were asked for.
#include "computer.h"

#include <cstring>

namespace {

constexpr SIZE_T pageSize = 4096;
constexpr unsigned char junk = 0xA5;

std::map<void*, void*> pages; // by block, their first; of those that are freed too

void* allocate(HANDLE, DWORD flags, SIZE_T bytes) {
    const SIZE_T room = (bytes + pageSize - 1) / pageSize * pageSize;
    void* const first = VirtualAlloc(nullptr, room + pageSize, MEM_RESERVE, PAGE_NOACCESS);
    if (VirtualAlloc(first, room, MEM_COMMIT, PAGE_READWRITE) == nullptr)
        return nullptr;
    char* const block = static_cast<char*>(first) + (room - bytes) / sizeof(DWORD) * sizeof(DWORD);
    std::memset(first, (flags & HEAP_ZERO_MEMORY) != 0 ? 0 : junk, room);
    return pages[block] = first, block;
}

} // namespace

void answerForHeap() {
    on<"HeapAlloc">(&allocate);
    on<"HeapFree">([](HANDLE, DWORD, LPVOID block) { return VirtualFree(pages[block], 0, MEM_DECOMMIT); });
}

void releaseHeapPages() {
    for (const auto& [block, first] : std::exchange(pages, {}))
        VirtualFree(first, 0, MEM_RELEASE);
}
