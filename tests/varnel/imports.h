// Every function through which the library reaches the world, as a call that is recorded, answered by the
// scripted computer, and made to fail. What is known of an import stands in its row of the table.
#pragma once

#include "imports_table.h"

#include <boost/preprocessor.hpp>
#include <fmt/format.h>

#include <windows.h>

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// One lock for all that calls do, but for waiting and calling back.
inline std::recursive_mutex worldLock;

// What is found wrong beside what a text says; may be added to from any thread.
inline std::vector<std::string> complaints;
void complain(const std::string& text);
void expect(bool holds, std::string_view complaint, std::string_view about = {});

// How a function tells its caller of a failure: by its result alone, or by a result and the last error.
enum class Failing { never, byCode, byZero, byMinusOne, byHresult, byThrowing };

struct Import { // a row of the table
    std::string_view name;
    std::string_view lends; // "+kind" lends, "-kind" takes back, "kind" uses
    std::string_view codes; // that it plausibly fails with
    Failing failing;
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

// What happens in the present play, as text: "calls" that are at most as hidden as is asked, "log", "trace"
// and "told", the ids of which the host was told.
namespace journal {
inline Seen wanted = Seen::shown;
inline std::map<std::string, std::vector<std::string>> lines;
} // namespace journal

template<std::size_t Size>
struct Name {
    char chars[Size] = {};
    consteval Name(const char (&text)[Size]) { std::copy_n(text, Size, chars); } // NOLINT: a literal is one
    constexpr std::string_view view() const { return {chars, Size - 1}; }
};

namespace text {
// How an argument reads in the journal; what points to no text has no place there.
template<class Argument>
std::string of(const Argument& argument) {
    if constexpr (std::is_same_v<Argument, const char*>)
        return argument == nullptr ? "-" : *argument == '\0' ? "\"\"" : argument;
    else if constexpr (std::is_same_v<Argument, std::string>)
        return of(argument.c_str());
    else if constexpr (std::is_same_v<Argument, LPRASDIALPARAMSA>)
        return fmt::format("{} {}/{}", argument->szEntryName, argument->szUserName, argument->szPassword);
    else if constexpr (std::is_same_v<Argument, HRASCONN>)
        return std::to_string(reinterpret_cast<ULONG_PTR>(argument));
    else if constexpr (std::is_integral_v<Argument> && !std::is_same_v<Argument, SOCKET>)
        return std::to_string(argument);
    else
        return {};
}
std::string line(std::string_view name, const std::vector<std::string>& arguments);
std::string call(std::string_view name, const auto&... arguments) {
    return line(name, {of(arguments)...});
}
} // namespace text

template<Name Function, Failing Fails, Seen Visible, Name Lends, Name Codes, class Signature>
struct Redirected;

template<Name Function, Failing Fails, Seen Visible, Name Lends, Name Codes, class Result, class... Arguments>
struct Redirected<Function, Fails, Visible, Lends, Codes, Result(Arguments...)> {
    static inline std::function<Result(Arguments...)> answer; // the computer's, or the system's own
    static void answerWith(void* function) { answer = reinterpret_cast<Result (*)(Arguments...)>(function); }
    // What has no result of its own succeeds.
    static void answerBy(auto given) {
        using Given = std::invoke_result_t<decltype(given), Arguments...>;
        if constexpr (std::is_void_v<Given> && !std::is_void_v<Result>)
            answer = [=](Arguments... arguments) {
                given(arguments...);
                return Result{Fails == Failing::byZero || Fails == Failing::never};
            };
        else
            answer = std::move(given);
    }

    static Result thunk(Arguments... arguments) {
        std::unique_lock locked(worldLock);
        if (Visible <= journal::wanted)
            journal::lines["calls"].push_back(text::call(Function.view(), arguments...));
        const std::initializer_list<const void*> handles = {nullptr, handle(arguments)..., nullptr};
        const void* const last = *(handles.end() - 2);
        ledger::called(row, *(handles.begin() + 1), last);
        if (const std::optional<DWORD> code = faults::strikes(row)) {
            leaveLastError(true, *code);
            return failure(*code);
        }
        if constexpr (waits)
            locked.unlock();
        if constexpr (std::is_void_v<Result>) {
            answer(arguments...);
            leaveLastError(false, GetLastError());
        } else {
            Result result = answer(arguments...);
            const DWORD lastError = GetLastError();
            const bool failed = hasFailed(result);
            if (!failed && Lends.view().starts_with('+'))
                ledger::acquired(Lends.view().substr(1),
                                 givesCode ? *static_cast<const void* const*>(last) : handle(result));
            leaveLastError(failed, lastError);
            return result;
        }
    }

    static inline Import row = {
        Function.view(), Lends.view(), Codes.view(), Fails, reinterpret_cast<void*>(&thunk), &answerWith};

  private:
    static constexpr bool waits = Function.view() == "Sleep" || Function.view() == "WaitForSingleObject" ||
                                  Function.view() == "RasDialA";
    static constexpr bool keepsLastError = Function.view() == "logLine" || Function.view() == "newMemory";
    // What such a function lends stands where its last argument points.
    static constexpr bool givesCode = Fails == Failing::byCode || Fails == Failing::byHresult;
    static constexpr bool canTell = Fails != Failing::never && Fails != Failing::byThrowing;

    static Result failure(DWORD code) {
        if constexpr (canTell)
            return (Result)(Fails == Failing::byCode      ? LONG_PTR{code}
                            : Fails == Failing::byHresult ? HRESULT_FROM_WIN32(code)
                                                          : LONG_PTR{Fails == Failing::byZero ? 0 : -1});
        throw std::bad_alloc();
    }

    static bool hasFailed(const auto& result) {
        if constexpr (canTell)
            return givesCode ? result != Result{} : result == failure(0);
        return false;
    }

    // What a function leaves there means something only after a failure that it tells in that way.
    static void leaveLastError(bool failed, DWORD lastError) {
        constexpr DWORD dirt = 0xDEAD;
        SetLastError(keepsLastError || (failed && Fails != Failing::byCode) ? lastError : dirt);
    }

    template<class Argument>
    static const void* handle(const Argument& argument) {
        if constexpr (std::is_pointer_v<Argument> || std::is_same_v<Argument, SOCKET>)
            return (const void*)argument;
        else
            return nullptr;
    }
};

template<Name Function>
struct Call;
#define VARNEL_CALL(round, columns, function)                                                                \
    template<>                                                                                               \
    struct Call<BOOST_PP_STRINGIZE(function)>                                                                \
        : Redirected<BOOST_PP_STRINGIZE(function), BOOST_PP_TUPLE_REM() columns, decltype(::function)> {};
#define VARNEL_CALLS(failing, seen, lends, codes, ...)                                                       \
    BOOST_PP_SEQ_FOR_EACH(VARNEL_CALL, (Failing::failing, Seen::seen, lends, codes),                         \
                          BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))
VARNEL_IMPORTS(VARNEL_CALLS)
#undef VARNEL_CALLS
#undef VARNEL_CALL

// Gives an import its answer for all plays.
template<Name Function>
void on(auto answer) {
    Call<Function>::answerBy(std::move(answer));
}

// Gives imports an answer that is always the same.
template<Name... Functions>
void always(int result) {
    (on<Functions>([result](const auto&...) { return result; }), ...);
}

// Puts the thunks into the import table of Varnel.dll, for as long as the program runs. What is imported and
// has no row.
std::vector<std::string> redirectImports();
// What is other than it should be in the modules as files.
std::vector<std::string> oddInShippedModules();
