#include "computer.h"

#include "privates.h"

namespace {

constexpr char publicPhoneBook[] = "C:\\all\\Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk";

constexpr char usualAddress[] = "10.7.0.2"; // of connections

constexpr char usualFacts[] =
    "windows = XP; bits = 32; level = 3; carried = 5; lock = free;"
    "data folder = C:\\all; system folder = C:\\sys; working folder = C:\\peers; folder .; folder ..;"
    "service TapiSrv = enabled; service RasMan = enabled; service RemoteAccess = enabled;"
    "value WinLogon KeepRasConnections = \"1\";"
    "value Class\\0001 MatchingDeviceId = \"ms_pptpminiport\";"
    "value Class\\0001 MaxWanEndpoints = 32; value Class\\0001 WanEndpoints = 10;"
    "value Class\\0002 MatchingDeviceId = \"ms_l2tpminiport\"; value Class\\0002 WanEndpoints = 5;"
    "entry - stranger by default = somebody's";

DWORD waitForLock() {
    const std::string state = std::exchange(*facts().find("lock"), "free");
    if (state == "held")
        return facts().set("lock", state), WAIT_TIMEOUT;
    theComputer().isMutexOwned = true;
    return state == "abandoned" ? WAIT_ABANDONED : WAIT_OBJECT_0;
}

// Which of the carried images stands at `bytes`, all of it.
std::string imageAt(LPCVOID bytes, DWORD size) {
    HMODULE const library = GetModuleHandleA("Varnel.dll");
    for (const char* name : {"#106", "#108", "#109"}) {
        HRSRC const image = FindResourceA(library, name, "BINRES");
        if (LockResource(LoadResource(library, image)) == bytes && SizeofResource(library, image) == size)
            return name;
    }
    return "other bytes";
}

void answerForWorkingFolder() {
    static std::vector<std::string> listing; // what is still to be found in the working folder
    on<"FindNextFileA">([](HANDLE, LPWIN32_FIND_DATAA found) {
        SetLastError(ERROR_NO_MORE_FILES);
        if (listing.empty())
            return false;
        const bool isFolder = facts().get("folder " + listing[0]) != "plain";
        *found = {};
        found->dwFileAttributes = answers::number(isFolder ? FILE_ATTRIBUTE_DIRECTORY : 0);
        answers::fill(found->cFileName, listing[0]);
        listing.erase(listing.begin());
        return true;
    });
    on<"FindFirstFileA">([](LPCSTR pattern, LPWIN32_FIND_DATAA found) {
        listing = facts().endings("folder ");
        std::string expected = facts().get("working folder");
        expected += expected.ends_with('\\') ? "*" : "\\*";
        if (pattern == expected && Call<"FindNextFileA">::answer(nullptr, found) != FALSE)
            return theComputer().lend<HANDLE>("search");
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    });
}

void answerForFiles() {
    on<"IsFileExist">([](const std::string& path) {
        return facts().has("file " + path) || !facts().endings("entry " + path + " ").empty();
    });
    on<"DeleteFileA">([](const std::string& path) {
        bool found = facts().erase("file " + path);
        if (path.ends_with("pptp.pbk"))
            for (const std::string& name : facts().endings("entry " + path + " "))
                found = facts().erase("entry " + path + " " + name);
        SetLastError(ERROR_FILE_NOT_FOUND);
        return found;
    });
    on<"CreateFileA">([](const std::string& path, const auto&...) {
        facts().set("file " + path, "");
        return theComputer().lend<HANDLE>(path);
    });
    on<"WriteFile">([](HANDLE file, LPCVOID bytes, DWORD size, const auto&...) {
        facts().set("file " + theComputer().thing(file), facts().get("carried") + " " + imageAt(bytes, size));
    });
    on<"MoveFileExA">([](const std::string& from, const std::string& to, DWORD) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        if (!facts().has("file " + from))
            return false;
        facts().set("file " + to, facts().get("file " + from));
        return facts().erase("file " + from);
    });
    on<"GetFileVersion">(
        [](const std::string& path) { return answers::number(facts().number("file " + path)); });
    on<"GetPrivateConfigPathName">([](const std::string& id, const std::string& file) {
        return !id.empty() ? "C:\\peers\\" + id + "\\" + file : std::string();
    });
}

void answerForWaiting() {
    on<"Sleep">([](DWORD ms) { theComputer().clock.pass(ms); });
    on<"GetTickCount">(
        [] { return facts().number("tick") + static_cast<DWORD>(theComputer().clock.elapsed); });
    on<"WaitForSingleObject">([](HANDLE object, DWORD ms) {
        Computer& computer = theComputer();
        return computer.thing(object) == "lock" ? waitForLock() : computer.clock.wait(object, ms);
    });
    on<"OpenMutexA">([](DWORD access, WINBOOL, const std::string& name) {
        expect(access == SYNCHRONIZE && name == "RasPbFile", "another lock is opened");
        return theComputer().lendIf<HANDLE>(facts().has("lock"), "lock", ERROR_FILE_NOT_FOUND);
    });
    on<"ReleaseMutex">([](HANDLE) {
        expect(std::exchange(theComputer().isMutexOwned, false), "a lock is let go that is not owned");
    });
    on<"CloseHandle">(
        [](HANDLE handle) { return theComputer().thing(handle).empty() ? CloseHandle(handle) : TRUE; });
}

} // namespace

