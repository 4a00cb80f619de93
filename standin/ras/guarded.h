// The edge between callers in C and code that may throw.
#pragma once

#include <windows.h>

#include <exception>
#include <new>

#include <raserror.h>

namespace standin {

// The code that `call` returns, or one for what it threw.
template<class Call>
DWORD guarded(Call call) noexcept {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::exception&) {
        return ERROR_UNKNOWN;
    }
}

} // namespace standin
