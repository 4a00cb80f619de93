#include "tests/standin/ras_kit.h"

#include <catch2/catch.hpp>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace standin_test {
namespace {

namespace files = std::filesystem;

constexpr char shortTimes[] = "[service]\nlatency = 4\nhang-up-linger = 30\n\n";
constexpr char readyName[] = "StandinRasTest.Ready.";
constexpr char goName[] = "StandinRasTest.Go.";
constexpr DWORD pollPause = 1; // ms

// Deletes what can be deleted: a file that is still mapped cannot.
void discard(const files::path& folder) {
    std::error_code ignored;
    std::vector<files::path> found{folder};
    for (const auto& entry : files::recursive_directory_iterator(folder, ignored))
        found.push_back(entry.path());
    for (auto path = found.rbegin(); path != found.rend(); ++path)
        files::remove(*path, ignored);
}

// Holds the folders of this run; what an earlier run left is discarded.
const files::path& scratchFolder() {
    static const files::path folder = [] {
        const files::path path = files::temp_directory_path() / "standin-ras-test";
        discard(path);
        files::create_directories(path);
        return path;
    }();
    return folder;
}

std::string newFolder() {
    static int count = 0;
    return (scratchFolder() / std::to_string(++count)).string();
}

template<std::size_t size>
void fill(char (&field)[size], const std::string& text) {
    std::memcpy(field, text.c_str(), std::min(text.size() + 1, size));
}

template<std::size_t size>
std::string textOf(const char (&field)[size]) {
    REQUIRE(strnlen(field, size) < size);
    return field;
}

HANDLE sharedEvent(const char* name, DWORD processId) {
    return CreateEventA(nullptr, TRUE, FALSE, (name + std::to_string(processId)).c_str());
}

HANDLE parentsEvent(const char* name) {
    char parent[16]{};
    GetEnvironmentVariableA("STANDIN_RAS_TEST_PARENT", parent, sizeof parent);
    return sharedEvent(name, static_cast<DWORD>(std::stoul(parent)));
}

} // namespace

Computer::Computer(const std::string& peers) : folder(newFolder()) {
    files::create_directories(folder);
    SetEnvironmentVariableA("STANDIN_RAS_FOLDER", folder.c_str());
    describe(peers);
}

Computer::~Computer() {
    // With the first look into another folder the state of this one is let go.
    SetEnvironmentVariableA("STANDIN_RAS_FOLDER", (scratchFolder() / "none").string().c_str());
    statusOf(nullptr);
    discard(folder);
}

void Computer::describe(const std::string& peers) const {
    const bool hasService = peers.find("[service]") != std::string::npos;
    writeText(path("peers.ini"), (hasService ? "" : shortTimes) + peers);
}

void Computer::addEntry(const std::string& name, const std::string& number) const {
    RASENTRYA entry = pptpEntry(number);
    REQUIRE(RasSetEntryPropertiesA(phonebook().c_str(), name.c_str(), &entry, entrySize, nullptr, 0) == 0);
}

RASENTRYA pptpEntry(const std::string& number) {
    RASENTRYA entry{};
    entry.dwSize = entrySize;
    entry.dwfOptions = RASEO_RequireEncryptedPw | RASEO_RequireMsEncryptedPw | RASEO_RequireDataEncryption |
                       RASEO_RequireMsCHAP2;
    fill(entry.szLocalPhoneNumber, number);
    entry.dwfNetProtocols = RASNP_Ip;
    entry.dwFramingProtocol = RASFP_Ppp;
    fill(entry.szDeviceType, "vpn");
    entry.dwIdleDisconnectSeconds = RASIDS_Disabled;
    entry.dwType = RASET_Vpn;
    entry.dwEncryptionType = ET_Require;
    entry.dwVpnStrategy = VS_PptpOnly;
    return entry;
}

RASDIALPARAMSA dialParams(const std::string& entry, const std::string& user, const std::string& password) {
    RASDIALPARAMSA params{};
    params.dwSize = dialParamsSize;
    fill(params.szEntryName, entry);
    fill(params.szUserName, user);
    fill(params.szPassword, password);
    return params;
}

Dial::Dial(const Computer& computer, const std::string& entry, const std::string& password) {
    start(computer, dialParams(entry, "user", password));
}

Dial::Dial(const Computer& computer, const RASDIALPARAMSA& params) {
    start(computer, params);
}

Dial::~Dial() {
    // The notifier may still come until the handle is gone, and a connection that was joined has several
    // references.
    while (handle && RasHangUpA(handle) == ERROR_SUCCESS && statusOf(handle).state == RASCS_Connected)
        continue;
    if (handle)
        CHECK(isGoneInTime(handle));
    const std::lock_guard guard(lock);
    CHECK(isContractKept);
}

void Dial::start(const Computer& computer, RASDIALPARAMSA params) {
    params.dwCallbackId = reinterpret_cast<ULONG_PTR>(this);
    result = RasDialA(nullptr, computer.phonebook().c_str(), &params, 2, reinterpret_cast<void*>(&notify),
                      &handle);
}

