// Every function that Varnel.dll imports, less the run-time's but `operator new`, as a call that tests watch,
// replace and make fail.
//
//     on<"RasHangUpA">([](HRASCONN) { return DWORD{668}; });
//
// A behaviour holds until the end of the test; the last one given wins. Behaviours are given before the
// library is called; the calls themselves may come from several threads.
#pragma once

#include "outside/Helper.h"
#include "outside/Helper2.h"
#include "outside/Log.h"

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <new>

#include <objbase.h>
#include <oleauto.h>

#include <optional>

#include <ras.h>
#include <shlobj.h>

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

// How a function tells its caller of a failure: `happened` recognises one, `make` makes one.
namespace failing {

struct WithCode {
    template<class R>
    static bool happened(R result) {
        return result != 0;
    }
    template<class R>
    static R make(DWORD code) {
        return static_cast<R>(code);
    }
};

struct WithZero { // and the code in the thread's last error
    template<class R>
    static bool happened(R result) {
        return result == R{};
    }
    template<class R>
    static R make(DWORD code) {
        SetLastError(code);
        return R{};
    }
};

struct WithMinusOne { // and the code in the thread's last error
    template<class R>
    static bool happened(R result) {
        return result == minusOne<R>();
    }
    template<class R>
    static R make(DWORD code) {
        SetLastError(code);
        return minusOne<R>();
    }
    template<class R>
    static R minusOne() {
        if constexpr (std::is_pointer_v<R>)
            return reinterpret_cast<R>(LONG_PTR{-1});
        else
            return static_cast<R>(-1);
    }
};

struct WithHresult {
    template<class R>
    static bool happened(R result) {
        return result != S_OK;
    }
    template<class R>
    static R make(DWORD code) {
        SetLastError(code);
        return HRESULT_FROM_WIN32(code);
    }
};

struct ByThrowing {
    template<class R>
    static bool happened(const R&) {
        return false;
    }
    template<class R>
    static R make(DWORD) {
        throw std::bad_alloc();
    }
};

struct Never : ByThrowing {};

struct NeverKeepingLastError : Never {};

struct ByThrowingKeepingLastError : ByThrowing {};

} // namespace failing

// A failure to be made: of the nth call of `function`, or of any function when that is empty; once, or from
// there on; with a code, where the function tells one.
struct Fault {
    std::string function;
    long nth;
    bool lasting;
    DWORD code = ERROR_NOT_ENOUGH_MEMORY;
};

class Faults {
  public:
    using Calls = std::map<std::string, long, std::less<>>; // by function

    static void plan(const std::optional<Fault>& fault);
    // Several at once; each counts its own calls.
    static void plan(const std::vector<Fault>& faults);
    // Whether a planned call has come; and which ones have.
    static bool struck() { return !thatStruck().empty(); }
    static std::vector<Fault> thatStruck();
    // The code with which this call of `function` is to fail, if it is.
    static std::optional<DWORD> strikes(std::string_view function);

    // Counts the calls that could fail, until the next plan.
    static void count();
    static Calls counted();

  private:
    struct Planned {
        Fault fault;
        std::atomic<long> calls = 0;
        std::atomic<bool> hasStruck = false;
    };
    static inline std::list<Planned> planned;
    static inline std::optional<Calls> tally;
};

// The calls that matter to the outside, in order, such as "RasHangUpA(1)".
class Journal {
  public:
    static void add(const std::string& line);
    static std::vector<std::string> lines();
    static void clear();
};

template<std::size_t N>
struct Text {
    char chars[N] = {};
    consteval Text(const char (&text)[N]) { std::copy_n(text, N, chars); } // NOLINT: a literal is one
    constexpr std::string_view view() const { return {chars, N - 1}; }
};

template<Text Name>
struct Declared; // Signature, Failing, journaled

#include "imports_table.inc"

// How an argument reads in the journal; pointers to what is not text have no place there.
inline std::optional<std::string> journalText(const char* text) {
    return text != nullptr ? text : "null";
}
inline std::optional<std::string> journalText(const std::string& text) {
    return text;
}
inline std::optional<std::string> journalText(HRASCONN conn) {
    return std::to_string(reinterpret_cast<ULONG_PTR>(conn));
}
inline std::optional<std::string> journalText(RASDIALPARAMSA* params) {
    return params->szEntryName;
}
template<class T>
std::optional<std::string> journalText(const T& argument) {
    if constexpr (std::is_integral_v<T>)
        return std::to_string(argument);
    else
        return std::nullopt;
}

