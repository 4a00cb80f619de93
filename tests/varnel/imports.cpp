#include "imports.h"

#include "facts.h"
#include "tests/kit/import_table.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

std::vector<Fault> planned;

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
    const std::scoped_lock locked(worldLock);
    expect(std::string(file) == ".\\Varnel" && line > 0, "a trace from nowhere: ", text);
    journal::lines["trace"].push_back(fmt::format("{} {:.{}}", level, text, std::strcspn(text, "\n")));
    SetLastError(lastError);
}

// What is imported and left alone: the last errors themselves, data, what only counts or converts, and what
// the run-time's own code calls.
constexpr char leftAlone[] =
    "GetLastError SetLastError WSAGetLastError _ZN3LOG5levelE WSAStartup WSACleanup GetProcessHeap "
    "htonl htons ntohl inet_addr SysStringLen Convert2LowCase Convert2LowCaseW "
    "DeleteCriticalSection EnterCriticalSection FormatMessageA FormatMessageW GetCurrentThreadId "
    "InitializeCriticalSection IsDBCSLeadByteEx LeaveCriticalSection LocalFree MultiByteToWideChar "
    "TlsGetValue VirtualProtect VirtualQuery WideCharToMultiByte";

} // namespace

std::vector<Import*>& allImports() {
#define VARNEL_ROW(round, columns, function) &Call<BOOST_PP_STRINGIZE(function)>::row,
#define VARNEL_ROWS(failing, seen, lends, codes, ...)                                                        \
    BOOST_PP_SEQ_FOR_EACH(VARNEL_ROW, , BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))
    static std::vector<Import*> all = {VARNEL_IMPORTS(VARNEL_ROWS)};
#undef VARNEL_ROWS
#undef VARNEL_ROW
    return all;
}

Import& importOf(std::string_view name) {
    const auto found = std::ranges::find(allImports(), name, &Import::name);
    if (found == allImports().end())
        throw std::invalid_argument("no import is called " + std::string(name));
    return **found;
}

void complain(const std::string& text) {
    const std::scoped_lock locked(worldLock);
    complaints.push_back(text);
}

void expect(bool holds, std::string_view complaint, std::string_view about) {
    if (!holds)
        complain(std::string(complaint).append(about));
}

void faults::plan(std::vector<Fault> faults) {
    planned = std::move(faults);
    for (Import* import : allImports())
        import->calls = import->failures = 0;
}

std::optional<DWORD> faults::strikes(Import& import) {
    ++import.calls;
    for (const Fault& fault : planned)
        if (fault.import == &import &&
            (import.calls == fault.nth || (fault.lasting && import.calls > fault.nth)))
            return ++import.failures, fault.code;
    return std::nullopt;
}

void ledger::called(const Import& import, const void* first, const void* last) {
    if (import.lends.starts_with('-'))
        return released(import.lends.substr(1), last);
    if (import.lends.empty() || import.lends.starts_with('+'))
        return;
    const auto loan = loans.find(first);
    expect(loan == loans.end() || loan->second.out, import.lends, " used after its return");
}

void ledger::acquired(std::string_view kind, const void* resource) {
    if (resource == nullptr)
        return;
    Loan& loan = loans[resource];
    expect(!loan.out, kind, " lent again before its return");
    loan = {true, std::string(kind)};
}

void ledger::released(std::string_view kind, const void* resource) {
    Loan& loan = loans[resource];
    expect(loan.kind == kind && std::exchange(loan.out, false), kind, " returned that was not lent");
}

void ledger::settle() {
    for (const auto& [resource, loan] : std::exchange(loans, {}))
        expect(!loan.out, loan.kind, " never returned");
}

std::string text::line(std::string_view name, const std::vector<std::string>& arguments) {
    std::string line(name == "WaitForSingleObject" ? "Wait" : name);
    if (line.starts_with("Ras"))
        line.erase(0, 3);
    if (line.ends_with("A"))
        line.pop_back();
    for (const std::string& argument : arguments)
        line += (argument.empty() ? "" : " ") + argument;
    return line;
}

std::vector<std::string> redirectImports() {
    static ImportTable table(GetModuleHandleA("Varnel.dll"));
    std::vector<std::string> odd;
    for (const Import* import : allImports()) {
        const auto symbol = symbols.find(import->name);
        const std::string_view name = symbol != symbols.end() ? symbol->second : import->name;
        if (void* const real = table.replace(name, import->thunk))
            import->answerWith(real);
    }
    table.replace(tracePrint, reinterpret_cast<void*>(&printTrace));
#if !defined(VARNEL_CHECKED) && !defined(VARNEL_COVERAGE) // these builds import for themselves
    for (const ImportTable::Entry& entry : table.entries())
        if (!table.isReplaced(entry) && !entry.module.starts_with("lib") && entry.module != "msvcrt.dll" &&
            !says(leftAlone, entry.name))
            odd.push_back("not redirected: " + entry.module + " " + entry.name);
#endif
    return odd;
}
