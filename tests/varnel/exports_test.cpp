#include "tests/kit/varnel_test.h"

#include <algorithm>

namespace {

bool equal(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return std::tolower(a) == std::tolower(b); });
}

bool isRunTime(const std::string& module) {
    return equal(module, "libstdc++-6.dll") || equal(module, "libgcc_s_seh-1.dll") ||
           equal(module, "libwinpthread-1.dll");
}

// What the compiler's start-up code and library may ask of the C run-time of Windows 5.2, which has all of
// these.
const Lines cRunTime = {"___lc_codepage_func",
                        "___mb_cur_max_func",
                        "__iob_func",
                        "_amsg_exit",
                        "_errno",
                        "_initterm",
                        "_lock",
                        "_stricmp",
                        "_unlock",
                        "abort",
                        "calloc",
                        "fputc",
                        "fputwc",
                        "free",
                        "fwprintf",
                        "fwrite",
                        "localeconv",
                        "malloc",
                        "memchr",
                        "memcmp",
                        "memcpy",
                        "memmove",
                        "memset",
                        "realloc",
                        "strcmp",
                        "strerror",
                        "strlen",
                        "strncmp",
                        "strncpy",
                        "vfprintf",
                        "wcscpy",
                        "wcslen",
                        "_snwprintf"};

template<class Range, class T>
bool contains(const Range& range, const T& value) {
    return std::find(std::begin(range), std::end(range), value) != std::end(range);
}

[[maybe_unused]] bool isKnown(const ImportTable::Entry& import) {
    if (isRunTime(import.module))
        return true;
    if (equal(import.module, "msvcrt.dll"))
        return contains(cRunTime, import.name);
    const auto& known = redirections();
    return contains(importsLeftAlone(), import.name) ||
           std::any_of(known.begin(), known.end(), [&import](const Redirection& redirection) {
               return redirection.symbol == import.name && equal(redirection.module, import.module);
           });
}

const IMAGE_OPTIONAL_HEADER& headerOf(HMODULE module) {
    const char* const base = reinterpret_cast<const char*>(module);
    const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    return reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos.e_lfanew)->OptionalHeader;
}

Lines exportsOf(HMODULE module) {
    const char* const base = reinterpret_cast<const char*>(module);
    const auto& directory = headerOf(module).DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    const auto& exports = *reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + directory.VirtualAddress);
    const auto* const names = reinterpret_cast<const DWORD*>(base + exports.AddressOfNames);
    Lines texts;
    for (DWORD i = 0; i < exports.NumberOfNames; ++i)
        texts.push_back(base + names[i]);
    return texts;
}

} // namespace

#if !defined(VARNEL_CHECKED) && !defined(VARNEL_COVERAGE) // which import for themselves
// A stranger among the imports would go unobserved by every test, and may be missing on the oldest Windows
// served.
TEST_CASE("the library imports by name, and only what the kit watches and Windows 5.2 has") {
    const ImportTable table(GetModuleHandleA("Varnel.dll"));
    CHECK_FALSE(table.hasDelayedImports());
    Lines strangers;
    for (const ImportTable::Entry& import : table.entries())
        if (import.name.empty() || !isKnown(import))
            strangers.push_back(import.module + ": " + import.name);
    CHECK(strangers == Lines{});
}
#endif

TEST_CASE("the library exports its two classes and nothing by accident") {
    Lines others = exportsOf(GetModuleHandleA("Varnel.dll"));
    CHECK(others.size() > 40);
    std::erase_if(others, [](const std::string& name) {
        return name.starts_with("_ZN6VARNEL") || name.starts_with("_ZN15DIALUP_CALLBACK");
    });
    CHECK(others == Lines{});
}

TEST_CASE("the product's modules are loaded anywhere, and their data never runs") {
    constexpr WORD anywhere =
        IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA;
    for (const char* name : {"Varnel.dll", "Log.dll", "Helper.dll", "Helper2.dll"}) {
        INFO(name);
        const WORD flags = headerOf(GetModuleHandleA(name)).DllCharacteristics;
        CHECK((flags & anywhere) == anywhere);
        CHECK((flags & IMAGE_DLLCHARACTERISTICS_NX_COMPAT) != 0);
    }
}
