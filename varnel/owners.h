// Sole owners of what Windows lends: released when the scope is left, the thread's last error kept.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <ras.h>

#include <utility>

// Puts the thread's last error back as it was.
class LAST_ERROR_KEPT {
  public:
    LAST_ERROR_KEPT() : code(GetLastError()) {}
    ~LAST_ERROR_KEPT() { SetLastError(code); }
    LAST_ERROR_KEPT(const LAST_ERROR_KEPT&) = delete;
    LAST_ERROR_KEPT& operator=(const LAST_ERROR_KEPT&) = delete;

  private:
    DWORD code;
};

// KIND says what the resource is: its type, the value that stands for none, and how it is released.
template<class KIND>
class OWNER {
  public:
    using TYPE = typename KIND::TYPE;

    OWNER() : held(KIND::none()) {}
    explicit OWNER(TYPE resource) : held(resource) {}
    OWNER(OWNER&& other) noexcept : held(other.release()) {}
    OWNER(const OWNER&) = delete;
    OWNER& operator=(const OWNER&) = delete;
    ~OWNER() { reset(); }

    explicit operator bool() const { return held != KIND::none(); }
    TYPE get() const { return held; }
    TYPE release() { return std::exchange(held, KIND::none()); }
    void reset(TYPE resource = KIND::none()) {
        const TYPE old = std::exchange(held, resource);
        if (old != KIND::none()) {
            const LAST_ERROR_KEPT kept;
            KIND::release(old);
        }
    }

  private:
    TYPE held;
};

struct KERNEL_OBJECT {
    using TYPE = HANDLE;
    static TYPE none() { return nullptr; }
    static void release(TYPE object) { CloseHandle(object); }
};

// A mutex that this thread has acquired; its handle is somebody else's.
struct OWNED_MUTEX {
    using TYPE = HANDLE;
    static TYPE none() { return nullptr; }
    static void release(TYPE mutex) { ReleaseMutex(mutex); }
};

struct HEAP_BLOCK {
    using TYPE = void*;
    static TYPE none() { return nullptr; }
    static void release(TYPE block) { HeapFree(GetProcessHeap(), 0, block); }
};

// A connection that nobody has taken over: the service keeps it, and its port, until it is hung up.
struct RAS_CONNECTION {
    using TYPE = HRASCONN;
    static TYPE none() { return nullptr; }
    static void release(TYPE connection) { RasHangUpA(connection); }
};

struct FILE_HANDLE {
    using TYPE = HANDLE;
    static TYPE none() { return INVALID_HANDLE_VALUE; }
    static void release(TYPE file) { CloseHandle(file); }
};

struct FILE_SEARCH {
    using TYPE = HANDLE;
    static TYPE none() { return INVALID_HANDLE_VALUE; }
    static void release(TYPE search) { FindClose(search); }
};

struct REGISTRY_KEY {
    using TYPE = HKEY;
    static TYPE none() { return nullptr; }
    static void release(TYPE key) { RegCloseKey(key); }
};

struct SERVICE_HANDLE {
    using TYPE = SC_HANDLE;
    static TYPE none() { return nullptr; }
    static void release(TYPE service) { CloseServiceHandle(service); }
};
