// The functions of the router's library, and the objects of the network list, none of which is real: a
// function is known by its row of the imports, a method by its place in the table of its interface.
#include "computer.h"

namespace {

// The running router and its stored settings have functions that are alike.
template<Name Connect, Name Set>
void answerForPorts(const std::string& what) {
    on<Connect>([what](LPWSTR server, void** handle) {
        expect(server == nullptr, "the router of another computer is asked for");
        *handle = theComputer().lend<void*>(what);
    });
    on<Set>([what](void* handle, DWORD level, LPBYTE buffer) {
        const auto& ports = *reinterpret_cast<const MPR_SERVER_1*>(buffer);
        expect(level == 1 && theComputer().thing(handle) == what,
               "the router's ports are set with another handle or level");
        facts().set(what + " ports",
                    fmt::format("PPTP {}/{} L2TP {}/{}", ports.dwNumPptpPorts, ports.dwPptpPortFlags,
                                ports.dwNumL2tpPorts, ports.dwL2tpPortFlags));
    });
}

void answerForRouter() {
    on<"LoadLibraryA">([](LPCSTR path) { return theComputer().lend<HMODULE>(path); });
    on<"GetProcAddress">(
        [](HMODULE, LPCSTR name) { return reinterpret_cast<FARPROC>(importOf(name).thunk); });
    on<"MprAdminIsServiceRunning">([](LPWSTR) { return facts().has("router runs"); });
    answerForPorts<"MprAdminServerConnect", "MprAdminServerSetInfo">("running");
    answerForPorts<"MprConfigServerConnect", "MprConfigServerSetInfo">("stored");
}

// An object with the methods that the library calls, by their places, and no others. Release stands third.
struct Object {
    using Method = std::pair<std::size_t, std::string_view>;

    void** const table = methods;
    void* methods[24] = {};
    std::size_t network; // the number of the network that it leads to, or comes next

    Object(std::size_t number, std::initializer_list<Method> known) : network(number) {
        methods[2] = importOf("Release").thunk;
        for (const auto& [place, name] : known)
            methods[place] = importOf(name).thunk;
    }
};

template<class Interface>
void give(Interface** object, std::initializer_list<Object::Method> known, std::size_t network = 0) {
    *object = reinterpret_cast<Interface*>(new Object(network, known));
}

std::size_t& networkOf(void* object) {
    return static_cast<Object*>(object)->network;
}

// "network NAME" = "public", "private", "domain" or a number.
std::string nameOf(void* object) {
    return facts().endings("network ").at(networkOf(object));
}

const std::vector<std::string> categories = {"public", "private", "domain"};

} // namespace

void answerForRouterAndNetworks() {
    answerForRouter();
    on<"CoInitialize">([](LPVOID) { ledger::acquired("COM", &categories); });
    on<"CoUninitialize">([] { ledger::released("COM", &categories); });
    on<"CoCreateInstance">([](REFCLSID kind, LPUNKNOWN outer, DWORD context, REFIID id, LPVOID* object) {
        expect(kind == CLSID_NetworkListManager && outer == nullptr && context == CLSCTX_ALL &&
                   id == IID_INetworkListManager,
               "another object is created");
        give(object, {{9, "GetNetworkConnections"}});
    });
    on<"GetNetworkConnections">([](INetworkListManager*, IEnumNetworkConnections** connections) {
        give(connections, {{8, "Next"}});
    });
    on<"Next">([](IEnumNetworkConnections* list, ULONG, INetworkConnection** next, ULONG* fetched) {
        if (networkOf(list) >= facts().endings("network ").size())
            return S_FALSE;
        *fetched = 1;
        give(next, {{7, "GetNetwork"}}, networkOf(list)++);
        ledger::acquired("object", *next);
        return S_OK;
    });
    on<"GetNetwork">([](INetworkConnection* connection, INetwork** network) {
        give(network, {{7, "GetName"}, {18, "GetCategory"}, {19, "SetCategory"}}, networkOf(connection));
    });
    on<"GetName">(
        [](INetwork* network, BSTR* name) { *name = SysAllocString(utf82unicode(nameOf(network)).c_str()); });
    on<"GetCategory">([](INetwork* network, NLM_NETWORK_CATEGORY* category) {
        const std::string name = facts().get("network " + nameOf(network));
        const auto known = std::ranges::find(categories, name) - categories.begin();
        *category = static_cast<NLM_NETWORK_CATEGORY>(
            answers::number(known < 3 ? static_cast<DWORD>(known) : std::stoul(name)));
    });
    on<"SetCategory">([](INetwork* network, NLM_NETWORK_CATEGORY category) {
        facts().set("network " + nameOf(network), categories.at(category));
    });
    on<"Release">([](IUnknown* object) { delete reinterpret_cast<Object*>(object); });
}