DWORD Dial::notify(ULONG_PTR id, DWORD subEntry, HRASCONN connection, UINT message, RASCONNSTATE state,
                   DWORD error, DWORD extendedError) {
    auto& dial = *reinterpret_cast<Dial*>(id);
    const std::lock_guard guard(dial.lock);
    dial.isContractKept = dial.isContractKept && subEntry == 1 && connection && message == WM_RASDIALEVENT &&
                          extendedError == 0 && !dial.hasEnded();
    dial.notifiedHandle = connection;
    const bool wantsMore = !dial.whenNotified || dial.whenNotified(dial, state);
    dial.notifications.emplace_back(state, error);
    dial.changed.notify_all();
    return wantsMore;
}

bool Dial::hasEnded() const {
    return !notifications.empty() &&
           (notifications.back().second != 0 || notifications.back().first >= RASCS_DONE);
}

Dial::Heard Dial::waitFor(RASCONNSTATE state) {
    std::unique_lock guard(lock);
    const auto isHeard = [&] {
        return hasEnded() || (!notifications.empty() && notifications.back().first == state);
    };
    CHECK(changed.wait_for(guard, std::chrono::milliseconds(patience), isHeard));
    return notifications;
}

Dial::Heard Dial::heard() {
    const std::lock_guard guard(lock);
    return notifications;
}

HRASCONN Dial::handleHeard() {
    const std::lock_guard guard(lock);
    return notifiedHandle;
}

Status statusOf(HRASCONN handle) {
    RASCONNSTATUSA status;
    std::memset(&status, 'x', sizeof status);
    status.dwSize = statusSize;
    const DWORD result = RasGetConnectStatusA(handle, &status);
    if (result != 0)
        return {result, RASCS_OpenPort, 0, {}, {}};
    return {result, status.rasconnstate, status.dwError, textOf(status.szDeviceName),
            textOf(status.szPhoneNumber)};
}

bool isGoneInTime(HRASCONN handle) {
    for (const DWORD start = GetTickCount(); GetTickCount() - start < patience; Sleep(pollPause))
        if (statusOf(handle).result == ERROR_INVALID_HANDLE)
            return true;
    return false;
}

std::vector<std::string> connectedEntries() {
    std::vector<char> buffer(connSize * 256, 'x');
    std::memcpy(buffer.data(), &connSize, sizeof connSize);
    DWORD bytes = static_cast<DWORD>(buffer.size());
    DWORD count = 0;
    REQUIRE(RasEnumConnectionsA(reinterpret_cast<RASCONNA*>(buffer.data()), &bytes, &count) == 0);
    REQUIRE(bytes == count * connSize);
    std::vector<std::string> names;
    for (DWORD i = 0; i < count; ++i) {
        RASCONNA connection{};
        std::memcpy(&connection, buffer.data() + i * connSize, connSize);
        CHECK(connection.dwSize == connSize);
        names.push_back(textOf(connection.szEntryName));
    }
    return names;
}

std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    REQUIRE(file.good());
}

Child::Child(const std::string& name)
    : ready(sharedEvent(readyName, GetCurrentProcessId())), go(sharedEvent(goName, GetCurrentProcessId())) {
    ResetEvent(ready);
    ResetEvent(go);
    SetEnvironmentVariableA("STANDIN_RAS_TEST_PARENT", std::to_string(GetCurrentProcessId()).c_str());
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string command = "\"" + std::string(program) + "\" \"" + name + "\"";
    // What a child counts and reports is no part of this program's report.
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    const HANDLE silence = CreateFileA("NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                       OPEN_EXISTING, 0, nullptr);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = silence;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    const BOOL isStarted = CreateProcessA(program, command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                          nullptr, &startup, &process);
    CloseHandle(silence);
    REQUIRE(isStarted);
    CloseHandle(process.hThread);
}

Child::~Child() {
    TerminateProcess(process.hProcess, 1);
    WaitForSingleObject(process.hProcess, patience);
    CloseHandle(process.hProcess);
    CloseHandle(ready);
    CloseHandle(go);
}

bool Child::isReadyInTime() const {
    return WaitForSingleObject(ready, patience) == WAIT_OBJECT_0;
}

void Child::letGo() const {
    SetEvent(go);
}

void Child::kill() const {
    TerminateProcess(process.hProcess, 1);
    REQUIRE(WaitForSingleObject(process.hProcess, patience) == WAIT_OBJECT_0);
}

DWORD Child::exitCode() const {
    DWORD code = STILL_ACTIVE;
    REQUIRE(WaitForSingleObject(process.hProcess, patience) == WAIT_OBJECT_0);
    GetExitCodeProcess(process.hProcess, &code);
    return code;
}

void Child::signalParent() {
    SetEvent(parentsEvent(readyName));
}

void Child::waitForParent() {
    REQUIRE(WaitForSingleObject(parentsEvent(goName), patience) == WAIT_OBJECT_0);
}

} // namespace standin_test
