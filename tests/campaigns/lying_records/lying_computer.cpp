#include "lying_system.h"
#include "tests/kit/imports.h"
#include "tests/kit/scripted_networks.h"

#include <mprapi.h>

namespace {

constexpr SIZE_T memory = 4 << 20; // bytes that this computer has for one block

Lies* routersLies = nullptr;

// A function of the router, whatever it is asked. Those that connect are told by `Connects`.
template<bool Connects>
DWORD routerFunction(void*, void** connected) {
    if constexpr (Connects)
        *connected = routersLies->oneIn(4) ? nullptr : reinterpret_cast<void*>(ULONG_PTR{0x8000});
    return routersLies->code({ERROR_ACCESS_DENIED, RPC_S_SERVER_UNAVAILABLE});
}

} // namespace

LyingComputer::LyingComputer(Lies& lies_) : lies(lies_) {
    routersLies = &lies;
    on<"HeapAlloc">([guarded = current<"HeapAlloc">()](HANDLE heap, DWORD flags, SIZE_T size) {
        return size <= memory ? guarded(heap, flags, size) : nullptr;
    });
    on<"IsChineseOs">([this] { return yes(); });
    on<"IsWin6Plus">([this] { return yes(); });
    on<"GetIs64Os">([this] { return yes(); });
    on<"IsWin2K">([this] { return yes(); });
    on<"IsWinXP">([this] { return yes(); });
    lieAboutFolders();
    lieAboutFiles();
    lieAboutRegistry();
    lieAboutServices();
    lieAboutRouter();
    lieAboutNetworks();
    lieAboutPort();
}

LyingComputer::~LyingComputer() {
    routersLies = nullptr;
}

WINBOOL LyingComputer::agree() {
    const DWORD code = lies.code({ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_NO_MORE_FILES,
                                  ERROR_SERVICE_DOES_NOT_EXIST, ERROR_SERVICE_EXISTS});
    SetLastError(code);
    return code == 0 ? TRUE : FALSE;
}

void LyingComputer::lieAboutFolders() {
    on<"GetSystemDirectoryA">([this](LPSTR path, UINT room) {
        const std::string told = lies.fill(path, room, folderField, "C:\\Windows\\system32");
        ++lies.answers;
        return lies.oneIn(3) ? UINT{lies.number()} : static_cast<UINT>(told.size());
    });
    on<"SHGetFolderPathA">([this](HWND, int, HANDLE, DWORD, LPSTR path) {
        lies.fill(path, MAX_PATH, folderField, "C:\\all");
        return static_cast<HRESULT>(lies.code({ERROR_FILE_NOT_FOUND}));
    });
    on<"GetWorkingPath">([this] {
        static const std::vector<std::string> paths = {"C:\\peers", "C:\\", "", std::string(258, 'w')};
        return lies.oneOf(paths);
    });
}

WINBOOL LyingComputer::findFile(LPWIN32_FIND_DATAA found) {
    const WINBOOL more = agree();
    if (more == FALSE)
        return FALSE;
    Lies::smear(found, sizeof *found);
    found->dwFileAttributes = lies.oneIn(4) ? lies.number() : FILE_ATTRIBUTE_DIRECTORY;
    const std::string name = lies.fill(found->cFileName, fileNameField, lies.peer());
    if (CheckIdFormat(nullptr, name, nullptr, nullptr, nullptr))
        lies.wanted.push_back(name);
    return TRUE;
}

