#include "scripted_networks.h"

#include "complaints.h"
#include "imports.h"

namespace network_list {

namespace {

#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // of the system's interfaces

// An object of the system: born with one reference, which the library is to release once.
template<class Interface>
class Object : public Interface {
  public:
    Object() { ++script.objects; }
    virtual ~Object() { --script.objects; }
    HRESULT WINAPI QueryInterface(REFIID, void**) override { return unexpected(); }
    ULONG WINAPI AddRef() override { return ++references; }
    ULONG WINAPI Release() override {
        const ULONG left = --references;
        if (left == 0)
            delete this;
        return left;
    }
    HRESULT WINAPI GetTypeInfoCount(UINT*) override { return unexpected(); }
    HRESULT WINAPI GetTypeInfo(UINT, LCID, ITypeInfo**) override { return unexpected(); }
    HRESULT WINAPI GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return unexpected(); }
    HRESULT WINAPI Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return unexpected();
    }

  protected:
    static HRESULT unexpected() {
        complain("a call to the network list that nobody expects");
        return E_NOTIMPL;
    }

  private:
    ULONG references = 1;
};

class Network : public Object<INetwork> {
  public:
    explicit Network(Net& net_) : net(net_) {}
    HRESULT WINAPI GetName(BSTR* name) override {
        if (net.nameFails || Faults::strikes("INetwork::GetName"))
            return E_FAIL;
        if (net.nameIsNull)
            return S_OK;
        ++script.texts;
        *name = SysAllocStringLen(net.name.data(), static_cast<UINT>(net.name.size()));
        return S_OK;
    }
    HRESULT WINAPI GetCategory(NLM_NETWORK_CATEGORY* category) override {
        if (net.categoryFails || Faults::strikes("INetwork::GetCategory"))
            return E_FAIL;
        *category = static_cast<NLM_NETWORK_CATEGORY>(net.category);
        return S_OK;
    }
    HRESULT WINAPI SetCategory(NLM_NETWORK_CATEGORY category) override {
        script.calls.push_back("set " + std::to_string(category));
        if (net.setFails || Faults::strikes("INetwork::SetCategory"))
            return E_ACCESSDENIED;
        net.category = category;
        return S_OK;
    }
    HRESULT WINAPI SetName(BSTR) override { return unexpected(); }
    HRESULT WINAPI GetDescription(BSTR*) override { return unexpected(); }
    HRESULT WINAPI SetDescription(BSTR) override { return unexpected(); }
    HRESULT WINAPI GetNetworkId(GUID*) override { return unexpected(); }
    HRESULT WINAPI GetDomainType(NLM_DOMAIN_TYPE*) override { return unexpected(); }
    HRESULT WINAPI GetNetworkConnections(IEnumNetworkConnections**) override { return unexpected(); }
    HRESULT WINAPI GetTimeCreatedAndConnected(DWORD*, DWORD*, DWORD*, DWORD*) override {
        return unexpected();
    }
    HRESULT WINAPI get_IsConnectedToInternet(VARIANT_BOOL*) override { return unexpected(); }
    HRESULT WINAPI get_IsConnected(VARIANT_BOOL*) override { return unexpected(); }
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY*) override { return unexpected(); }

  private:
    Net& net;
};

class Connection : public Object<INetworkConnection> {
  public:
    explicit Connection(Net& net_) : net(net_) {}
    HRESULT WINAPI GetNetwork(INetwork** network) override {
        if (net.networkFails || Faults::strikes("INetworkConnection::GetNetwork"))
            return E_FAIL;
        if (net.networkIsNull)
            return S_OK;
        *network = new Network(net);
        return S_OK;
    }
    HRESULT WINAPI get_IsConnectedToInternet(VARIANT_BOOL*) override { return unexpected(); }
    HRESULT WINAPI get_IsConnected(VARIANT_BOOL*) override { return unexpected(); }
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY*) override { return unexpected(); }
    HRESULT WINAPI GetConnectionId(GUID*) override { return unexpected(); }
    HRESULT WINAPI GetAdapterId(GUID*) override { return unexpected(); }
    HRESULT WINAPI GetDomainType(NLM_DOMAIN_TYPE*) override { return unexpected(); }

  private:
    Net& net;
};

class Connections : public Object<IEnumNetworkConnections> {
  public:
    HRESULT WINAPI Next(ULONG number, INetworkConnection** connection, ULONG* fetched) override {
        if (number != 1)
            return unexpected();
        if (Faults::strikes("IEnumNetworkConnections::Next"))
            return E_FAIL;
        if (position == script.nets.size())
            return script.end;
        Net& net = script.nets[position++];
        if (net.connectionIsNull)
            return S_OK;
        *connection = new Connection(net);
        *fetched = 1;
        return S_OK;
    }
    HRESULT WINAPI get__NewEnum(IEnumVARIANT**) override { return unexpected(); }
    HRESULT WINAPI Skip(ULONG) override { return unexpected(); }
    HRESULT WINAPI Reset() override { return unexpected(); }
    HRESULT WINAPI Clone(IEnumNetworkConnections**) override { return unexpected(); }

  private:
    std::size_t position = 0;
};

class Manager : public Object<INetworkListManager> {
  public:
    HRESULT WINAPI GetNetworkConnections(IEnumNetworkConnections** connections) override {
        if (script.enumerationFails || Faults::strikes("INetworkListManager::GetNetworkConnections"))
            return E_FAIL;
        *connections = new Connections;
        return S_OK;
    }
    HRESULT WINAPI GetNetworks(NLM_ENUM_NETWORK, IEnumNetworks**) override { return unexpected(); }
    HRESULT WINAPI GetNetwork(GUID, INetwork**) override { return unexpected(); }
    HRESULT WINAPI GetNetworkConnection(GUID, INetworkConnection**) override { return unexpected(); }
    HRESULT WINAPI IsConnectedToInternet(VARIANT_BOOL*) override { return unexpected(); }
    HRESULT WINAPI IsConnected(VARIANT_BOOL*) override { return unexpected(); }
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY*) override { return unexpected(); }
};

} // namespace

void install() {
    script = {};
    on<"CoCreateInstance">([](REFCLSID, LPUNKNOWN outer, DWORD context, REFIID id, LPVOID* object) {
        if (outer != nullptr || context != CLSCTX_ALL || id != IID_INetworkListManager)
            complain("another object is created");
        *object = static_cast<INetworkListManager*>(new Manager);
        return S_OK;
    });
    before<"SysFreeString">([](BSTR) { --script.texts; });
}

} // namespace network_list
