#include "imports.h"

#include "computer.h"
#include "tests/kit/import_table.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <map>

namespace {

std::vector<std::string> complaints;
std::vector<Fault> planned;
std::vector<std::string> calls;

struct Loan {
    bool out;
    std::string kind;
};
std::map<const void*, Loan> loans;

// What is not exported under its own name.
const std::map<std::string_view, std::string_view> symbols = {
    {"logLine", "_ZN3LOG6printsEiPKclRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"},
    {"newMemory", "_Znwy"}};

// LOG::print, the one import that takes any number of arguments: the call traces.
constexpr std::string_view tracePrint = "_ZN3LOG5printEiPKclS1_z";

void printTrace(int level, const char* file, long line, const char* format, ...) {
    char text[2048];
    std::va_list arguments; // NOLINT(cppcoreguidelines-init-variables)
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const DWORD lastError = GetLastError();
    theComputer().traced(level, file, line, text);
    SetLastError(lastError);
}

template<Name NAME>
Import describe(std::string_view module, Seen seen, std::string_view lends, std::string_view codes) {
    using C = Call<NAME>;
    return {NAME.view(),
            module,
            seen,
            lends,
            codes,
            C::failing == Failing::byThrowing,
            reinterpret_cast<void*>(&C::thunk),
            [](void* real) { C::real = reinterpret_cast<decltype(C::real)>(real); }};
}

// What is imported and left alone: the last errors themselves, data, and what the run-time's own code calls.
constexpr std::string_view leftAlone[] = {
    "GetLastError",          "SetLastError",         "WSAGetLastError",
    "_ZN3LOG5levelE",        "WSAStartup",           "WSACleanup",
    "DeleteCriticalSection", "EnterCriticalSection", "FormatMessageA",
    "FormatMessageW",        "GetCurrentThreadId",   "InitializeCriticalSection",
    "IsDBCSLeadByteEx",      "LeaveCriticalSection", "LocalFree",
    "MultiByteToWideChar",   "TlsGetValue",          "VirtualProtect",
    "VirtualQuery",          "WideCharToMultiByte"};

bool isRunTime(const std::string& module) {
    return _stricmp(module.c_str(), "msvcrt.dll") == 0 || module.starts_with("lib");
}

} // namespace

#define VARNEL_ROW(function, module, how, visibility, lends, codes)                                          \
    Import Declared<#function>::row = describe<#function>(module, Seen::visibility, lends, codes);
VARNEL_IMPORTS(VARNEL_ROW)
#undef VARNEL_ROW

std::vector<Import*>& allImports() {
#define VARNEL_ROW_ADDRESS(function, ...) &Declared<#function>::row,
    static std::vector<Import*> all = {VARNEL_IMPORTS(VARNEL_ROW_ADDRESS)};
#undef VARNEL_ROW_ADDRESS
    return all;
}

Import& importOf(std::string_view name) {
    const auto found =
        std::ranges::find(allImports(), name, [](const Import* import) { return import->name; });
    if (found == allImports().end())
        throw std::invalid_argument("no import is called " + std::string(name));
    return **found;
}

std::recursive_mutex& worldLock() {
    static std::recursive_mutex lock;
    return lock;
}

void complain(const std::string& text) {
    const std::scoped_lock locked(worldLock());
    complaints.push_back(text);
}

std::vector<std::string> takeComplaints() {
    const std::scoped_lock locked(worldLock());
    return std::exchange(complaints, {});
}

void faults::plan(std::vector<Fault> faults) {
    planned = std::move(faults);
    for (Import* import : allImports())
        import->calls = import->failures = 0;
}

std::optional<DWORD> faults::strikes(Import& import) {
    const long call = ++import.calls;
    std::optional<DWORD> code;
    for (const Fault& fault : planned)
        if (fault.import == &import && (call == fault.nth || (fault.lasting && call > fault.nth)))
            code = fault.code;
    import.failures += code ? 1 : 0;
    return code;
}

void ledger::acquired(std::string_view kind, const void* resource) {
    const std::scoped_lock locked(worldLock());
    if (resource == nullptr)
        return;
    Loan& loan = loans[resource];
    if (loan.out)
        complain(std::string(kind) + " lent again before its return");
    loan = {true, std::string(kind)};
}

void ledger::used(std::string_view kind, const void* resource) {
    const std::scoped_lock locked(worldLock());
    const auto loan = loans.find(resource);
    if (loan != loans.end() && !loan->second.out)
        complain(std::string(kind) + " used after its return");
}

void ledger::released(std::string_view kind, const void* resource) {
    const std::scoped_lock locked(worldLock());
    const auto loan = loans.find(resource);
    if (loan == loans.end() || loan->second.kind != kind || !std::exchange(loan->second.out, false))
        complain(std::string(kind) + " returned that was not lent");
}

void ledger::settle() {
    const std::scoped_lock locked(worldLock());
    for (const auto& [resource, loan] : loans)
        if (loan.out)
            complain(loan.kind + " never returned");
    loans.clear();
}

void journal::add(const std::string& call) {
    const std::scoped_lock locked(worldLock());
    calls.push_back(call);
}

std::vector<std::string> journal::take() {
    const std::scoped_lock locked(worldLock());
    return std::exchange(calls, {});
}

std::string text::of(const char* argument) {
    return argument == nullptr ? "-" : *argument == '\0' ? "\"\"" : argument;
}

std::string text::of(const std::string& argument) {
    return of(argument.c_str());
}

std::string text::of(HRASCONN argument) {
    return std::to_string(reinterpret_cast<ULONG_PTR>(argument));
}

std::string text::of(RASDIALPARAMSA* argument) {
    return std::string(argument->szEntryName) + " " + argument->szUserName + "/" + argument->szPassword;
}

std::vector<std::string> redirectImports() {
    static ImportTable table(GetModuleHandleA("Varnel.dll"));
    std::vector<std::string> odd;
    for (const Import* import : allImports()) {
        const auto symbol = symbols.find(import->name);
        if (import->module.empty())
            continue;
        if (void* const real =
                table.replace(symbol != symbols.end() ? symbol->second : import->name, import->thunk))
            import->setReal(real);
        else
            odd.push_back("not imported: " + std::string(import->name));
    }
    table.replace(tracePrint, reinterpret_cast<void*>(&printTrace));
    for (const ImportTable::Entry& entry : table.entries())
        if (!table.isReplaced(entry) && !isRunTime(entry.module) &&
            (entry.name.empty() || std::ranges::count(leftAlone, entry.name) == 0))
            odd.push_back("not redirected: " + entry.module + " " + entry.name);
    return odd;
}
