// What elsewhere is tested against a computer in memory, against the system's own registry, service control
// manager and network list. Only the questions which Windows this is are answered for the system, and the
// redirect driver is the 64-bit image, the only one that a 64-bit system loads.
#include "tests/kit/varnel_test.h"

#include <filesystem>

#include <netlistmgr.h>
#include <shlwapi.h>
#include <winsvc.h>

namespace {

constexpr char serviceKey[] = "SYSTEM\\CurrentControlSet\\Services\\Kestrin";

struct Value {
    DWORD type = REG_NONE;
    std::string data = {}; // as it is stored
    bool operator==(const Value&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Value& value) {
    return out << "type " << value.type << " \"" << value.data << '"';
}

Value text(DWORD type, const std::string& chars) {
    return {type, {chars.c_str(), chars.size() + 1}};
}

Value number(DWORD value) {
    return {REG_DWORD, {reinterpret_cast<const char*>(&value), sizeof value}};
}

Value read(const char* name) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, serviceKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return {};
    Value value;
    char data[1024];
    DWORD size = sizeof data;
    if (RegQueryValueExA(key, name, nullptr, &value.type, reinterpret_cast<BYTE*>(data), &size) ==
        ERROR_SUCCESS)
        value.data.assign(data, size);
    RegCloseKey(key);
    return value;
}

void write(const char* name, const Value& value) {
    if (value.type == REG_NONE)
        SHDeleteValueA(HKEY_LOCAL_MACHINE, serviceKey, name);
    else
        REQUIRE(SHSetValueA(HKEY_LOCAL_MACHINE, serviceKey, name, value.type, value.data.data(),
                            static_cast<DWORD>(value.data.size())) == ERROR_SUCCESS);
}

// Changes the service's start type or the path of its image; SERVICE_NO_CHANGE and null leave them.
void change(const char* service, DWORD startType, const char* path) {
    SC_HANDLE const manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE const opened = OpenServiceA(manager, service, SERVICE_CHANGE_CONFIG);
    CHECK(ChangeServiceConfigA(opened, SERVICE_NO_CHANGE, startType, SERVICE_NO_CHANGE, path, nullptr,
                               nullptr, nullptr, nullptr, nullptr, nullptr));
    CloseServiceHandle(opened);
    CloseServiceHandle(manager);
}

// Wine looks nowhere for an image whose path is relative to the Windows folder, so the path is a full one
// while the driver starts.
bool enableByFullPath(const char* service, unsigned long mode) {
    const Value path = read("ImagePath");
    change(service, SERVICE_NO_CHANGE, privates::pathNameKestrin);
    const bool enabled = EnableService(service, mode);
    change(service, SERVICE_NO_CHANGE, path.data.c_str());
    return enabled;
}

// Wine lets go of a stopped driver's image a moment later; only then is a deleted one gone.
WINBOOL deleteAndWait(LPCSTR path) {
    const WINBOOL deleted = DeleteFileA(path);
    const DWORD start = GetTickCount();
    while (std::filesystem::exists(path) && GetTickCount() - start < 20'000)
        Sleep(10);
    return deleted;
}

bool isInstalled(const char* service) {
    bool exists = false;
    IsServiceEnabled(service, &exists);
    return exists;
}

} // namespace

class RealKestrin : public VarnelTest {
  protected:
    const Value wantedPath = text(REG_EXPAND_SZ, "system32\\drivers\\kestrin.sys");
    const Value wantedStart = number(SERVICE_BOOT_START);

    RealKestrin() {
        on<"GetIs64Os">([] { return false; });
        on<"FindResourceA">([](HMODULE module, LPCSTR name, LPCSTR type) {
            return FindResourceA(module, std::string(name) == "#106" ? "#109" : name, type);
        });
        on<"IsFileExist">(&IsFileExist); // the remote-access service in memory answers for its phonebooks
        on<"DeleteFileA">(&deleteAndWait);
        on<"EnableService">(&enableByFullPath);
        on<"Sleep">([](DWORD ms) { ::Sleep(ms); });
        on<"GetTickCount">([] { return ::GetTickCount(); });
        privates::getPathName();
        privates::uninstallDriverAndDeleteKestrin();
        REQUIRE_FALSE(isInstalled("Kestrin"));
        REQUIRE_FALSE(std::filesystem::exists(file()));
    }
    ~RealKestrin() { privates::uninstallDriverAndDeleteKestrin(); }

