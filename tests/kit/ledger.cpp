#include "ledger.h"

#include "complaints.h"
#include "imports.h"

namespace {

constexpr char handle[] = "handle";
constexpr char mutexHeld[] = "mutex held";
constexpr char serviceHandle[] = "service handle";
constexpr char key[] = "registry key";
constexpr char search[] = "file search";
constexpr char heapBlock[] = "heap block";
constexpr char socketHandle[] = "socket";
constexpr char library[] = "library";
constexpr char com[] = "COM apartment";

const void* asPointer(const void* value) {
    return value;
}
const void* asPointer(UINT_PTR value) {
    return reinterpret_cast<const void*>(value);
}

template<Text Name>
void acquires(Ledger& ledger, const char* kind) {
    after<Name>([&ledger, kind](const auto& result, const auto&...) {
        if (!Import<Name>::Failing::happened(result))
            ledger.acquired(kind, asPointer(result));
    });
}

template<Text Name>
void uses(Ledger& ledger, const char* kind) {
    before<Name>([&ledger, kind](const auto& first, const auto&...) { ledger.used(kind, asPointer(first)); });
}

// Noted before the release, since another thread may be lent the same value right after it.
template<Text Name>
void releases(Ledger& ledger, const char* kind) {
    before<Name>(
        [&ledger, kind](const auto& first, const auto&...) { ledger.released(kind, asPointer(first)); });
}

void watchHandles(Ledger& ledger) {
    acquires<"CreateFileA">(ledger, handle);
    acquires<"OpenMutexA">(ledger, handle);
    acquires<"CreateEventA">(ledger, handle);
    uses<"SetEvent">(ledger, handle);
    uses<"WaitForSingleObject">(ledger, handle);
    uses<"WriteFile">(ledger, handle);
    uses<"ReleaseMutex">(ledger, handle);
    releases<"CloseHandle">(ledger, handle);

    acquires<"FindFirstFileA">(ledger, search);
    uses<"FindNextFileA">(ledger, search);
    releases<"FindClose">(ledger, search);
}

// Only a mutex that its thread owns is released, and none stays owned.
void watchMutexes(Ledger& ledger) {
    static thread_local HANDLE lastOpened;
    after<"OpenMutexA">([](HANDLE mutex, const auto&...) { lastOpened = mutex; });
    before<"CloseHandle">([](HANDLE closed) { lastOpened = closed == lastOpened ? nullptr : lastOpened; });
    after<"WaitForSingleObject">([&ledger](DWORD state, HANDLE object, DWORD) {
        if (object == lastOpened && (state == WAIT_OBJECT_0 || state == WAIT_ABANDONED))
            ledger.acquired(mutexHeld, object);
    });
    releases<"ReleaseMutex">(ledger, mutexHeld);
}

void watchServicesAndKeys(Ledger& ledger) {
    acquires<"OpenSCManagerA">(ledger, serviceHandle);
    acquires<"OpenServiceA">(ledger, serviceHandle);
    acquires<"CreateServiceA">(ledger, serviceHandle);
    uses<"ControlService">(ledger, serviceHandle);
    uses<"QueryServiceStatus">(ledger, serviceHandle);
    uses<"DeleteService">(ledger, serviceHandle);
    releases<"CloseServiceHandle">(ledger, serviceHandle);

    after<"RegOpenKeyExA">([&ledger](LSTATUS code, HKEY, LPCSTR, DWORD, REGSAM, PHKEY opened) {
        if (code == 0)
            ledger.acquired(key, *opened);
    });
    uses<"RegQueryInfoKeyA">(ledger, key);
    uses<"RegEnumKeyExA">(ledger, key);
    uses<"RegQueryValueExA">(ledger, key);
    uses<"RegSetValueExA">(ledger, key);
    releases<"RegCloseKey">(ledger, key);
}

void watchTheRest(Ledger& ledger) {
    acquires<"HeapAlloc">(ledger, heapBlock);
    before<"HeapFree">([&ledger](HANDLE, DWORD, LPVOID block) { ledger.released(heapBlock, block); });

    acquires<"socket">(ledger, socketHandle);
    uses<"setsockopt">(ledger, socketHandle);
    uses<"bind">(ledger, socketHandle);
    releases<"closesocket">(ledger, socketHandle);

    acquires<"LoadLibraryA">(ledger, library);
    uses<"GetProcAddress">(ledger, library);
    releases<"FreeLibrary">(ledger, library);

    after<"CoInitialize">([&ledger](HRESULT result, LPVOID) {
        if (SUCCEEDED(result))
            ledger.acquired(com, nullptr);
    });
    before<"CoUninitialize">([&ledger] { ledger.released(com, nullptr); });
}

} // namespace

Ledger::Ledger() {
    watchHandles(*this);
    watchMutexes(*this);
    watchServicesAndKeys(*this);
    watchTheRest(*this);
}

void Ledger::settle() {
    const std::scoped_lock locked(lock);
    for (auto& [resource, state] : states)
        if (std::exchange(state, state == State::Open ? State::Released : state) == State::Open)
            complain(resource.first + " never released");
}

void Ledger::acquired(const std::string& kind, const void* value) {
    const std::scoped_lock locked(lock);
    State& state = states.try_emplace({kind, value}, State::Released).first->second;
    if (state == State::Open)
        complain(kind + " acquired again before its release");
    state = State::Open;
}

void Ledger::used(const std::string& kind, const void* value) {
    const std::scoped_lock locked(lock);
    const auto found = states.find({kind, value});
    if (found != states.end() && found->second == State::Released)
        complain(kind + " used after its release");
}

void Ledger::released(const std::string& kind, const void* value) {
    const std::scoped_lock locked(lock);
    const auto found = states.find({kind, value});
    if (found == states.end())
        complain(kind + " released that was never acquired");
    else if (std::exchange(found->second, State::Released) == State::Released)
        complain(kind + " released twice");
}
