// The product's functions for services and ports, Helper2.dll. The names are exported unmangled.
//
// All functions may be called from several threads at once. A
// failure leaves its code in the thread's last error.
#pragma once

#include <string>

#ifdef HELPER2_BUILDING
#define HELPER2_API __declspec(dllexport)
#else
#define HELPER2_API __declspec(dllimport)
#endif

// The modes of EnableService: a driver starts on demand, or as early as it can, with the kernel; a program
// starts with Windows in both.
inline constexpr unsigned long enableAsKindDoes = 0;
inline constexpr unsigned long enableEarliest = 2;

// Whether a process is Windows' own System process: the second on Windows 2000, the first since.
constexpr bool isSystemProcess(unsigned long id) {
    return id == 4 || id == 8;
}

extern "C" {

// Whether the service `name` is installed and not disabled. `exists`, unless null, is set to true when it is
// installed and left alone otherwise.
HELPER2_API bool IsServiceEnabled(const char* name, bool* exists);

// Takes the service `name` out of the disabled state and starts it; true once it runs or was running.
// `mode` is the start type that a disabled service gets. A service that is not disabled keeps its start type.
// Waits at most 30 s.
HELPER2_API bool EnableService(const char* name, unsigned long mode);

// Disables the service `name`; a running one goes on until it is stopped.
HELPER2_API bool DisableService(const char* name);

// Stops the service `name` and what depends on it; true once it is stopped or was. Waits at most 30 s.
HELPER2_API bool StopService(const char* name);

// The id of the process that holds local TCP `port` on any IPv4 address, a listener before any other; 0 when
// none is found. `processName` receives the image name of that process ("System" for the system's own) and is
// empty when it cannot be read.
HELPER2_API unsigned long GetPortOccupyProcessW(unsigned short port, std::wstring& processName);

} // extern "C"