void answerForSystem() {
    on<"CheckIdFormat">([](const auto* ids, const std::string& id, auto... out) {
        return facts().has("any id") || CheckIdFormat(ids, id, out...);
    });
    on<"IsChineseOs">([] { return facts().get("language") == "Chinese"; });
    on<"IsWin6Plus">([] { return facts().number("windows") >= 6; });
    on<"GetIs64Os">([] { return facts().number("bits") == 64; });
    on<"IsWin2K">([] { return facts().get("windows") == "2000"; });
    on<"IsWinXP">([] { return facts().get("windows") == "XP"; });
    on<"GetWorkingPath">([] { return facts().get("working folder"); });
    on<"GetSystemDirectoryA">([](LPSTR path, UINT room) {
        const std::string folder = facts().get("system folder");
        answers::fill(path, room, folder);
        return answers::number(static_cast<DWORD>(folder.size()));
    });
    on<"SHGetFolderPathA">([](HWND, int, HANDLE, DWORD, LPSTR path) {
        answers::fill(path, MAX_PATH, facts().get("data folder"));
    });
    on<"logLine">([](int level, const std::string& file, long line, const std::string& text) {
        expect(file == ".\\Varnel" && line > 0 && level <= LOG::level,
               "a record that nobody wants, or from nowhere: ", text);
        journal::lines["log"].push_back(std::to_string(level) + " " + text);
        if (theComputer().showsRecords)
            journal::lines["calls"].push_back("[" + text + "]");
    });
    // What gives back what only exists here.
    always<"FindClose", "FreeLibrary", "CloseServiceHandle">(TRUE);
    always<"RegCloseKey", "closesocket", "MprAdminServerDisconnect", "MprConfigServerDisconnect">(0);
    answerForWaiting();
    answerForWorkingFolder();
    answerForFiles();
}

void Clock::in(DWORD ms, std::function<void()> action) {
    if (ms == 0)
        action();
    else
        agenda.emplace(elapsed + ms, std::move(action));
}

void Clock::passUntil(unsigned long long end, const std::function<bool()>& isOver) {
    while (!isOver()) {
        const auto next = agenda.begin();
        if (next == agenda.end() || next->first > end)
            return void(elapsed = end);
        elapsed = std::max(elapsed, next->first);
        agenda.extract(next).mapped()();
    }
}

void Clock::pass(DWORD ms) {
    passUntil(elapsed + (ms != 0 ? ms : yieldTakes), [] { return false; });
}

DWORD Clock::wait(HANDLE object, DWORD ms) {
    DWORD state = WAIT_TIMEOUT;
    passUntil(elapsed + ms, [&] { return (state = WaitForSingleObject(object, 0)) != WAIT_TIMEOUT; });
    return state;
}

Computer::Computer() {
    present = this;
    for (const std::string& fact : pieces(usualFacts, ';'))
        apply(fact);
    apply(fmt::format("entry {} stranger #0 = somebody's", publicPhoneBook));
    faults::plan({});
    journal::lines.clear();
    complaints.clear();
    privates::onlyClient = false;
    privates::publicPhoneBook = publicPhoneBook;
    privates::callbackIdIndex = 0;
    privates::pptpsrvDialDownCallback = [](const std::string& id) {
        const std::scoped_lock locked(worldLock);
        journal::lines["told"].push_back(id);
        journal::lines["calls"].push_back("told " + id);
    };
}

Computer::~Computer() {
    faults::plan({});
    privates::pptpsrvDialDownCallback = nullptr;
    DIALUP_CALLBACK().clearItems();
}

void Computer::apply(const std::string& item) {
    const std::size_t equals = std::min(item.find(" ="), item.size());
    const std::string name = item.substr(0, equals);
    const std::string value = item.substr(std::min(equals + 3, item.size()));
    if (name.starts_with("no ")) {
        facts.erase(name.substr(3));
    } else if (name.starts_with("up ")) { // PHONEBOOK [ADDRESS] [lingers N]
        const std::vector<std::string> said = words(value);
        lastConnection = reinterpret_cast<HRASCONN>(reinterpret_cast<ULONG_PTR>(lastConnection) + 1);
        connections.push_back({.entryName = name.substr(3),
                               .phoneBook = said.at(0),
                               .address = said.size() % 2 == 0 ? said[1] : usualAddress,
                               .handle = lastConnection,
                               .course = value});
    } else {
        facts.set(name, value);
    }
    if (facts.has("all users unknown"))
        privates::publicPhoneBook.clear();
    LOG::level = static_cast<long>(facts.number("level"));
    privates::isWin6Plus = facts.number("windows") >= 6;
}

Facts Computer::state() const {
    Facts all = facts;
    for (const Connection& connection : connections)
        if (connection.listed || (connection.dialled && !connection.hungUp))
            all.set("up " + connection.entryName,
                    connection.phoneBook +
                        (connection.address == usualAddress ? "" : " " + connection.address));
    return all;
}

Connection* Computer::find(HRASCONN handle) {
    const auto found = std::ranges::find(connections, handle, &Connection::handle);
    return found == connections.end() ? nullptr : &*found;
}

void Computer::settle() {
    expect(privates::items.empty(), "a dial attempt is still registered");
    DIALUP_CALLBACK().clearItems();
    const auto& traces = journal::lines["trace"];
    const auto isBegin = [](const std::string& trace) { return boost::contains(trace, "==>>"); };
    expect(2 * std::ranges::count_if(traces, isBegin) == std::ssize(traces), "an operation is never left");
    expect(!std::exchange(isMutexOwned, false), "the phonebooks' lock is kept");
    ledger::settle();
}
