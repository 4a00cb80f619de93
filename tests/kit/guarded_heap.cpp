#include "guarded_heap.h"

#include "complaints.h"
#include "imports.h"

#include <atomic>
#include <cstring>

namespace {

constexpr SIZE_T pageSize = 4096;
constexpr SIZE_T forbidden = 1 << 20; // bytes behind a block
constexpr SIZE_T alignment = 4;       // that of the records the library keeps in such blocks
constexpr unsigned char junk = 0xA5;

// Where blocks have been laid, for a handler that may neither lock nor allocate.
struct Range {
    char* start;
    SIZE_T room;
};
Range ranges[4096];
std::atomic<std::size_t> rangeCount;
std::atomic<unsigned int> forbiddenAccesses;

LONG CALLBACK noteForbiddenAccess(EXCEPTION_POINTERS* exception) {
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode != STATUS_ACCESS_VIOLATION)
        return EXCEPTION_CONTINUE_SEARCH;
    char* const address = reinterpret_cast<char*>(record.ExceptionInformation[1]);
    for (std::size_t i = 0; i < rangeCount; ++i) {
        if (address >= ranges[i].start && address < ranges[i].start + ranges[i].room) {
            ++forbiddenAccesses;
            DWORD before = 0;
            VirtualAlloc(address, 1, MEM_COMMIT, PAGE_READWRITE);
            VirtualProtect(address, 1, PAGE_READWRITE, &before);
            return EXCEPTION_CONTINUE_EXECUTION;
        }
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

GuardedHeap::GuardedHeap() {
    static PVOID const handler = AddVectoredExceptionHandler(1, &noteForbiddenAccess);
    static_cast<void>(handler);
    on<"HeapAlloc">([this](HANDLE, DWORD heapFlags, SIZE_T bytes) { return allocate(heapFlags, bytes); });
    on<"HeapFree">([this](HANDLE, DWORD, LPVOID block) -> WINBOOL { return free(block); });
}

GuardedHeap::~GuardedHeap() {
    for (const auto& [block, first] : pages)
        VirtualFree(first, 0, MEM_RELEASE);
    rangeCount = 0;
}

unsigned int GuardedHeap::takeForbiddenAccesses() {
    return forbiddenAccesses.exchange(0);
}

void* GuardedHeap::allocate(DWORD heapFlags, SIZE_T bytes) {
    const std::scoped_lock locked(lock);
    const SIZE_T room = (bytes + pageSize - 1) / pageSize * pageSize;
    auto* const first =
        static_cast<char*>(VirtualAlloc(nullptr, room + forbidden, MEM_RESERVE, PAGE_NOACCESS));
    if (first == nullptr || rangeCount == std::size(ranges) ||
        VirtualAlloc(first, room, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        complain("the guarded heap is exhausted");
        return nullptr;
    }
    ranges[rangeCount] = {first, room + forbidden};
    ++rangeCount;
    size = bytes;
    flags = heapFlags;
    char* const block = first + (room - bytes) / alignment * alignment;
    std::memset(first, junk, room);
    if (heapFlags & HEAP_ZERO_MEMORY)
        std::memset(block, 0, bytes);
    pages[block] = first;
    return block;
}

bool GuardedHeap::free(void* block) {
    const std::scoped_lock locked(lock);
    const auto found = pages.find(block);
    if (found == pages.end())
        return false;
    MEMORY_BASIC_INFORMATION laid = {};
    VirtualQuery(block, &laid, sizeof laid);
    DWORD before = 0;
    VirtualProtect(found->second, laid.RegionSize, PAGE_NOACCESS, &before);
    return true;
}
