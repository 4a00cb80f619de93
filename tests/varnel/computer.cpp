#include "computer.h"

#include "imports.h"
#include "privates.h"

#include <cstdio>

namespace {

Computer* present = nullptr;

constexpr const char* usualFacts[] = {
    "windows = XP",
    "lock = free",
    "bits = 32",
    "carried = 5",
    "data folder = C:\\all",
    "system folder = C:\\sys",
    "working folder = C:\\peers",
    "service TapiSrv = enabled",
    "service RasMan = enabled",
    "service RemoteAccess = enabled",
    "value WinLogon KeepRasConnections = \"1\"",
    "value Class\\0001 MatchingDeviceId = \"ms_pptpminiport\"",
    "value Class\\0001 MaxWanEndpoints = 32",
    "value Class\\0001 WanEndpoints = 10",
    "value Class\\0002 MatchingDeviceId = \"ms_l2tpminiport\"",
    "value Class\\0002 WanEndpoints = 5",
    "entry {all} stranger #0 = somebody's",
    "entry - stranger by default = somebody's",
};

constexpr char publicPhoneBook[] = "C:\\all\\Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk";

DWORD waitForLock(Computer& computer) {
    const std::string state = computer.facts.get("lock");
    if (state == "held")
        return WAIT_TIMEOUT;
    computer.facts.set("lock", "free");
    computer.isMutexOwned = true;
    return state == "abandoned" ? WAIT_ABANDONED : WAIT_OBJECT_0;
}

// Which of the carried images stands at `bytes`, and whether all of it is there.
std::string imageAt(LPCVOID bytes, DWORD size) {
    HMODULE const library = GetModuleHandleA("Varnel.dll");
    for (const char* name : {"#106", "#108", "#109"}) {
        HRSRC const image = FindResourceA(library, name, "BINRES");
        if (LockResource(LoadResource(library, image)) == bytes)
            return SizeofResource(library, image) == size ? name : std::string(name) + " cut off";
    }
    return "unknown bytes";
}

BOOL foundNext(std::vector<std::string>& names, LPWIN32_FIND_DATAA found) {
    if (names.empty()) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    *found = {};
    found->dwFileAttributes = answers::number(names.front().ends_with('/') ? 0 : FILE_ATTRIBUTE_DIRECTORY);
    answers::fill(found->cFileName, names.front().substr(0, names.front().find('/')));
    names.erase(names.begin());
    return TRUE;
}

WINBOOL deleteFile(const std::string& path) {
    Facts& facts = theComputer().facts;
    bool found = facts.erase("file " + path);
    if (path.ends_with("pptp.pbk"))
        for (const std::string& name : facts.endings("entry " + path + " "))
            found = facts.erase("entry " + path + " " + name);
    SetLastError(ERROR_FILE_NOT_FOUND);
    return found ? TRUE : FALSE;
}

void answerForFiles() {
    static std::vector<std::string> listing;
    on<"FindFirstFileA">([](LPCSTR pattern, LPWIN32_FIND_DATAA found) {
        Facts& facts = theComputer().facts;
        listing = {".", ".."};
        for (const auto& [name, value] : facts.all()) // "folder NAME", "plain NAME"
            if (name.starts_with("folder "))
                listing.push_back(name.substr(7));
            else if (name.starts_with("plain "))
                listing.push_back(name.substr(6) + "/");
        std::string expected = facts.get("working folder");
        expected += expected.ends_with('\\') ? "*" : "\\*";
        if (pattern != expected || !foundNext(listing, found)) {
            SetLastError(ERROR_PATH_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        return theComputer().lend<HANDLE>("search");
    });
    on<"FindNextFileA">([](HANDLE, LPWIN32_FIND_DATAA found) { return foundNext(listing, found); });
    on<"FindClose">([](HANDLE) { return TRUE; });
    on<"IsFileExist">([](const char* path) {
        const Facts& facts = theComputer().facts;
        return facts.has("file " + std::string(path)) ||
               !facts.endings("entry " + std::string(path) + " ").empty();
    });
    on<"DeleteFileA">([](LPCSTR path) { return deleteFile(path); });
    on<"CreateFileA">([](LPCSTR path, const auto&...) {
        theComputer().facts.set("file " + std::string(path), "");
        return theComputer().lend<HANDLE>(path);
    });
    on<"WriteFile">([](HANDLE file, LPCVOID bytes, DWORD size, LPDWORD, LPOVERLAPPED) {
        Facts& facts = theComputer().facts;
        facts.set("file " + theComputer().thing(file), facts.get("carried") + " " + imageAt(bytes, size));
        return TRUE;
    });
    on<"MoveFileExA">([](LPCSTR from, LPCSTR to, DWORD) -> WINBOOL {
        Facts& facts = theComputer().facts;
        const std::string source = "file " + std::string(from);
        SetLastError(ERROR_FILE_NOT_FOUND);
        if (!facts.has(source))
            return FALSE;
        facts.set("file " + std::string(to), facts.get(source));
        return facts.erase(source) ? TRUE : FALSE;
    });
    on<"GetFileVersion">([](const std::string& path) {
        return static_cast<unsigned long long>(answers::number(theComputer().facts.number("file " + path)));
    });
    on<"GetPrivateConfigPathName">([](const char* id, const char* file) {
        return *id != '\0' ? "C:\\peers\\" + std::string(id) + "\\" + file : std::string();
    });
}

void answerForWaiting() {
    on<"Sleep">([](DWORD ms) { theComputer().clock.pass(ms); });
    on<"GetTickCount">([] {
        const Clock& clock = theComputer().clock;
        return clock.tick + static_cast<DWORD>(clock.elapsed);
    });
    on<"WaitForSingleObject">([](HANDLE object, DWORD ms) {
        return theComputer().thing(object) == "lock" ? waitForLock(theComputer())
                                                     : theComputer().clock.wait(object, ms);
    });
    on<"OpenMutexA">([](DWORD access, WINBOOL, LPCSTR name) -> HANDLE {
        if (access != SYNCHRONIZE || std::string(name) != "RasPbFile")
            complain("another lock is opened");
        SetLastError(ERROR_FILE_NOT_FOUND);
        return theComputer().facts.has("lock") ? theComputer().lend<HANDLE>("lock") : nullptr;
    });
    on<"ReleaseMutex">([](HANDLE) {
        if (!std::exchange(theComputer().isMutexOwned, false))
            complain("a lock is let go that is not owned");
        return TRUE;
    });
    on<"CloseHandle">(
        [](HANDLE handle) { return theComputer().thing(handle).empty() ? CloseHandle(handle) : TRUE; });
}

} // namespace

void answerForSystem() {
    on<"CheckIdFormat">([](const auto* ids, const std::string& id, auto... out) {
        return theComputer().facts.has("any id") || CheckIdFormat(ids, id, out...);
    });
    on<"IsChineseOs">([] { return theComputer().facts.get("language") == "Chinese"; });
    on<"IsWin6Plus">([] { return theComputer().facts.number("windows") >= 6; });
    on<"GetIs64Os">([] { return theComputer().facts.number("bits") == 64; });
    on<"IsWin2K">([] { return theComputer().facts.get("windows") == "2000"; });
    on<"IsWinXP">([] { return theComputer().facts.get("windows") == "XP"; });
    on<"GetWorkingPath">([] { return theComputer().facts.get("working folder"); });
    on<"GetSystemDirectoryA">([](LPSTR path, UINT room) {
        const std::string folder = theComputer().facts.get("system folder");
        answers::fill(path, room, folder);
        return UINT{answers::number(static_cast<DWORD>(folder.size()))};
    });
    on<"SHGetFolderPathA">([](HWND, int, HANDLE, DWORD, LPSTR path) {
        answers::fill(path, MAX_PATH, theComputer().facts.get("data folder"));
        return S_OK;
    });
    on<"logLine">([](int level, const char* file, long line, const std::string& text) {
        if (std::string(file) != ".\\Varnel" || line <= 0 || level > LOG::level)
            complain("a record that nobody wants, or from nowhere: " + text);
        theComputer().log.push_back(std::to_string(level) + " " + text);
        if (theComputer().showsRecords)
            journal::add("[" + text + "]");
    });
    answerForWaiting();
    answerForFiles();
}

void Clock::in(DWORD ms, std::function<void()> action) {
    if (ms == 0)
        action();
    else
        agenda.emplace(elapsed + ms, std::move(action));
}

// Does the next thing on the agenda that is due by `limit`; false when there is none.
bool Clock::actNext(unsigned long long limit) {
    const auto next = agenda.begin();
    if (next == agenda.end() || next->first > limit)
        return false;
    elapsed = std::max(elapsed, next->first);
    const std::function<void()> action = std::move(next->second);
    agenda.erase(next);
    action();
    return true;
}

void Clock::pass(DWORD ms) {
    const unsigned long long end = elapsed + (ms != 0 ? ms : yieldTakes);
    while (actNext(end)) {
    }
    elapsed = end;
}

DWORD Clock::wait(HANDLE object, DWORD ms) {
    const unsigned long long end = elapsed + ms;
    DWORD state = WaitForSingleObject(object, 0);
    while (state == WAIT_TIMEOUT && actNext(end))
        state = WaitForSingleObject(object, 0);
    if (state == WAIT_TIMEOUT)
        elapsed = end;
    return state;
}

Computer::Computer() {
    present = this;
    for (const char* fact : usualFacts)
        apply(fact);
    faults::plan({});
    journal::take();
    takeComplaints();
    LOG::level = 3;
    privates::isWin6Plus = privates::onlyClient = false;
    privates::publicPhoneBook = publicPhoneBook;
    privates::callbackIdIndex = 0;
    privates::pptpsrvDialDownCallback = [](const std::string& id) {
        const std::scoped_lock locked(worldLock());
        theComputer().told.push_back(id);
        journal::add("told " + id);
    };
}

Computer::~Computer() {
    faults::plan({});
    privates::pptpsrvDialDownCallback = nullptr;
    DIALUP_CALLBACK().clearItems();
    releaseHeapPages();
    present = nullptr;
}

Computer& theComputer() {
    return *present;
}

void Computer::apply(const std::string& item) {
    const std::size_t equals = std::min(item.find(" ="), item.size());
    std::string name = item.substr(0, equals);
    std::string value = item.substr(std::min(equals + 3, item.size()));
    for (std::string* text : {&name, &value})
        replaceAll(*text, "{all}", publicPhoneBook);
    if (name.starts_with("no ")) {
        facts.erase(name.substr(3));
    } else if (name.starts_with("up ")) {
        const std::vector<std::string> place = words(value);
        lastConnection = reinterpret_cast<HRASCONN>(reinterpret_cast<ULONG_PTR>(lastConnection) + 1);
        const bool hasAddress = place.size() % 2 == 0; // "PHONEBOOK [ADDRESS] [lingers N]"
        connections.push_back(
            {name.substr(3), place.at(0), hasAddress ? place[1] : "10.7.0.2", lastConnection});
        if (place.size() > 2)
            connections.back().dial.lingers = std::stoul(place.back());
    } else {
        facts.set(name, value);
    }
    if (facts.has("all users unknown"))
        privates::publicPhoneBook.clear();
    clock.tick = facts.number("tick");
    LOG::level = facts.has("level") ? static_cast<long>(facts.number("level")) : 3;
    privates::isWin6Plus = facts.number("windows") >= 6;
}

Facts Computer::state() const {
    Facts all = facts;
    for (const Connection& connection : connections)
        if (connection.listed || (connection.dialled && !connection.hungUp))
            all.set("up " + connection.entryName, connection.phoneBook + " " + connection.address);
    return all;
}

Connection* Computer::find(HRASCONN handle) {
    const auto found = std::ranges::find(connections, handle, &Connection::handle);
    return found == connections.end() ? nullptr : &*found;
}

void Computer::traced(int level, const char* file, long line, const std::string& text) {
    const std::scoped_lock locked(worldLock());
    if (std::string(file) != ".\\Varnel" || line <= 0)
        complain("a trace from nowhere: " + text);
    traces.push_back(std::to_string(level) + " " + text.substr(0, text.find('\n')));
    std::vector<std::string>& operations = entered[GetCurrentThreadId()];
    if (text.starts_with("==>>"))
        operations.push_back(text.substr(4, text.size() - 5));
    else if (operations.empty() || !text.starts_with("<<== " + operations.back() + ",period = "))
        complain("left without having been entered: " + text);
    else
        operations.pop_back();
}

void Computer::settle() {
    if (!privates::items.empty())
        complain("a dial attempt is still registered");
    DIALUP_CALLBACK().clearItems();
    for (auto& [thread, operations] : entered)
        for (const std::string& operation : std::exchange(operations, {}))
            complain("never left: " + operation);
    if (std::exchange(isMutexOwned, false))
        complain("the phonebooks' lock is kept");
    ledger::settle();
}
