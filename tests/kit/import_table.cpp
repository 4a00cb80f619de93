#include "import_table.h"

#include <algorithm>
#include <cstddef>

ImportTable::ImportTable(HMODULE module) {
    char* const base = reinterpret_cast<char*>(module);
    const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto& headers = *reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos.e_lfanew);
    const DWORD start = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* from = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + start); from->Name != 0; ++from) {
        auto* wanted = reinterpret_cast<IMAGE_THUNK_DATA*>(base + from->OriginalFirstThunk);
        auto* bound = reinterpret_cast<IMAGE_THUNK_DATA*>(base + from->FirstThunk);
        for (; wanted->u1.AddressOfData != 0; ++wanted, ++bound) {
            const bool named = !IMAGE_SNAP_BY_ORDINAL(wanted->u1.Ordinal);
            const char* const name = base + wanted->u1.AddressOfData + offsetof(IMAGE_IMPORT_BY_NAME, Name);
            all.push_back(
                {base + from->Name, named ? name : "", reinterpret_cast<void**>(&bound->u1.Function)});
        }
    }
    if (!all.empty())
        protection = protect(PAGE_READWRITE);
}

ImportTable::~ImportTable() {
    for (auto original = originals.rbegin(); original != originals.rend(); ++original)
        *original->first = original->second;
    if (!all.empty())
        protect(protection);
}

DWORD ImportTable::protect(DWORD wanted) const {
    const auto [first, last] = std::ranges::minmax_element(all, {}, &Entry::slot);
    const auto bytes = static_cast<SIZE_T>(last->slot + 1 - first->slot) * sizeof(void*);
    DWORD before = 0;
    VirtualProtect(first->slot, bytes, wanted, &before);
    return before;
}

void* ImportTable::replace(std::string_view name, void* replacement) {
    const auto entry = std::ranges::find(all, name, &Entry::name);
    if (entry == all.end())
        return nullptr;
    originals.emplace_back(entry->slot, *entry->slot);
    *entry->slot = replacement;
    return originals.back().second;
}

bool ImportTable::isReplaced(const Entry& entry) const {
    return std::ranges::any_of(originals, [&](const auto& original) { return original.first == entry.slot; });
}
