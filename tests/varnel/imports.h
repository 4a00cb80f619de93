// Every function through which the library reaches the world, as a call that is recorded, answered by the
// scripted computer, and made to fail. What is known of an import stands in its row of the table.
#pragma once

#include "imports_table.h"

#include <windows.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// What is found wrong beside what a text says; may be called from any thread.
void complain(const std::string& text);
std::vector<std::string> takeComplaints();

// How a function tells its caller of a failure: by its result alone, or by a result and the last error.
enum class Failing { never, byCode, byZero, byMinusOne, byHresult, byThrowing };

template<Failing HOW, class R>
R failure(DWORD code) {
    if constexpr (HOW == Failing::byThrowing || HOW == Failing::never)
        throw std::bad_alloc();
    if constexpr (HOW == Failing::byCode)
        return static_cast<R>(code);
    SetLastError(code);
    if constexpr (HOW == Failing::byHresult)
        return HRESULT_FROM_WIN32(code);
    else if constexpr (HOW == Failing::byMinusOne)
        return (R)LONG_PTR{-1};
    else
        return R{};
}

template<Failing HOW, class R>
bool hasFailed(R result) {
    if constexpr (HOW == Failing::byCode || HOW == Failing::byHresult)
        return result != R{};
    else if constexpr (HOW == Failing::byZero)
        return result == R{};
    else if constexpr (HOW == Failing::byMinusOne)
        return result == (R)LONG_PTR{-1};
    else
        return false;
}

struct Import; // a row of the table

// A failure to be made: of the nth call of an import, once or from there on.
struct Fault {
    Import* import = nullptr;
    long nth = 0;
    bool lasting = false;
    DWORD code = 0;
    bool operator==(const Fault&) const = default;
};

struct Import {
    std::string_view name;
    std::string_view module; // none when the library finds it at run time
    Seen seen;
    std::string_view lends; // "+kind" lends, "-kind" takes back, "kind" uses
    std::string_view codes; // that it plausibly fails with
    bool throws;
    void* thunk;
    void (*setReal)(void*);
    std::atomic<long> calls = 0; // in the present play, and those of them that failed
    std::atomic<long> failures = 0;
};

std::vector<Import*>& allImports();
Import& importOf(std::string_view name);

// The failures of the present play.
namespace faults {
void plan(std::vector<Fault> planned); // and counts all imports' calls anew
// The code with which this call is to fail, if it is.
std::optional<DWORD> strikes(Import& import);
} // namespace faults

// What the library was lent and has not given back.
namespace ledger {
void acquired(std::string_view kind, const void* resource);
void used(std::string_view kind, const void* resource);
void released(std::string_view kind, const void* resource);
void settle(); // complains of what is still out, and forgets it
} // namespace ledger

// The calls of the present play as text, in order: those that are at most as hidden as is asked.
namespace journal {
inline std::atomic<Seen> wanted = Seen::shown;
void add(const std::string& call);
std::vector<std::string> take();
} // namespace journal

// One lock for all that calls do, but for those that wait or call back.
std::recursive_mutex& worldLock();

template<std::size_t N>
struct Name {
    char chars[N] = {};
    consteval Name(const char (&text)[N]) { std::copy_n(text, N, chars); } // NOLINT: a literal is one
    constexpr std::string_view view() const { return {chars, N - 1}; }
};

template<Name NAME>
struct Declared; // Signature, failing, row

namespace text {
// How an argument reads in the journal; what points to no text has no place there.
std::string of(const char* argument);
std::string of(const std::string& argument);
std::string of(HRASCONN argument);
std::string of(RASDIALPARAMSA* argument);
template<class T>
std::string of(const T& argument) {
    if constexpr (std::is_integral_v<T> && !std::is_same_v<T, SOCKET>)
        return std::to_string(argument);
    else
        return {};
}
template<class... A>
std::string call(std::string_view name, const A&... arguments) {
    std::string line(name);
    if (line.starts_with("Ras"))
        line.erase(0, 3);
    if (line.ends_with("A"))
        line.pop_back();
    if (line == "WaitForSingleObject")
        line = "Wait";
    for (const std::string& argument : std::initializer_list<std::string>{of(arguments)...})
        line += (argument.empty() ? "" : " ") + argument;
    return line;
}
} // namespace text

