// Moving public networks of a given name into the private category.
#include "Varnel.h"
#include "call_trace.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "owners.h"

#include <netlistmgr.h>
#include <objbase.h>
#include <oleauto.h>

#include <optional>

namespace {

// COM on this thread for as long as it is needed. A thread that the host gave another mode keeps that mode:
// nothing was added there, so nothing may be taken away.
class ComSession {
  public:
    ComSession() : added(SUCCEEDED(CoInitialize(nullptr))) {}
    ~ComSession() {
        if (added)
            CoUninitialize();
    }
    ComSession(const ComSession&) = delete;
    ComSession& operator=(const ComSession&) = delete;

  private:
    const bool added;
};

template<class Interface>
struct ComInterface {
    using Type = Interface*;
    static Type none() { return nullptr; }
    static void release(Type object) { object->Release(); }
};

struct ComString {
    using Type = BSTR;
    static Type none() { return nullptr; }
    static void release(Type text) { SysFreeString(text); }
};

using Manager = Owner<ComInterface<INetworkListManager>>;
using Connections = Owner<ComInterface<IEnumNetworkConnections>>;
using Connection = Owner<ComInterface<INetworkConnection>>;
using Network = Owner<ComInterface<INetwork>>;

Manager createManager() {
    void* created = nullptr;
    if (FAILED(CoCreateInstance(CLSID_NetworkListManager, nullptr, CLSCTX_ALL, IID_INetworkListManager,
                                &created)))
        LOG_LINE(2, "CoCreateInstance fail");
    return Manager(static_cast<INetworkListManager*>(created));
}

// What a method of `object` hands out; nothing, and a record, when it fails.
template<class Object, class Result>
Owner<ComInterface<Result>> handedOut(Object* object, HRESULT (STDMETHODCALLTYPE Object::*method)(Result**),
                                      const char* failure) {
    Result* result = nullptr;
    if (FAILED((object->*method)(&result)))
        LOG_LINE(2, failure);
    return Owner<ComInterface<Result>>(result);
}

std::wstring lowCase(std::wstring text) {
    Convert2LowCaseW(text);
    return text;
}

// The network's name in lower case; nothing when it cannot be read.
std::optional<std::wstring> nameOf(INetwork* network) {
    BSTR read = nullptr;
    if (FAILED(network->GetName(&read)) || read == nullptr)
        return std::nullopt;
    const Owner<ComString> name(read);
    return lowCase(std::wstring(name.get(), SysStringLen(name.get())));
}

void makePrivate(INetwork* network, const std::string& name) {
    LOG_LINE(1, "GetCategory " + name + ",NLM_NETWORK_CATEGORY_PUBLIC");
    if (FAILED(network->SetCategory(NLM_NETWORK_CATEGORY_PRIVATE)))
        LOG_LINE(2, "SetCategory fail " + name);
    else
        LOG_LINE(1, "SetCategory(NLM_NETWORK_CATEGORY_PRIVATE) success " + name);
}

void settleCategory(INetwork* network, const std::string& name) {
    NLM_NETWORK_CATEGORY category = NLM_NETWORK_CATEGORY_PUBLIC;
    network->GetCategory(&category);
    switch (category) {
    case NLM_NETWORK_CATEGORY_PUBLIC:
        makePrivate(network, name);
        break;
    case NLM_NETWORK_CATEGORY_PRIVATE:
        LOG_LINE(1, "GetCategory " + name + ",NLM_NETWORK_CATEGORY_PRIVATE");
        break;
    case NLM_NETWORK_CATEGORY_DOMAIN_AUTHENTICATED:
        LOG_LINE(1, "GetCategory " + name + ",NLM_NETWORK_CATEGORY_DOMAIN_AUTHENTICATED");
        break;
    }
}

// Whether the network's name contains `wanted`; if so it is private afterwards, unless it refuses.
bool settleNetwork(INetwork* network, const std::wstring& wanted) {
    const std::optional<std::wstring> name = nameOf(network);
    if (!name || name->find(wanted) == std::wstring::npos)
        return false;
    settleCategory(network, unicode2utf8(*name));
    return true;
}

bool settleNetworks(IEnumNetworkConnections* connections, const std::wstring& wanted) {
    bool found = false;
    for (;;) {
        INetworkConnection* next = nullptr;
        ULONG fetched = 0;
        const HRESULT result = connections->Next(1, &next, &fetched);
        const Connection connection(next);
        if (FAILED(result))
            LOG_LINE(2, "GetNetworkConnections fail");
        if (result != S_OK || !connection)
            return found;
        const Network network =
            handedOut(connection.get(), &INetworkConnection::GetNetwork, "GetNetwork fail");
        if (!network)
            return found;
        found = settleNetwork(network.get(), wanted) || found;
    }
}

} // namespace

bool VARNEL::setLocation(const std::string& name) {
    if (!isWin6Plus)
        return true;
    const CallTrace trace("VARNEL::setLocation", name, __LINE__, 1);
    const std::wstring wanted = lowCase(utf82unicode(name));
    const ComSession com;
    const Manager manager = createManager();
    if (!manager)
        return false;
    const Connections connections =
        handedOut(manager.get(), &INetworkListManager::GetNetworkConnections, "GetNetworkConnections fail");
    return connections && settleNetworks(connections.get(), wanted);
}