    static std::string file() { return privates::pathNameKestrin; }
    void install() {
        REQUIRE(privates::tryinstallDriverAndLaunchKestrin());
        forgetLog();
    }
    Lines correct(const Value& path, const Value& start) {
        write("ImagePath", path);
        write("Start", start);
        forgetLog();
        privates::chkKestrinStartTypeToBoot();
        return log();
    }
};

TEST_CASE_METHOD(RealKestrin, "the redirect driver is installed for boot, runs, and is removed again") {
    REQUIRE(privates::tryinstallDriverAndLaunchKestrin());
    CHECK(log() == Lines{"1 Need to update kestrin driver", "1 Try to install Kestrin " + file()});
    CHECK(read("Start") == wantedStart);
    CHECK(read("Type") == number(SERVICE_KERNEL_DRIVER));
    CHECK(read("ErrorControl") == number(SERVICE_ERROR_NORMAL));
    CHECK(_stricmp(read("ImagePath").data.c_str(), wantedPath.data.c_str()) == 0);
    CHECK(GetFileVersion(file()) == ((4ULL << 48) | 5));

    forgetLog();
    CHECK(privates::tryinstallDriverAndLaunchKestrin());
    CHECK(log().front() == "3 doesnot need to update kestrin driver");
    CHECK(log().at(1) == "3 Kestrin has enabled");

    privates::uninstallDriverAndDeleteKestrin();
    CHECK_FALSE(isInstalled("Kestrin"));
    CHECK_FALSE(std::filesystem::exists(file()));
}

TEST_CASE_METHOD(RealKestrin, "the redirect driver's values in the registry are put right") {
    install();
    const Lines setPath = {"3 set kestrin imagepath success"};
    const Lines setStart = {"3 set kestrin start success"};
    const Lines setBoth = {setPath.front(), setStart.front()};
    struct Case {
        Value path, start;
        Lines lines;
    };
    const Value otherCase = text(REG_EXPAND_SZ, "SYSTEM32\\Drivers\\KESTRIN.SYS");
    for (const auto& [path, start, lines] :
         {Case{otherCase, wantedStart, {}}, Case{text(REG_SZ, "C:\\wrong.sys"), number(4), setBoth},
          Case{text(REG_EXPAND_SZ, "%SystemRoot%\\drivers\\kestrin.sys"), number(3), setBoth},
          Case{text(REG_EXPAND_SZ, ""), number(0), setPath}, Case{wantedPath, number(1), setStart}}) {
        INFO(path << ", " << start);
        CHECK(correct(path, start) == lines);
        CHECK(read("ImagePath") == (lines == setBoth || lines == setPath ? wantedPath : path));
        CHECK(read("Start") == wantedStart);
    }
}

TEST_CASE_METHOD(RealKestrin, "what the registry does not give of the redirect driver is left as it is") {
    install();
    CHECK(correct({}, number(4)) == Lines{"2 Get kestrin imagepath fail, error 2"});
    CHECK(correct(text(REG_SZ, std::string(300, 'x')), number(4)) ==
          Lines{"2 Get kestrin imagepath fail, error 234"});
    CHECK(read("Start") == number(4));
    CHECK(correct(wantedPath, {}) == Lines{"2 Get kestrin start fail, error 2"});
    CHECK(correct(wantedPath, text(REG_SZ, "nought")) == Lines{"2 Get kestrin start fail, error 234"});
    write("Start", wantedStart);
}

TEST_CASE_METHOD(RealKestrin, "a disabled redirect driver starts with the kernel again") {
    install();
    change("Kestrin", SERVICE_DISABLED, nullptr);
    REQUIRE(read("Start") == number(SERVICE_DISABLED));
    CHECK(privates::tryinstallDriverAndLaunchKestrin());
    CHECK(read("Start") == wantedStart);
    CHECK(IsServiceEnabled("Kestrin", nullptr));
    CHECK(logged(1, "Try to enable Kestrin"));
}

// Wine's network list names no network.
TEST_CASE_METHOD(VarnelTest, "networks that do not tell their names are passed over") {
    privates::isWin6Plus = true;
    REQUIRE(SUCCEEDED(CoInitialize(nullptr)));
    void* created = nullptr;
    REQUIRE(SUCCEEDED(
        CoCreateInstance(CLSID_NetworkListManager, nullptr, CLSCTX_ALL, IID_INetworkListManager, &created)));
    auto* const manager = static_cast<INetworkListManager*>(created);
    IEnumNetworkConnections* connections = nullptr;
    REQUIRE(SUCCEEDED(manager->GetNetworkConnections(&connections)));
    int nameless = 0;
    INetworkConnection* connection = nullptr;
    while (connections->Next(1, &connection, nullptr) == S_OK) {
        INetwork* network = nullptr;
        REQUIRE(SUCCEEDED(connection->GetNetwork(&network)));
        BSTR name = nullptr;
        CHECK(network->GetName(&name) == E_NOTIMPL);
        ++nameless;
        network->Release();
        connection->Release();
    }
    connections->Release();
    manager->Release();
    CHECK(nameless > 0);

    CHECK_FALSE(privates::setLocation("Work"));
    CHECK_FALSE(privates::setLocation(""));
    CHECK(log() == Lines{});
    CoUninitialize();
}