template<Name NAME, class SIGNATURE = typename Declared<NAME>::Signature>
struct Call;

template<Name NAME, class R, class... A>
struct Call<NAME, R(A...)> {
    static constexpr Failing failing = Declared<NAME>::failing;
    using Result = std::conditional_t<std::is_void_v<R>, int, R>;
    static constexpr bool waits = NAME.view() == "Sleep" || NAME.view() == "WaitForSingleObject" ||
                                  NAME.view() == "RasDialA" || NAME.view() == "newMemory";
    static constexpr bool keepsLastError = NAME.view() == "logLine" || NAME.view() == "newMemory";
    static constexpr DWORD dirt = 0xDEAD;

    static inline R (*real)(A...) = nullptr;
    static inline std::function<R(A...)> answer; // the computer's; the system's own without one

    static R thunk(A... arguments) {
        std::unique_lock locked(worldLock(), std::defer_lock);
        if constexpr (!waits)
            locked.lock();
        Import& import = Declared<NAME>::row;
        if (import.seen <= journal::wanted)
            journal::add(text::call(NAME.view(), arguments...));
        noteLoan(import, arguments...);
        if (const std::optional<DWORD> code = faults::strikes(import))
            return failure<failing, R>(*code);
        if constexpr (std::is_void_v<R>) {
            perform(arguments...);
            leaveLastError(false, GetLastError());
        } else {
            R result = perform(arguments...);
            const DWORD lastError = GetLastError();
            if (import.lends.starts_with('+') && !hasFailed<failing>(result))
                ledger::acquired(import.lends.substr(1), lent(result, arguments...));
            leaveLastError(hasFailed<failing>(result), lastError);
            return result;
        }
    }

  private:
    static R perform(A... arguments) { return answer ? answer(arguments...) : real(arguments...); }

    // What a function leaves there means something only after a failure that it tells in that way.
    static void leaveLastError(bool failed, DWORD lastError) {
        constexpr bool tells = failing != Failing::byCode;
        SetLastError(keepsLastError || (failed && tells) ? lastError : dirt);
    }

    static const void* handle(const auto& argument) {
        using T = std::remove_cvref_t<decltype(argument)>;
        if constexpr (std::is_pointer_v<T>)
            return reinterpret_cast<const void*>(argument);
        else if constexpr (std::is_same_v<T, UINT_PTR>)
            return reinterpret_cast<const void*>(argument);
        else
            return nullptr;
    }

    // What is used comes first, what is given back last.
    static void noteLoan(const Import& import, const A&... arguments) {
        if constexpr (sizeof...(A) > 0) {
            const void* const handles[] = {handle(arguments)...};
            if (import.lends.starts_with('-'))
                ledger::released(import.lends.substr(1), handles[sizeof...(A) - 1]);
            else if (!import.lends.empty() && !import.lends.starts_with('+'))
                ledger::used(import.lends, handles[0]);
        }
    }

    // A function that returns a code puts what it lends where its last argument points.
    static const void* lent(const Result& result, const A&... arguments) {
        if constexpr (failing == Failing::byCode || failing == Failing::byHresult) {
            const void* const handles[] = {handle(arguments)...};
            const void* const place = handles[sizeof...(A) - 1];
            return place != nullptr ? *static_cast<const void* const*>(place) : nullptr;
        } else {
            return handle(result);
        }
    }
};

#define VARNEL_DECLARED(function, module, how, visibility, lends, codes)                                     \
    template<>                                                                                               \
    struct Declared<#function> {                                                                             \
        using Signature = decltype(::function);                                                              \
        static constexpr Failing failing = Failing::how;                                                     \
        static Import row;                                                                                   \
    };
VARNEL_IMPORTS(VARNEL_DECLARED)
#undef VARNEL_DECLARED

// Gives an import its answer for all plays.
template<Name NAME, class ANSWER>
void on(ANSWER answer) {
    Call<NAME>::answer = std::move(answer);
}

// Puts the thunks into the import table of Varnel.dll, for as long as the program runs. What is imported and
// has no row, or the other way round.
std::vector<std::string> redirectImports();
// What is other than it should be in the modules as files.
std::vector<std::string> oddInShippedModules();
