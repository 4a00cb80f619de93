// What a loaded module imports: replaced for a scope by functions of the test, or made to fail call by call.
#pragma once

#include "tests/kit/import_table.h"

#include <winsock2.h>

#include <catch2/catch.hpp>

#include <windows.h>

#include <cstdint>
#include <functional>

class ModuleImports : public ImportTable {
  public:
    using ImportTable::ImportTable;

    // `behaviour` is a lambda, which may refer to the test's variables.
    template<class Behaviour>
    void on(const char* name, const Behaviour& behaviour) {
        REQUIRE(replace(name, functionOf(behaviour, &Behaviour::operator())));
    }

  private:
    template<class Behaviour, class Result, class... Arguments>
    static void* functionOf(const Behaviour& behaviour, Result (Behaviour::*)(Arguments...) const) {
        static std::function<Result(Arguments...)> latest;
        latest = behaviour;
        return reinterpret_cast<void*>(+[](Arguments... with) -> Result { return latest(with...); });
    }
};

// An argument or result, whatever it means: each has a register or a place of this size.
using Word = std::uintptr_t;

struct FallibleCall {
    std::string_view name;
    Word failure = 0; // what it returns on a failure
    int opens = 0;    // what a success adds to what is open; what closes is not made to fail
};

inline constexpr DWORD failureCode = 4712;
inline constexpr std::string_view allocation = "_Znwy"; // operator new, which throws

// Makes those calls of a module fail that the array has. Those that succeed spoil the last error.
template<const auto& calls>
class FailingCalls : ImportTable {
  public:
    explicit FailingCalls(HMODULE module) : ImportTable(module) {
        replaceEach(std::make_index_sequence<std::size(calls)>());
    }

    // Acts again and again, with the first call failing, then the second, and so on until none is left to
    // fail. Nothing may stay open.
    static void inTurn(const std::function<void()>& act) {
        failing = 0;
        do {
            made = open = 0;
            ++failing;
            failed = {};
            act();
            INFO("call " << failing << ", " << failed);
            CHECK(open == 0);
        } while (!failed.empty());
        CHECK(failing > 1);
    }

    // The call that has failed in this act; empty when none has.
    static inline std::string_view failed;

  private:
    template<std::size_t... rows>
    void replaceEach(std::index_sequence<rows...>) {
        ((real[rows] =
              reinterpret_cast<Function>(replace(calls[rows].name, reinterpret_cast<void*>(&call<rows>)))),
         ...);
    }

    // Has as many arguments as any call; those that a function does not have do no harm.
    template<std::size_t row>
    static Word call(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j, Word k) {
        const auto& [name, failure, opens] = calls[row];
        if (opens >= 0 && ++made == failing) {
            failed = name;
            SetLastError(failureCode);
            return name == allocation ? throw std::bad_alloc() : failure;
        }
        const Word result = real[row](a, b, c, d, e, f, g, h, i, j, k);
        if (result != failure) {
            open += opens;
            SetLastError(failureCode + 1);
        }
        return result;
    }

    using Function = decltype(&call<0>);
    static inline Function real[std::size(calls)];
    static inline int failing, made, open;
};
