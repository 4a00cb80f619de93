// The registry, the services and TCP port 1723.
#include "computer.h"
#include "imports.h"

#include <algorithm>
#include <cstdio>

namespace {

// The keys that the facts name in short.
const std::pair<std::string, std::string> keys[] = {
    {"WinLogon", "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\WinLogon"},
    {"Class", "SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}"},
    {"Kestrin", "SYSTEM\\CurrentControlSet\\Services\\Kestrin"},
};

std::string shortOf(std::string path) {
    for (const auto& [brief, full] : keys)
        if (path.starts_with(full))
            path.replace(0, full.size(), brief);
    return path;
}

// The keys below one that hold values, in their order.
std::vector<std::string> childrenOf(const std::string& key) {
    std::vector<std::string> names;
    for (const std::string& rest : theComputer().facts.endings("value " + key + "\\"))
        if (const std::string name = rest.substr(0, rest.find(' ')); std::ranges::count(names, name) == 0)
            names.push_back(name);
    return names;
}

// A fact has a number as it stands, and a text in quotes, which ends with a zero; "raw" says that it does
// not, a number before the quotes its type when that is no plain text's, "of N" the bytes when there are
// more.
std::string dataOf(const std::string& value) {
    const std::size_t from = value.find('"');
    if (from == std::string::npos) {
        const auto number = static_cast<DWORD>(std::stoul(value));
        return {reinterpret_cast<const char*>(&number), sizeof number};
    }
    const std::size_t to = value.rfind('"');
    std::string data = value.substr(from + 1, to - from - 1);
    if (!value.starts_with("raw"))
        data += '\0';
    if (const std::size_t of = value.find(" of ", to); of != std::string::npos)
        data.resize(std::stoul(value.substr(of + 4)));
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
    on<"RegOpenKeyExA">([](HKEY root, LPCSTR path, DWORD, REGSAM access, PHKEY key) -> LSTATUS {
        if (root != HKEY_LOCAL_MACHINE || access != (KEY_READ | KEY_WRITE))
            complain("a key is opened with another root or access");
        const std::string name = shortOf(path);
        const Facts& facts = theComputer().facts;
        if (facts.endings("value " + name + " ").empty() && childrenOf(name).empty() &&
            !facts.has("key " + name))
            return ERROR_FILE_NOT_FOUND;
        *key = theComputer().lend<HKEY>(name);
        return 0;
    });
    on<"RegCloseKey">([](HKEY) { return LSTATUS{0}; });
    on<"RegQueryInfoKeyA">([](HKEY key, LPSTR, LPDWORD, LPDWORD, LPDWORD count, const auto&...) {
        *count = answers::number(static_cast<DWORD>(childrenOf(theComputer().thing(key)).size()));
        return LSTATUS{0};
    });
    on<"RegEnumKeyExA">([](HKEY key, DWORD index, LPSTR name, LPDWORD size, const auto&...) -> LSTATUS {
        const std::vector<std::string> names = childrenOf(theComputer().thing(key));
        if (index >= names.size())
            return ERROR_NO_MORE_ITEMS;
        answers::fill(name, *size, names[index]);
        *size = answers::number(static_cast<DWORD>(names[index].size()));
        return 0;
    });
    on<"RegQueryValueExA">([](HKEY key, LPCSTR name, LPDWORD, LPDWORD, LPBYTE data, LPDWORD size) -> LSTATUS {
        const std::string fact = "value " + theComputer().thing(key) + " " + name;
        if (!theComputer().facts.has(fact))
            return ERROR_FILE_NOT_FOUND;
        const std::string stored = dataOf(theComputer().facts.get(fact));
        const DWORD room = std::exchange(*size, answers::number(static_cast<DWORD>(stored.size())));
        if (room < stored.size())
            return ERROR_MORE_DATA;
        if (answers::lie)
            answers::fill(reinterpret_cast<char*>(data), room, "");
        else
            stored.copy(reinterpret_cast<char*>(data), stored.size());
        return 0;
    });
    on<"RegSetValueExA">([](HKEY key, LPCSTR name, DWORD, DWORD type, const BYTE* data, DWORD size) {
        theComputer().facts.set("value " + theComputer().thing(key) + " " + name,
                                factOf(type, {reinterpret_cast<const char*>(data), size}));
        return LSTATUS{0};
    });
}

// A service's fact says "enabled" or "disabled"; and "fixed" when it cannot be enabled, "stubborn N" when it
// refuses to stop N times, "slow N" when a driver takes N looks to stop, "stays" when it never does.
std::string serviceFact(const std::string& name) {
    return "service " + name;
}

bool says(const std::string& name, const char* word) {
    return theComputer().facts.get(serviceFact(name)).find(word) != std::string::npos;
}

void nowSays(const std::string& name, const char* before, const char* after) {
    std::string value = theComputer().facts.get(serviceFact(name));
    replaceAll(value, before, after);
    theComputer().facts.set(serviceFact(name), value);
}

// Counts the number behind a word down; whether it was above 0.
bool countsDown(const std::string& name, const std::string& word) {
    std::vector<std::string> said = words(theComputer().facts.get(serviceFact(name)));
    const auto found = std::ranges::find(said, word);
    if (found == said.end() || found + 1 == said.end() || *(found + 1) == "0")
        return false;
    *(found + 1) = std::to_string(std::stoul(*(found + 1)) - 1);
    theComputer().facts.set(serviceFact(name), joined(said, " "));
    return true;
}

SC_HANDLE serviceOr(bool ok, DWORD error, const std::string& name) {
    SetLastError(error);
    return ok ? theComputer().lend<SC_HANDLE>(name) : nullptr;
}

void answerForServices() {
    on<"IsServiceEnabled">([](const char* name, bool* exists) {
        const bool isThere = theComputer().facts.has(serviceFact(name));
        if (exists != nullptr && isThere)
            *exists = true;
        return isThere && !says(name, "disabled");
    });
    on<"EnableService">([](const char* name, unsigned long) {
        if (!theComputer().facts.has(serviceFact(name)) || says(name, "fixed"))
            return false;
        nowSays(name, "disabled", "enabled");
        return true;
    });
    on<"DisableService">([](const char* name) {
        nowSays(name, "enabled", "disabled");
        return true;
    });
    on<"StopService">([](const char* name) { return !countsDown(name, "stubborn"); });
    on<"OpenSCManagerA">([](LPCSTR, LPCSTR, DWORD) { return serviceOr(true, 0, "manager"); });
    on<"OpenServiceA">([](SC_HANDLE, LPCSTR name, DWORD) {
        return serviceOr(theComputer().facts.has(serviceFact(name)), ERROR_SERVICE_DOES_NOT_EXIST, name);
    });
    on<"CreateServiceA">([](SC_HANDLE, LPCSTR name, LPCSTR shown, DWORD access, DWORD type, DWORD start,
                            DWORD errors, LPCSTR path, const auto&...) {
        Facts& facts = theComputer().facts;
        if (shown != std::string(name) || access != 0 || type != SERVICE_KERNEL_DRIVER ||
            errors != SERVICE_ERROR_NORMAL)
            complain("a service of another kind is created");
        const bool isNew = !facts.has(serviceFact(name));
        if (isNew)
            facts.set(serviceFact(name), "disabled start " + std::to_string(start) + " " + path);
        return serviceOr(isNew, ERROR_SERVICE_EXISTS, name);
    });
    on<"ControlService">([](SC_HANDLE service, DWORD, LPSERVICE_STATUS status) -> WINBOOL {
        status->dwCurrentState = SERVICE_STOP_PENDING;
        SetLastError(ERROR_SERVICE_NOT_ACTIVE);
        return says(theComputer().thing(service), "idle") ? FALSE : TRUE;
    });
    on<"QueryServiceStatus">([](SC_HANDLE service, LPSERVICE_STATUS status) {
        const std::string name = theComputer().thing(service);
        status->dwCurrentState = answers::number(says(name, "stays")        ? SERVICE_RUNNING
                                                 : countsDown(name, "slow") ? SERVICE_STOP_PENDING
                                                                            : SERVICE_STOPPED);
        return TRUE;
    });
    on<"DeleteService">([](SC_HANDLE service) {
        return theComputer().facts.erase(serviceFact(theComputer().thing(service))) ? TRUE : FALSE;
    });
    on<"CloseServiceHandle">([](SC_HANDLE) { return TRUE; });
}

// The port's fact is "held N by PID NAME": for N attempts to bind it.
void answerForPort() {
    on<"socket">([](int, int, int) { return theComputer().lend<SOCKET>("socket"); });
    on<"setsockopt">([](const auto&...) { return 0; });
    on<"bind">([](SOCKET s, const sockaddr* address, int) {
        Facts& facts = theComputer().facts;
        const auto& wanted = *reinterpret_cast<const sockaddr_in*>(address);
        std::vector<std::string> port = words(facts.get("port"));
        if (wanted.sin_family != AF_INET || wanted.sin_port != htons(1723))
            complain("another port is bound");
        facts.set("bound to", inet_ntoa(wanted.sin_addr));
        SetLastError(s == INVALID_SOCKET ? WSAENOTSOCK : WSAEADDRINUSE);
        if (s == INVALID_SOCKET || port.empty())
            return s == INVALID_SOCKET ? SOCKET_ERROR : 0;
        port[1] = std::to_string(std::stoul(port[1]) - 1);
        if (port[1] == "0")
            facts.erase("port");
        else
            facts.set("port", joined(port, " "));
        return SOCKET_ERROR;
    });
    on<"closesocket">([](SOCKET) { return 0; });
    on<"GetPortOccupyProcessW">([](unsigned short, std::wstring& name) {
        const std::vector<std::string> port = words(theComputer().facts.get("port"));
        if (port.size() > 4)
            name.assign(port[4].begin(), port[4].end());
        return static_cast<unsigned long>(answers::number(port.size() > 3 ? std::stoul(port[3]) : 0));
    });
}

} // namespace

void answerForRegistryAndServices() {
    answerForRegistry();
    answerForServices();
    answerForPort();
}
