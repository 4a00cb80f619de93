// What is said of the modules as files: what the library exports, and how all of them are loaded.
#include "imports.h"

namespace {

const IMAGE_OPTIONAL_HEADER& headerOf(const char* base) {
    const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    return reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos.e_lfanew)->OptionalHeader;
}

} // namespace

std::vector<std::string> oddInShippedModules() {
    constexpr WORD wanted = IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA |
                            IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
    std::vector<std::string> odd;
    for (const char* name : {"Varnel.dll", "Log.dll", "Helper.dll", "Helper2.dll"})
        if ((headerOf(reinterpret_cast<const char*>(GetModuleHandleA(name))).DllCharacteristics & wanted) !=
            wanted)
            odd.push_back(std::string(name) + " is loaded at a known place, or its data may run");
    const auto* const base = reinterpret_cast<const char*>(GetModuleHandleA("Varnel.dll"));
    const DWORD place = headerOf(base).DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress;
    const auto& exports = *reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + place);
    const auto* const names = reinterpret_cast<const DWORD*>(base + exports.AddressOfNames);
    for (DWORD i = 0; i < exports.NumberOfNames; ++i)
        if (const std::string name = base + names[i];
            !name.starts_with("_ZN6VARNEL") && !name.starts_with("_ZN15DIALUP_CALLBACK"))
            odd.push_back("exported by accident: " + name);
    return odd;
}
