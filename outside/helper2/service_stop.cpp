#include "outside/Helper2.h"
#include "outside/helper2/scm.h"

#include <optional>
#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;

constexpr DWORD stopAccess = SERVICE_STOP | SERVICE_QUERY_STATUS | SERVICE_ENUMERATE_DEPENDENTS;

// In the order in which they are to be stopped.
std::optional<Names> activeDependents(SC_HANDLE service) {
    std::vector<ENUM_SERVICE_STATUSA> records;
    DWORD needed = 0;
    DWORD count = 0;
    while (!EnumDependentServicesA(service, SERVICE_ACTIVE, records.data(),
                                   static_cast<DWORD>(records.size() * sizeof(ENUM_SERVICE_STATUSA)), &needed,
                                   &count)) {
        if (GetLastError() != ERROR_MORE_DATA)
            return std::nullopt;
        // `needed` counts the names behind the records too; it has
        // grown when a dependent was started meanwhile.
        records.resize(records.size() + needed / sizeof(ENUM_SERVICE_STATUSA) + 1);
    }
    Names names;
    for (DWORD i = 0; i < count; ++i)
        names.emplace_back(records[i].lpServiceName);
    return names;
}

bool stopAndWait(SC_HANDLE service, const scm::Patience& patience);

bool stopDependents(SC_HANDLE service, const scm::Patience& patience) {
    const auto names = activeDependents(service);
    if (!names)
        return false;
    for (const auto& name : *names) {
        const auto dependent = scm::openService(name.c_str(), stopAccess);
        if (!dependent || !stopAndWait(dependent.get(), patience))
            return false;
    }
    return true;
}

// It is being started or stopped, has stopped meanwhile, or a dependent of it has been started meanwhile.
bool mayStillStop(DWORD error) {
    return error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL || error == ERROR_SERVICE_NOT_ACTIVE ||
           error == ERROR_DEPENDENT_SERVICES_RUNNING;
}

bool stopAndWait(SC_HANDLE service, const scm::Patience& patience) {
    for (;;) {
        SERVICE_STATUS status{};
        if (!QueryServiceStatus(service, &status))
            return false;
        if (status.dwCurrentState == SERVICE_STOPPED)
            return true;
        if (status.dwCurrentState != SERVICE_STOP_PENDING) {
            if (!stopDependents(service, patience))
                return false;
            if (!ControlService(service, SERVICE_CONTROL_STOP, &status) && !mayStillStop(GetLastError()))
                return false;
        }
        if (status.dwCurrentState != SERVICE_STOPPED && !patience.pause(status))
            return false;
    }
}

} // namespace

bool StopService(const char* name) {
    const auto service = scm::openService(name, stopAccess);
    return service && stopAndWait(service.get(), scm::Patience());
}
