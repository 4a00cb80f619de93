// Every function through which the library reaches the world, as a call that is recorded, answered by the
// scripted computer, and made to fail. What is known of an import stands in its row of the table.
#pragma once

#include "imports_table.h"

#include <fmt/format.h>

#include <windows.h>

#include <algorithm>
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
void expect(bool holds, std::string_view complaint, std::string_view about = {});
std::vector<std::string> takeComplaints();

// How a function tells its caller of a failure: by its result alone, or by a result and the last error.
enum class Failing { never, byCode, byZero, byMinusOne, byHresult, byThrowing };

struct Import { // a row of the table
    std::string_view name;
    std::string_view module; // none when the library finds it at run time
    std::string_view lends;  // "+kind" lends, "-kind" takes back, "kind" uses
    std::string_view codes;  // that it plausibly fails with
    bool throws;
    void* thunk;
    void (*answerWith)(void* function);
    long calls = 0; // in the present play, and those of them that failed
    long failures = 0;
};

std::vector<Import*>& allImports();
Import& importOf(std::string_view name);

// A failure to be made: of the nth call of an import, once or from there on.
struct Fault {
    Import* import = nullptr;
    long nth = 0;
    bool lasting = false;
    DWORD code = 0;
};

// The failures of the present play.
namespace faults {
void plan(std::vector<Fault> faults); // and counts all imports' calls anew
// The code with which this call is to fail, if it is.
std::optional<DWORD> strikes(Import& import);
} // namespace faults

// What the library was lent and has not given back.
namespace ledger {
// What is used comes first, what is given back last.
void called(const Import& import, const void* first, const void* last);
void acquired(std::string_view kind, const void* resource);
void released(std::string_view kind, const void* resource);
void settle(); // complains of what is still out, and forgets it
} // namespace ledger

// The calls of the present play as text, in order: those that are at most as hidden as is asked.
namespace journal {
inline Seen wanted = Seen::shown;
void add(const std::string& call);
std::vector<std::string> take();
} // namespace journal

// One lock for all that calls do, but for waiting and calling back.
std::recursive_mutex& worldLock();

template<std::size_t N>
struct Name {
    char chars[N] = {};
    consteval Name(const char (&text)[N]) { std::copy_n(text, N, chars); } // NOLINT: a literal is one
    constexpr std::string_view view() const { return {chars, N - 1}; }
};

namespace text {
// How an argument reads in the journal; what points to no text has no place there.
template<class T>
std::string of(const T& argument) {
    if constexpr (std::is_same_v<T, const char*>)
        return argument == nullptr ? "-" : *argument == '\0' ? "\"\"" : argument;
    else if constexpr (std::is_same_v<T, std::string>)
        return of(argument.c_str());
    else if constexpr (std::is_same_v<T, LPRASDIALPARAMSA>)
        return fmt::format("{} {}/{}", argument->szEntryName, argument->szUserName, argument->szPassword);
    else if constexpr (std::is_same_v<T, HRASCONN>)
        return std::to_string(reinterpret_cast<ULONG_PTR>(argument));
    else if constexpr (std::is_integral_v<T> && !std::is_same_v<T, SOCKET>)
        return std::to_string(argument);
    else
        return {};
}
std::string line(std::string_view name, const std::vector<std::string>& arguments);
std::string call(std::string_view name, const auto&... arguments) {
    return line(name, {of(arguments)...});
}
} // namespace text

template<Name NAME, Name MODULE, Failing FAILING, Seen SEEN, Name LENDS, Name CODES, class SIGNATURE>
struct Redirected;

template<Name NAME, Name MODULE, Failing FAILING, Seen SEEN, Name LENDS, Name CODES, class R, class... A>
struct Redirected<NAME, MODULE, FAILING, SEEN, LENDS, CODES, R(A...)> {
    static inline std::function<R(A...)> answer; // the computer's, or the system's own
    static void answerWith(void* function) { answer = reinterpret_cast<R (*)(A...)>(function); }