void LyingComputer::lieAboutFiles() {
    on<"FindFirstFileA">([this](LPCSTR, LPWIN32_FIND_DATAA found) {
        return findFile(found) != FALSE ? reinterpret_cast<HANDLE>(++lastHandle) : INVALID_HANDLE_VALUE;
    });
    on<"FindNextFileA">([this](HANDLE, LPWIN32_FIND_DATAA found) { return findFile(found); });
    on<"FindClose">([](HANDLE) { return TRUE; });
    on<"IsFileExist">([this](const char*) { return yes(); });
    on<"GetPrivateConfigPathName">(&GetPrivateConfigPathName);
    on<"GetFileVersion">([this](const std::string& path) {
        expect(withinFields(path), "a path runs past its field");
        return yes() ? 0ULL : lies.number() * 0x1'0000'0001ULL;
    });
    on<"DeleteFileA">([this](LPCSTR path) {
        const std::string file = path;
        const bool wanted = std::ranges::any_of(
            lies.wanted, [&](const std::string& id) { return file.ends_with("\\" + id + "\\pptp.pbk"); });
        expect(wanted || file.empty() || file.ends_with(".SYS.tmp"), "a foreign file is deleted: " + file);
        return agree();
    });
    // CloseHandle is the system's own, so a file is an event here.
    on<"CreateFileA">([this](LPCSTR path, const auto&...) {
        expect(std::string(path).ends_with(".SYS.tmp"), std::string("a foreign file is written: ") + path);
        return agree() != FALSE ? CreateEventA(nullptr, TRUE, FALSE, nullptr) : INVALID_HANDLE_VALUE;
    });
    on<"WriteFile">([this](HANDLE, LPCVOID, DWORD, LPDWORD written, LPOVERLAPPED) {
        *written = lies.number();
        return agree();
    });
    on<"MoveFileExA">([this](LPCSTR, LPCSTR, DWORD) { return agree(); });
}

LSTATUS LyingComputer::queryValue(LPCSTR name, LPBYTE data, LPDWORD size) {
    static const std::vector<std::string> values = {"ms_pptpminiport", "MS_L2TPMINIPORT", "1", "",
                                                    "system32\\drivers\\kestrin.sys"};
    const bool isCount = std::string(name).ends_with("Endpoints");
    lies.fill(reinterpret_cast<char*>(data), *size, foreignField,
              isCount ? lies.noise(std::min<DWORD>(*size, 8)) : lies.oneOf(values));
    *size = lies.number();
    return static_cast<LSTATUS>(lies.code({ERROR_FILE_NOT_FOUND, ERROR_MORE_DATA, ERROR_KEY_DELETED}));
}

void LyingComputer::lieAboutRegistry() {
    const auto code = [this] {
        return static_cast<LSTATUS>(lies.code({ERROR_FILE_NOT_FOUND, ERROR_KEY_DELETED, ERROR_MORE_DATA}));
    };
    on<"RegOpenKeyExA">([this, code](HKEY, LPCSTR path, DWORD, REGSAM, PHKEY key) {
        expect(withinFields(path), "a key's path runs past its field");
        const LSTATUS result = code();
        *key = reinterpret_cast<HKEY>(result == 0 ? ++lastHandle : ULONG_PTR{lies.number()});
        return result;
    });
    on<"RegCloseKey">([code](HKEY) { return code(); });
    on<"RegQueryInfoKeyA">([this, code](HKEY, LPSTR, LPDWORD, LPDWORD, LPDWORD count, const auto&...) {
        *count = lies.count(3);
        return code();
    });
    on<"RegEnumKeyExA">([this, code](HKEY, DWORD index, LPSTR name, LPDWORD size, const auto&...) {
        if (index >= 4) {
            ++lies.answers;
            return LSTATUS{ERROR_NO_MORE_ITEMS};
        }
        lies.fill(name, *size, keyNameField, "0001");
        *size = lies.number();
        return code();
    });
    on<"RegQueryValueExA">([this](HKEY, LPCSTR name, LPDWORD, LPDWORD, LPBYTE data, LPDWORD size) {
        return queryValue(name, data, size);
    });
    on<"RegSetValueExA">([code](HKEY, LPCSTR, DWORD, DWORD, const BYTE* data, DWORD size) {
        expect(withinFields(std::string(reinterpret_cast<const char*>(data), size)), "a lie is stored");
        return code();
    });
}

