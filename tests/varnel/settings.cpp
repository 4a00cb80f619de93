// The registry, the services and TCP port 1723.
#include "computer.h"

namespace {

// The keys that the facts name in short.
const std::map<std::string, std::string> keys = {
    {"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\WinLogon", "WinLogon"},
    {"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}", "Class"},
    {"SYSTEM\\CurrentControlSet\\Services\\Kestrin", "Kestrin"}};

// The keys below one that hold values, in their order.
std::vector<std::string> childrenOf(HKEY key) {
    std::vector<std::string> names;
    for (const std::string& rest : facts().endings("value " + theComputer().thing(key) + "\\"))
        names.push_back(rest.substr(0, rest.find(' ')));
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::string valueFact(HKEY key, const std::string& name) {
    return "value " + theComputer().thing(key) + " " + name;
}

// A fact has a number as it stands, and a text in quotes, which ends with a zero; "raw" says that it does
// not, a number before the quotes its type when that is no plain text's, "of N" the bytes when there are
// more.
std::string dataOf(const std::string& fact) {
    const std::size_t from = fact.find('"') + 1, to = fact.rfind('"');
    if (from == 0) {
        const auto number = static_cast<DWORD>(std::stoul(fact));
        return {reinterpret_cast<const char*>(&number), sizeof number};
    }
    std::string data = fact.substr(from, to - from) + std::string(fact.starts_with("raw") ? 0 : 1, '\0');
    data.resize(std::max<std::size_t>(numberAfter(fact.substr(to + 1), "of"), data.size()));
    return data;
}

std::string factOf(DWORD type, const std::string& data) {
    if (type == REG_DWORD && data.size() == sizeof(DWORD))
        return std::to_string(*reinterpret_cast<const DWORD*>(data.data()));
    const std::string text = data.substr(0, data.find('\0'));
    return (type == REG_SZ ? "" : std::to_string(type) + " ") + '"' + text + '"' +
           (data.size() == text.size() + 1 ? "" : " of " + std::to_string(data.size()));
}

void answerForRegistry() {
    on<"RegOpenKeyExA">([](HKEY root, LPCSTR path, DWORD, REGSAM access, PHKEY key) {
        expect(root == HKEY_LOCAL_MACHINE && access == (KEY_READ | KEY_WRITE),
               "a key is opened with another root or access");
        std::string name = path;
        for (const auto& [full, brief] : keys)
            boost::replace_all(name, full, brief);
        if (facts().endings("value " + name).empty() && !facts().has("key " + name))
            return ERROR_FILE_NOT_FOUND;
        *key = theComputer().lend<HKEY>(name);
        return ERROR_SUCCESS;
    });
    on<"RegQueryInfoKeyA">([](HKEY key, LPSTR, LPDWORD, LPDWORD, LPDWORD count, const auto&...) {
        *count = answers::number(static_cast<DWORD>(childrenOf(key).size()));
    });
    on<"RegEnumKeyExA">([](HKEY key, DWORD index, LPSTR name, LPDWORD size, const auto&...) {
        const std::vector<std::string> names = childrenOf(key);
        if (index >= names.size())
            return ERROR_NO_MORE_ITEMS;
        answers::fill(name, *size, names[index]);
        *size = answers::number(static_cast<DWORD>(names[index].size()));
        return ERROR_SUCCESS;
    });
    on<"RegQueryValueExA">([](HKEY key, LPCSTR name, LPDWORD, LPDWORD, LPBYTE data, LPDWORD size) {
        const std::string* const value = facts().find(valueFact(key, name));
        if (value == nullptr)
            return ERROR_FILE_NOT_FOUND;
        const std::string stored = dataOf(*value);
        const DWORD room = std::exchange(*size, answers::number(static_cast<DWORD>(stored.size())));
        if (room < stored.size())
            return ERROR_MORE_DATA;
        if (answers::lie)
            answers::fill(reinterpret_cast<char*>(data), room, "");
        else
            stored.copy(reinterpret_cast<char*>(data), stored.size());
        return ERROR_SUCCESS;
    });
    on<"RegSetValueExA">([](HKEY key, LPCSTR name, DWORD, DWORD type, const BYTE* data, DWORD size) {
        facts().set(valueFact(key, name), factOf(type, {reinterpret_cast<const char*>(data), size}));
    });
}

// A service's fact says "enabled" or "disabled"; and "fixed" when it cannot be enabled, "stubborn N" when it
// refuses to stop N times, "slow N" when a driver takes N looks to stop, "stays" when it never does, "idle"
// when it does not run.
std::string* serviceNamed(const std::string& name) {
    return facts().find("service " + name);
}

std::string& serviceOf(SC_HANDLE handle) {
    return *serviceNamed(theComputer().thing(handle));
}

void answerForServices() {
    on<"IsServiceEnabled">([](const char* name, bool* exists) {
        const std::string* const service = serviceNamed(name);
        if (exists != nullptr)
            *exists = service != nullptr;
        return service != nullptr && !says(*service, "disabled");
    });
    on<"EnableService">([](const char* name, unsigned long) {
        std::string* const service = serviceNamed(name);
        if (service == nullptr || says(*service, "fixed"))
            return false;
        boost::replace_all(*service, "disabled", "enabled");
        return true;
    });
    on<"DisableService">(
        [](const char* name) { boost::replace_all(*serviceNamed(name), "enabled", "disabled"); });
    on<"StopService">([](const char* name) { return !countDown(*serviceNamed(name), "stubborn"); });
    on<"OpenSCManagerA">([](const auto&...) { return theComputer().lend<SC_HANDLE>("manager"); });
    on<"OpenServiceA">([](SC_HANDLE, LPCSTR name, DWORD) {
        return theComputer().lendIf<SC_HANDLE>(serviceNamed(name) != nullptr, name,
                                               ERROR_SERVICE_DOES_NOT_EXIST);
    });
    on<"CreateServiceA">([](SC_HANDLE, const std::string& name, const std::string& shown, DWORD access,
                            DWORD type, DWORD start, DWORD errors, LPCSTR path, const auto&...) {
        expect(shown == name && access == 0 && type == SERVICE_KERNEL_DRIVER &&
                   errors == SERVICE_ERROR_NORMAL,
               "a service of another kind is created");
        const bool isNew = serviceNamed(name) == nullptr;
        if (isNew)
            facts().set("service " + name, fmt::format("disabled start {} {}", start, path));
        return theComputer().lendIf<SC_HANDLE>(isNew, name, ERROR_SERVICE_EXISTS);
    });
    on<"ControlService">([](SC_HANDLE service, DWORD, LPSERVICE_STATUS status) {
        status->dwCurrentState = SERVICE_STOP_PENDING;
        SetLastError(ERROR_SERVICE_NOT_ACTIVE);
        return !says(serviceOf(service), "idle");
    });
    on<"QueryServiceStatus">([](SC_HANDLE handle, LPSERVICE_STATUS status) {
        std::string& service = serviceOf(handle);
        status->dwCurrentState = answers::number(says(service, "stays")       ? SERVICE_RUNNING
                                                 : countDown(service, "slow") ? SERVICE_STOP_PENDING
                                                                              : SERVICE_STOPPED);
    });
    on<"DeleteService">(
        [](SC_HANDLE service) { return facts().erase("service " + theComputer().thing(service)); });
}

// The port's fact is "held N by PID NAME": for N attempts to bind it.
void answerForPort() {
    on<"socket">([](int, int, int) { return theComputer().lend<SOCKET>("socket"); });
    always<"setsockopt">(0);
    on<"bind">([](SOCKET s, const sockaddr* address, int) {
        const auto& wanted = *reinterpret_cast<const sockaddr_in*>(address);
        expect(wanted.sin_family == AF_INET && wanted.sin_port == htons(1723), "another port is bound");
        facts().set("bound to", inet_ntoa(wanted.sin_addr));
        std::string* const port = facts().find("port");
        SetLastError(s == INVALID_SOCKET ? WSAENOTSOCK : WSAEADDRINUSE);
        if (s == INVALID_SOCKET || port == nullptr)
            return s == INVALID_SOCKET ? SOCKET_ERROR : 0;
        countDown(*port, "held");
        if (numberAfter(*port, "held") == 0)
            facts().erase("port");
        return SOCKET_ERROR;
    });
    on<"GetPortOccupyProcessW">([](unsigned short, std::wstring& name) {
        const std::vector<std::string> port = words(facts().get("port"));
        if (port.size() > 4)
            name.assign(port[4].begin(), port[4].end());
        return answers::number(port.size() > 3 ? std::stoul(port[3]) : 0);
    });
}

} // namespace

void answerForRegistryAndServices() {
    answerForRegistry();
    answerForServices();
    answerForPort();
}
