// Sole owners of system handles.
#pragma once

#include <windows.h>

#include <memory>

namespace standin {

struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};

using Handle = std::unique_ptr<void, HandleCloser>;

// Takes over what a creating call returned; both of the system's ways to say "none" give an empty owner.
inline Handle owned(HANDLE handle) {
    return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

} // namespace standin