    static R thunk(A... arguments) {
        std::unique_lock locked(worldLock());
        if (SEEN <= journal::wanted)
            journal::add(text::call(NAME.view(), arguments...));
        const std::initializer_list<const void*> handles = {handle(arguments)..., nullptr};
        const void* const last = sizeof...(A) > 0 ? *(handles.end() - 2) : nullptr;
        ledger::called(row, *handles.begin(), last);
        if (const std::optional<DWORD> code = faults::strikes(row)) {
            leaveLastError(true, *code);
            return failure(*code);
        }
        if constexpr (waits)
            locked.unlock();
        if constexpr (std::is_void_v<R>) {
            answer(arguments...);
            leaveLastError(false, GetLastError());
        } else {
            R result = answer(arguments...);
            const DWORD lastError = GetLastError();
            const bool failed = hasFailed(result);
            if (!failed && LENDS.view().starts_with('+'))
                ledger::acquired(LENDS.view().substr(1),
                                 givesCode ? *static_cast<const void* const*>(last) : handle(result));
            leaveLastError(failed, lastError);
            return result;
        }
    }

    static inline Import row = {NAME.view(),
                                MODULE.view(),
                                LENDS.view(),
                                CODES.view(),
                                FAILING == Failing::byThrowing,
                                reinterpret_cast<void*>(&thunk),
                                &answerWith};

  private:
    static constexpr bool waits =
        NAME.view() == "Sleep" || NAME.view() == "WaitForSingleObject" || NAME.view() == "RasDialA";
    static constexpr bool keepsLastError = NAME.view() == "logLine" || NAME.view() == "newMemory";
    // What such a function lends stands where its last argument points.
    static constexpr bool givesCode = FAILING == Failing::byCode || FAILING == Failing::byHresult;
    static constexpr bool canTell = FAILING != Failing::never && FAILING != Failing::byThrowing;

    static R failure(DWORD code) {
        if constexpr (canTell)
            return (R)(FAILING == Failing::byCode      ? LONG_PTR{code}
                       : FAILING == Failing::byHresult ? HRESULT_FROM_WIN32(code)
                                                       : LONG_PTR{FAILING == Failing::byZero ? 0 : -1});
        throw std::bad_alloc();
    }

    static bool hasFailed(const auto& result) {
        if constexpr (canTell)
            return givesCode ? result != R{} : result == failure(0);
        return false;
    }

    // What a function leaves there means something only after a failure that it tells in that way.
    static void leaveLastError(bool failed, DWORD lastError) {
        constexpr DWORD dirt = 0xDEAD;
        SetLastError(keepsLastError || (failed && FAILING != Failing::byCode) ? lastError : dirt);
    }

    template<class T>
    static const void* handle(const T& argument) {
        if constexpr (std::is_pointer_v<T> || std::is_same_v<T, SOCKET>)
            return (const void*)argument;
        else
            return nullptr;
    }
};

template<Name NAME>
struct Call;
#define VARNEL_CALL(function, module, failing, seen, lends, codes)                                           \
    template<>                                                                                               \
    struct Call<#function>                                                                                   \
        : Redirected<#function, module, Failing::failing, Seen::seen, lends, codes, decltype(::function)> {  \
    };
VARNEL_IMPORTS(VARNEL_CALL)
#undef VARNEL_CALL

// Gives an import its answer for all plays.
template<Name NAME>
void on(auto answer) {
    Call<NAME>::answer = std::move(answer);
}

// Gives imports an answer that is always the same.
template<Name... NAMES>
void always(int result) {
    (on<NAMES>([result](const auto&...) { return result; }), ...);
}

// Puts the thunks into the import table of Varnel.dll, for as long as the program runs. What is imported and
// has no row, or the other way round.
std::vector<std::string> redirectImports();
// What is other than it should be in the modules as files.
std::vector<std::string> oddInShippedModules();
