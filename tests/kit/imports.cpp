#include "imports.h"

#include "complaints.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {

std::mutex recordLock;
std::vector<std::string> complaints;
std::vector<std::string> journal;

template<Text Name>
Redirection redirection(std::string_view module, std::string_view symbol = Name.view()) {
    using I = Import<Name>;
    return {module,
            Name.view(),
            symbol,
            reinterpret_cast<void*>(&I::thunk),
            [](void* real) { I::real = reinterpret_cast<decltype(I::real)>(real); },
            &I::forget};
}

Redirection logPrint() {
    return {"Log.dll",
            "LOG::print",
            "_ZN3LOG5printEiPKclS1_z",
            reinterpret_cast<void*>(&LogPrint::thunk),
            [](void*) {},
            [] { LogPrint::behaviour = nullptr; }};
}

} // namespace

void complain(const std::string& text) {
    const std::scoped_lock locked(recordLock);
    complaints.push_back(text);
}

std::vector<std::string> takeComplaints() {
    const std::scoped_lock locked(recordLock);
    return std::exchange(complaints, {});
}

void Journal::add(const std::string& line) {
    const std::scoped_lock locked(recordLock);
    journal.push_back(line);
}

std::vector<std::string> Journal::lines() {
    const std::scoped_lock locked(recordLock);
    return journal;
}

void Journal::clear() {
    const std::scoped_lock locked(recordLock);
    journal.clear();
}

void Faults::plan(const std::optional<Fault>& fault) {
    plan(fault ? std::vector<Fault>{*fault} : std::vector<Fault>{});
}

void Faults::plan(const std::vector<Fault>& faults) {
    planned.clear();
    for (const Fault& fault : faults)
        planned.emplace_back().fault = fault;
    tally.reset();
}

std::optional<DWORD> Faults::strikes(std::string_view function) {
    if (tally) {
        const std::scoped_lock locked(recordLock);
        const auto known = tally->find(function);
        if (known != tally->end())
            ++known->second;
        else
            tally->emplace(function, 1);
    }
    std::optional<DWORD> code;
    for (auto& [fault, calls, hasStruck] : planned) {
        if (!fault.function.empty() && fault.function != function)
            continue;
        const long call = ++calls;
        if (call == fault.nth || (fault.lasting && call > fault.nth)) {
            code = fault.code;
            hasStruck = true;
        }
    }
    return code;
}

std::vector<Fault> Faults::thatStruck() {
    std::vector<Fault> faults;
    for (const auto& [fault, calls, hasStruck] : planned)
        if (hasStruck)
            faults.push_back(fault);
    return faults;
}

void Faults::count() {
    tally.emplace();
}

Faults::Calls Faults::counted() {
    return tally.value_or(Calls{});
}

void LogPrint::thunk(int level, const char* file, long line, const char* format, ...) {
    char text[2048];
    std::va_list arguments; // NOLINT(cppcoreguidelines-init-variables)
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const DWORD lastError = GetLastError();
    if (behaviour)
        behaviour(level, file, line, text);
    SetLastError(lastError);
}

const std::vector<Redirection>& redirections() {
    static const std::vector<Redirection> all = {
#define VARNEL_REDIRECTION(module, function, failure, shown) redirection<#function>(module),
        VARNEL_IMPORTS(VARNEL_REDIRECTION)
#undef VARNEL_REDIRECTION
            redirection<"LOG::prints">(
                "Log.dll", "_ZN3LOG6printsEiPKclRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"),
        redirection<"operator new">("libstdc++-6.dll", "_Znwy"), logPrint()};
    return all;
}

const std::vector<std::string_view>& importsLeftAlone() {
    static const std::vector<std::string_view> names = {
        "GetLastError", "SetLastError", "WSAGetLastError", "_ZN3LOG5levelE",
        // Windows Sockets are started and ended with the library.
        "WSAStartup", "WSACleanup",
        // Called by the run-time's own code: start-up, formatting, error texts.
        "DeleteCriticalSection", "EnterCriticalSection", "FormatMessageA", "FormatMessageW",
        "GetCurrentThreadId", "InitializeCriticalSection", "IsDBCSLeadByteEx", "LeaveCriticalSection",
        "LocalFree", "MultiByteToWideChar", "TlsGetValue", "VirtualProtect", "VirtualQuery",
        "WideCharToMultiByte"};
    return names;
}
