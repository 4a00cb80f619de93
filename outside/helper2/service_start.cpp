#include "outside/Helper2.h"
#include "outside/helper2/scm.h"

#include <optional>
#include <vector>

namespace {

struct Config {
    DWORD serviceType;
    DWORD startType;
};

std::optional<Config> configOf(SC_HANDLE service) {
    static constexpr DWORD maxConfig = 8 * 1024; // bytes, the most that the system gives
    alignas(QUERY_SERVICE_CONFIGA) BYTE buffer[maxConfig];
    const auto config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
    DWORD needed = 0;
    if (!QueryServiceConfigA(service, config, maxConfig, &needed))
        return std::nullopt;
    return Config{config->dwServiceType, config->dwStartType};
}

bool setStartType(SC_HANDLE service, DWORD startType) {
    return ChangeServiceConfigA(service, SERVICE_NO_CHANGE, startType, SERVICE_NO_CHANGE, nullptr, nullptr,
                                nullptr, nullptr, nullptr, nullptr, nullptr) != FALSE;
}

bool leaveDisabledState(SC_HANDLE service, unsigned long mode) {
    const auto config = configOf(service);
    if (!config)
        return false;
    if (config->startType != SERVICE_DISABLED)
        return true;
    if (!(config->serviceType & SERVICE_DRIVER))
        return setStartType(service, SERVICE_AUTO_START);
    return setStartType(service, mode == enableEarliest ? SERVICE_BOOT_START : SERVICE_DEMAND_START);
}

// A paused service has been started, which is what counts; so does the service control manager.
bool isStarted(const SERVICE_STATUS& status) {
    switch (status.dwCurrentState) {
    case SERVICE_RUNNING:
    case SERVICE_PAUSED:
    case SERVICE_PAUSE_PENDING:
    case SERVICE_CONTINUE_PENDING:
        return true;
    default:
        return false;
    }
}

// Somebody else is starting the service, or the system is starting others.
bool mayStillStart(DWORD error) {
    return error == ERROR_SERVICE_ALREADY_RUNNING || error == ERROR_SERVICE_DATABASE_LOCKED;
}

DWORD reasonOfEnd(const SERVICE_STATUS& status) {
    return status.dwWin32ExitCode != NO_ERROR ? status.dwWin32ExitCode : ERROR_SERVICE_NOT_ACTIVE;
}

bool startAndWait(SC_HANDLE service) {
    bool started = false;
    const scm::Patience patience;
    for (;;) {
        SERVICE_STATUS status{};
        if (!QueryServiceStatus(service, &status))
            return false;
        if (isStarted(status))
            return true;
        if (status.dwCurrentState == SERVICE_STOPPED) {
            if (started) {
                SetLastError(reasonOfEnd(status));
                return false;
            }
            started = StartServiceA(service, 0, nullptr) != FALSE;
            if (started)
                continue;
            if (!mayStillStart(GetLastError()))
                return false;
        }
        if (!patience.pause(status))
            return false;
    }
}

} // namespace

bool IsServiceEnabled(const char* name, bool* exists) {
    const auto service = scm::openService(name, SERVICE_QUERY_CONFIG);
    if (!service) {
        // What may not be opened is installed all the same.
        if (exists && GetLastError() == ERROR_ACCESS_DENIED)
            *exists = true;
        return false;
    }
    if (exists)
        *exists = true;
    const auto config = configOf(service.get());
    return config && config->startType != SERVICE_DISABLED;
}

bool EnableService(const char* name, unsigned long mode) {
    const auto service = scm::openService(name, SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG |
                                                    SERVICE_QUERY_STATUS | SERVICE_START);
    return service && leaveDisabledState(service.get(), mode) && startAndWait(service.get());
}

bool DisableService(const char* name) {
    const auto service = scm::openService(name, SERVICE_CHANGE_CONFIG);
    return service && setStartType(service.get(), SERVICE_DISABLED);
}
