// Sole owners of what Windows lends: released when the scope is left, the thread's last error kept.
#pragma once

#include "outside/last_error.h"

#include <windows.h>
#include <ras.h>

#include <utility>

// Kind says what the resource is: its type, the value that stands for none, and how it is released.
template<class Kind>
class Owner {
  public:
    using Type = typename Kind::Type;

    Owner() : held(Kind::none()) {}
    explicit Owner(Type resource) : held(resource) {}
    Owner(Owner&& other) noexcept : held(other.release()) {}
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;
    ~Owner() { reset(); }

    explicit operator bool() const { return held != Kind::none(); }
    Type get() const { return held; }
    Type release() { return std::exchange(held, Kind::none()); }
    void reset(Type resource = Kind::none()) {
        const Type old = std::exchange(held, resource);
        if (old != Kind::none()) {
            const LastErrorKept kept;
            Kind::release(old);
        }
    }

  private:
    Type held;
};

struct KernelObject {
    using Type = HANDLE;
    static Type none() { return nullptr; }
    static void release(Type object) { CloseHandle(object); }
};

// A mutex that this thread has acquired; its handle is somebody else's.
struct OwnedMutex {
    using Type = HANDLE;
    static Type none() { return nullptr; }
    static void release(Type mutex) { ReleaseMutex(mutex); }
};

struct HeapBlock {
    using Type = void*;
    static Type none() { return nullptr; }
    static void release(Type block) { HeapFree(GetProcessHeap(), 0, block); }
};

// A connection that nobody has taken over: the service keeps it, and its port, until it is hung up.
struct RasConnection {
    using Type = HRASCONN;
    static Type none() { return nullptr; }
    static void release(Type connection) { RasHangUpA(connection); }
};

struct FileHandle {
    using Type = HANDLE;
    static Type none() { return INVALID_HANDLE_VALUE; }
    static void release(Type file) { CloseHandle(file); }
};

struct FileSearch {
    using Type = HANDLE;
    static Type none() { return INVALID_HANDLE_VALUE; }
    static void release(Type search) { FindClose(search); }
};

struct RegistryKey {
    using Type = HKEY;
    static Type none() { return nullptr; }
    static void release(Type key) { RegCloseKey(key); }
};

struct ServiceHandle {
    using Type = SC_HANDLE;
    static Type none() { return nullptr; }
    static void release(Type service) { CloseServiceHandle(service); }
};
