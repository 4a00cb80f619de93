// The heap blocks that the library asks the system for: each ends where a page ends that may not be touched,
// and is no memory any more once freed, so that an overrun or a late use is a crash, which the watchdog
// tells. A block holds junk unless zeros were asked for.
#include "computer.h"

#include <cstring>

namespace {

void* allocate(HANDLE, DWORD flags, SIZE_T bytes) {
    constexpr SIZE_T pageSize = 4096;
    const SIZE_T room = (bytes + pageSize - 1) / pageSize * pageSize;
    void* const first = VirtualAlloc(nullptr, room + pageSize, MEM_RESERVE, PAGE_NOACCESS);
    if (VirtualAlloc(first, room, MEM_COMMIT, PAGE_READWRITE) == nullptr)
        return nullptr;
    std::memset(first, (flags & HEAP_ZERO_MEMORY) != 0 ? 0 : 0xA5, room);
    return static_cast<char*>(first) + (room - bytes) / sizeof(DWORD) * sizeof(DWORD);
}

} // namespace

void answerForHeap() {
    on<"HeapAlloc">(&allocate);
    on<"HeapFree">([](HANDLE, DWORD, LPVOID block) {
        MEMORY_BASIC_INFORMATION known;
        VirtualQuery(block, &known, sizeof known);
        return VirtualFree(known.AllocationBase, 0, MEM_RELEASE);
    });
}
