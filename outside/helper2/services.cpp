#include "outside/Helper2.h"
#include "outside/helper2/service.h"

using namespace services;

bool IsServiceEnabled(const char* name, bool* exists) {
    const Service service(name, SERVICE_QUERY_CONFIG);
    // What may not be opened is installed.
    if (exists && (service || GetLastError() == ERROR_ACCESS_DENIED))
        *exists = true;
    const auto config = service.config();
    return config && config->startType != SERVICE_DISABLED;
}