template<class... A>
std::string journalLine(std::string_view name, const A&... arguments) {
    std::string text;
    [[maybe_unused]] const auto append = [&text](const std::optional<std::string>& argument) {
        if (argument)
            text += (text.empty() ? "" : ", ") + *argument;
    };
    (append(journalText(arguments)), ...);
    return std::string(name) + "(" + text + ")";
}

template<Text Name, class Signature = typename Declared<Name>::Signature>
struct Import;

template<Text Name, class R, class... A>
struct Import<Name, R(A...)> {
    using Behaviour = std::function<R(A...)>;
    using Failing = typename Declared<Name>::Failing;
    static constexpr bool canFail = !std::is_base_of_v<failing::Never, Failing>;
    static constexpr bool keepsLastError = std::is_same_v<Failing, failing::NeverKeepingLastError> ||
                                           std::is_same_v<Failing, failing::ByThrowingKeepingLastError>;
    static constexpr DWORD dirt = 0xDEAD;

    static inline R (*real)(A...) = nullptr;
    static inline std::vector<Behaviour> behaviours;
    static inline std::vector<std::function<void(A...)>> before;
    static inline std::vector<std::function<void(const std::conditional_t<std::is_void_v<R>, int, R>&, A...)>>
        after;
    static inline std::atomic<unsigned int> calls;

    static R thunk(A... arguments) {
        ++calls;
        if constexpr (canFail)
            if (const std::optional<DWORD> code = Faults::strikes(Name.view()))
                return Failing::template make<R>(*code);
        if constexpr (Declared<Name>::journaled)
            Journal::add(journalLine(Name.view(), arguments...));
        for (const auto& watch : before)
            watch(arguments...);
        if constexpr (std::is_void_v<R>) {
            perform(arguments...);
            leaveLastError(false, GetLastError());
        } else {
            R result = perform(arguments...);
            const DWORD lastError = GetLastError();
            for (const auto& watch : after)
                watch(result, arguments...);
            leaveLastError(Failing::happened(result), lastError);
            return result;
        }
    }

    static R perform(A... arguments) {
        return behaviours.empty() ? real(arguments...) : behaviours.back()(arguments...);
    }

    // What a function leaves there means something only after a failure that it tells in that way.
    static void leaveLastError(bool failed, DWORD lastError) {
        const bool meaningful = keepsLastError || (failed && !std::is_same_v<Failing, failing::WithCode>);
        SetLastError(meaningful ? lastError : dirt);
    }

    static void forget() {
        behaviours.clear();
        before.clear();
        after.clear();
        calls = 0;
    }
};

// Gives import `Name` a behaviour.
template<Text Name, class F>
void on(F behaviour) {
    Import<Name>::behaviours.emplace_back(std::move(behaviour));
}

// What import `Name` does at present, for a behaviour that builds on it.
template<Text Name>
typename Import<Name>::Behaviour current() {
    if (Import<Name>::behaviours.empty())
        return Import<Name>::real;
    return Import<Name>::behaviours.back();
}

// Watches the calls of import `Name`: `watch` gets the arguments.
template<Text Name, class F>
void before(F watch) {
    Import<Name>::before.emplace_back(std::move(watch));
}

// Watches the results of import `Name`: `watch` gets the result and the arguments.
template<Text Name, class F>
void after(F watch) {
    Import<Name>::after.emplace_back(std::move(watch));
}

template<Text Name>
unsigned int timesCalled() {
    return Import<Name>::calls;
}

// The one import that takes any number of arguments is written out by hand.
struct LogPrint {
    static inline std::function<void(int level, const char* file, long line, const std::string& text)>
        behaviour;
    static void thunk(int level, const char* file, long line, const char* format, ...);
};

// An import, as the table of all has it.
struct Redirection {
    std::string_view module;
    std::string_view name;   // as tests call it
    std::string_view symbol; // as the module exports it
    void* thunk;
    void (*setReal)(void*);
    void (*forget)();
};

const std::vector<Redirection>& redirections();

// Imports that tests leave alone: the last errors themselves, data, and what the compiler's start-up code
// calls.
const std::vector<std::string_view>& importsLeftAlone();
