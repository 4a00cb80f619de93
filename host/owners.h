// Sole owners of what Windows gives.
#pragma once

#include <windows.h>

#include <memory>
#include <type_traits>

struct HandleCloser {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

struct SearchCloser {
    void operator()(HANDLE search) const { FindClose(search); }
};
using Search = std::unique_ptr<void, SearchCloser>;

struct KeyCloser {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

// What gives INVALID_HANDLE_VALUE for none.
inline HANDLE noneIfInvalid(HANDLE handle) {
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}
