// The functions of the router's library, and the objects of the network list, none of which is real: a
// function is known by its row of the imports, a method by its place in the table of its interface.
#include "computer.h"
#include "imports.h"

#include <algorithm>

namespace {

template<Name NAME>
void* thunkOf() {
    return reinterpret_cast<void*>(&Call<NAME>::thunk);
}

DWORD connectTo(const std::string& what, LPWSTR server, void** handle) {
    if (server != nullptr)
        complain("the router of another computer is asked for");
    *handle = theComputer().lend<void*>(what);
    return 0;
}

DWORD setPorts(const std::string& what, void* handle, DWORD level, LPBYTE buffer) {
    const auto& ports = *reinterpret_cast<const MPR_SERVER_1*>(buffer);
    if (level != 1 || theComputer().thing(handle) != what)
        complain("the router's ports are set with another handle or level");
    theComputer().facts.set(what + " ports", "PPTP " + std::to_string(ports.dwNumPptpPorts) + "/" +
                                                 std::to_string(ports.dwPptpPortFlags) + " L2TP " +
                                                 std::to_string(ports.dwNumL2tpPorts) + "/" +
                                                 std::to_string(ports.dwL2tpPortFlags));
    return 0;
}

void answerForRouter() {
    on<"LoadLibraryA">([](LPCSTR path) { return theComputer().lend<HMODULE>(path); });
    on<"FreeLibrary">([](HMODULE) { return TRUE; });
    on<"GetProcAddress">(
        [](HMODULE, LPCSTR name) { return reinterpret_cast<FARPROC>(importOf(name).thunk); });
    on<"MprAdminIsServiceRunning">(
        [](LPWSTR) { return theComputer().facts.has("router runs") ? TRUE : FALSE; });
    on<"MprAdminServerConnect">(
        [](LPWSTR server, MPR_SERVER_HANDLE* handle) { return connectTo("running", server, handle); });
    on<"MprConfigServerConnect">(
        [](LPWSTR server, HANDLE* handle) { return connectTo("stored", server, handle); });
    on<"MprAdminServerSetInfo">([](MPR_SERVER_HANDLE handle, DWORD level, LPBYTE buffer) {
        return setPorts("running", handle, level, buffer);
    });
    on<"MprConfigServerSetInfo">(
        [](HANDLE handle, DWORD level, LPBYTE buffer) { return setPorts("stored", handle, level, buffer); });
    on<"MprAdminServerDisconnect">([](MPR_SERVER_HANDLE) {});
    on<"MprConfigServerDisconnect">([](HANDLE) {});
}

HRESULT unexpected() {
    complain("a call to the network list that nobody expects");
    return E_NOTIMPL;
}

// An interface's table: what the library calls, and nothing else. Release stands third in each.
struct Table {
    void* methods[24];
    explicit Table(std::initializer_list<std::pair<int, void*>> known) {
        std::ranges::fill(methods, reinterpret_cast<void*>(&unexpected));
        methods[2] = thunkOf<"Release">();
        for (const auto& [index, method] : known)
            methods[index] = method;
    }
};

struct Object {
    void** methods;
    std::size_t network; // the number of the network that it leads to, or comes next
};

template<class INTERFACE>
INTERFACE* make(Table& table, std::size_t network = 0) {
    return reinterpret_cast<INTERFACE*>(new Object{table.methods, network});
}

std::size_t& networkOf(void* object) {
    return static_cast<Object*>(object)->network;
}

// "network NAME" = "public", "private", "domain" or a number.
std::string nameOf(void* object) {
    return theComputer().facts.endings("network ").at(networkOf(object));
}

constexpr const char* categories[] = {"public", "private", "domain"};

} // namespace

void answerForRouterAndNetworks() {
    static Table managers({{9, thunkOf<"GetNetworkConnections">()}});
    static Table lists({{8, thunkOf<"Next">()}});
    static Table connections({{7, thunkOf<"GetNetwork">()}});
    static Table networks(
        {{7, thunkOf<"GetName">()}, {18, thunkOf<"GetCategory">()}, {19, thunkOf<"SetCategory">()}});
    answerForRouter();
    on<"CoInitialize">([](LPVOID) {
        ledger::acquired("COM", &managers);
        return S_OK;
    });
    on<"CoUninitialize">([] { ledger::released("COM", &managers); });
    on<"CoCreateInstance">([](REFCLSID kind, LPUNKNOWN outer, DWORD context, REFIID id, LPVOID* object) {
        if (kind != CLSID_NetworkListManager || outer != nullptr || context != CLSCTX_ALL ||
            id != IID_INetworkListManager)
            complain("another object is created");
        *object = make<INetworkListManager>(managers);
        return S_OK;
    });
    on<"GetNetworkConnections">([](INetworkListManager*, IEnumNetworkConnections** made) {
        *made = make<IEnumNetworkConnections>(lists);
        return S_OK;
    });
    on<"Next">([](IEnumNetworkConnections* list, ULONG, INetworkConnection** next, ULONG* fetched) {
        if (networkOf(list) >= theComputer().facts.endings("network ").size())
            return S_FALSE;
        *next = make<INetworkConnection>(connections, networkOf(list)++);
        *fetched = 1;
        ledger::acquired("object", *next);
        return S_OK;
    });
    on<"GetNetwork">([](INetworkConnection* connection, INetwork** network) {
        *network = make<INetwork>(networks, networkOf(connection));
        return S_OK;
    });
    on<"GetName">([](INetwork* network, BSTR* name) {
        const std::wstring text = utf82unicode(nameOf(network));
        *name = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        return S_OK;
    });
    on<"GetCategory">([](INetwork* network, NLM_NETWORK_CATEGORY* category) {
        const std::string name = theComputer().facts.get("network " + nameOf(network));
        const auto known = std::ranges::find(categories, name) - std::begin(categories);
        *category = static_cast<NLM_NETWORK_CATEGORY>(
            answers::number(known < 3 ? static_cast<DWORD>(known) : std::stoul(name)));
        return S_OK;
    });
    on<"SetCategory">([](INetwork* network, NLM_NETWORK_CATEGORY category) {
        theComputer().facts.set("network " + nameOf(network), categories[category]);
        return S_OK;
    });
    on<"Release">([](IUnknown* object) {
        delete reinterpret_cast<Object*>(object);
        return 0UL;
    });
}
