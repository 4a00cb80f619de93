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
    template<class BEHAVIOUR>
    void on(const char* name, const BEHAVIOUR& behaviour) {
        REQUIRE(replace(name, functionOf(behaviour, &BEHAVIOUR::operator())));
    }

  private:
    template<class BEHAVIOUR, class RESULT, class... ARGUMENTS>
    static void* functionOf(const BEHAVIOUR& behaviour, RESULT (BEHAVIOUR::*)(ARGUMENTS...) const) {
        static std::function<RESULT(ARGUMENTS...)> latest;
        latest = behaviour;
        return reinterpret_cast<void*>(+[](ARGUMENTS... with) -> RESULT { return latest(with...); });
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

// Makes those calls of a module fail that the array CALLS has. Those that succeed spoil the last error.
template<const auto& CALLS>
class FailingCalls : ImportTable {
  public:
    explicit FailingCalls(HMODULE module) : ImportTable(module) {
        [this]<std::size_t... ROWS>(std::index_sequence<ROWS...>) {
            ((real[ROWS] = reinterpret_cast<Function>(
                  replace(CALLS[ROWS].name, reinterpret_cast<void*>(&call<ROWS>)))),
             ...);
        }
        (std::make_index_sequence<std::size(CALLS)>());
    }

    // Acts again and again, with the first call failing, then the second, and so on until none is left to
    // fail. Nothing may stay open.
    template<class ACT>
    static void inTurn(const ACT& act) {
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
    // Has as many arguments as any call; those that a function does not have do no harm.
    template<std::size_t ROW>
    static Word call(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j, Word k) {
        const auto& [name, failure, opens] = CALLS[ROW];
        if (opens >= 0 && ++made == failing) {
            failed = name;
            SetLastError(failureCode);
            return name == allocation ? throw std::bad_alloc() : failure;
        }
        const Word result = real[ROW](a, b, c, d, e, f, g, h, i, j, k);
        if (result != failure) {
            open += opens;
            SetLastError(failureCode + 1);
        }
        return result;
    }

    using Function = decltype(&call<0>);
    static inline Function real[std::size(CALLS)];
    static inline int failing, made, open;
};