void LyingComputer::lieAboutServices() {
    on<"IsServiceEnabled">([this](const char*, bool* exists) {
        if (exists != nullptr && yes())
            *exists = true;
        return yes();
    });
    on<"EnableService">([this](const char*, unsigned long) { return yes(); });
    on<"DisableService">([this](const char*) { return yes(); });
    on<"StopService">([this](const char*) { return yes(); });
    on<"OpenSCManagerA">([this](LPCSTR, LPCSTR, DWORD) { return handleOr<SC_HANDLE>(nullptr); });
    on<"OpenServiceA">([this](SC_HANDLE, LPCSTR, DWORD) { return handleOr<SC_HANDLE>(nullptr); });
    on<"CreateServiceA">(
        [this](SC_HANDLE, LPCSTR, LPCSTR, DWORD, DWORD, DWORD, DWORD, LPCSTR path, const auto&...) {
            expect(withinFields(path), "an image path runs past its field");
            return handleOr<SC_HANDLE>(nullptr);
        });
    const auto tellState = [this](LPSERVICE_STATUS status) {
        Lies::smear(status, sizeof *status);
        status->dwCurrentState = lies.oneIn(2) ? SERVICE_STOP_PENDING : lies.number();
        return agree();
    };
    on<"ControlService">(
        [tellState](SC_HANDLE, DWORD, LPSERVICE_STATUS status) { return tellState(status); });
    on<"QueryServiceStatus">([tellState](SC_HANDLE, LPSERVICE_STATUS status) { return tellState(status); });
    on<"DeleteService">([this](SC_HANDLE) { return agree(); });
    on<"CloseServiceHandle">([this](SC_HANDLE) { return agree(); });
}

void LyingComputer::lieAboutRouter() {
    on<"LoadLibraryA">([this](LPCSTR path) {
        expect(withinFields(path), "a module's path runs past its field");
        return handleOr<HMODULE>(nullptr);
    });
    on<"GetProcAddress">([this](HMODULE, LPCSTR name) -> FARPROC {
        if (lies.oneIn(50))
            return nullptr;
        auto* const function =
            std::string(name).ends_with("ServerConnect") ? &routerFunction<true> : &routerFunction<false>;
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
    });
    on<"FreeLibrary">([](HMODULE) { return TRUE; });
}

void LyingComputer::lieAboutNetworks() {
    network_list::install();
    on<"CoCreateInstance">([this, honest = current<"CoCreateInstance">()](
                               REFCLSID kind, LPUNKNOWN outer, DWORD context, REFIID id, LPVOID* object) {
        network_list::script.nets.clear();
        for (DWORD left = lies.below(5); left > 0; --left) {
            const std::string name = lies.entryName();
            network_list::script.nets.push_back({.name = std::wstring(name.begin(), name.end()),
                                                 .category = static_cast<int>(lies.number()),
                                                 .nameFails = lies.oneIn(9),
                                                 .categoryFails = lies.oneIn(9),
                                                 .setFails = !yes(),
                                                 .networkFails = lies.oneIn(9),
                                                 .nameIsNull = !yes(),
                                                 .connectionIsNull = lies.oneIn(9),
                                                 .networkIsNull = lies.oneIn(9)});
        }
        network_list::script.end = static_cast<HRESULT>(lies.number());
        network_list::script.enumerationFails = lies.oneIn(9);
        return yes() ? honest(kind, outer, context, id, object) : E_FAIL;
    });
}

void LyingComputer::lieAboutPort() {
    on<"socket">([this](int, int, int) { return SOCKET{agree() != FALSE ? ++lastHandle : ~ULONG_PTR{0}}; });
    on<"setsockopt">([this](const auto&...) { return agree() - 1; });
    on<"bind">([this](const auto&...) { return agree() - 1; });
    on<"closesocket">([this](SOCKET) { return agree() - 1; });
    on<"GetPortOccupyProcessW">([this](unsigned short, std::wstring& name) {
        const std::string text = lies.noise(600);
        name.assign(text.begin(), text.end());
        for (wchar_t& unit : name)
            unit = static_cast<wchar_t>(unit + (lies.oneIn(9) ? 0xD800 : 0));
        return yes() ? 4UL : static_cast<unsigned long>(lies.number());
    });
}
