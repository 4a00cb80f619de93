// Asks a computer's remote access, one by one, for what the library relies on.
#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>

#include <ras.h>
#include <raserror.h>

#include <set>

#include <shlwapi.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr char usage[] =
    R"(usage: standin_probes --server ADDRESS --user NAME --password-file FILE
                      [--unreachable ADDRESS] [--silent ADDRESS] [--busy ADDRESS]

Asks the remote access of this computer for what the library relies on, and says of each point whether it is so.
It dials the VPN server at ADDRESS as NAME, with the password in the first line of FILE, and removes what it made.

  --unreachable ADDRESS  an address at which nobody answers
  --silent ADDRESS       a server that never answers a dial (stand-in only)
  --busy ADDRESS         a server whose dials are refused at once (stand-in only)

Exit codes: 0 all is so or a known difference, 1 something is not so, 2 wrong arguments.
)";

// What is asked: the steps, one by one, and the answers that they give one after the other. A known
// difference is another line of answers, with which the library gets along; "*" is anything.
struct Probe {
    const char* behaviour;
    const char* steps;
    const char* answers;
    const char* difference = nullptr;
    const char* otherAnswers = nullptr;
};

constexpr Probe probes[] = {
    {"entries are written, overwritten and listed", "write one; write two; write one; entries",
     "0 0 0 one,two"},
    {"a phonebook that is not there has no entries", "entries", "none", "missing-phonebook-621", "621"},
    {"a list of entries that does not fit gives 603 and the room wanted",
     "write one; write two; entries short", "0 0 wants 1064"},
    {"an entry is renamed; 183 for a name that is taken, 623 for a missing entry",
     "write one; write two; rename one three; rename three TWO; rename one four; entries",
     "0 0 0 183 623 three,two"},
    {"an entry is deleted; 623 for a missing one", "write one; delete one; entries; delete one",
     "0 0 none 623", "missing-entry-123", "0 0 none 123"},
    {"a user name is stored and given back, without a password", "write one; store one somebody; stored one",
     "0 0 0 somebody"},
    {"records of another size are refused with 632", "write one; sizes", "0 632"},
    {"remote access has texts for its own codes alone", "text 691 512; text 691 4; text 5 512", "0 122 87"},
    {"a dial of a missing entry gives 623 and no handle", "write one; dial two; status", "0 623 6"},
    {"a dial is told up to the connection, in the usual states", "write one; dial one; end; told",
     "0 0 connected 0,1,2,3,4,5,6,14,10,18,8192", "other-states", "0 0 connected *"},
    {"the notifier is called on another thread, with its id and the handle",
     "write one; dial one; end; tellers", "0 0 connected another", "several-threads",
     "0 0 connected several"},
    {"the answer 0 ends the notifications, and the dial goes on",
     "write one; dial one quietly; settled; told", "0 0 8192/0 0,1,2"},
    {"a connection's status is free of errors", "write one; dial one; end; status", "0 0 connected 8192/0"},
    {"a wrong password ends in 691, which the status tells until the hang-up",
     "write one; dial one wrongly; end; status; hangup; gone", "0 0 failed 691 6/691 0 yes",
     "failed-in-other-state", "0 0 failed 691 */691 0 yes"},
    {"an unreachable address ends in 800, which the status tells until the hang-up",
     "write one unreachable; dial one; end; status; hangup; gone", "0 0 failed 800 2/800 0 yes",
     "unreachable-other-code", "0 0 failed * * 0 yes"},
    {"a dial waits for a silent server until it is hung up",
     "write one silent; dial one; pause; status; hangup; gone; told", "0 0 0 2/0 0 yes 0,1,2"},
    {"a dial that is refused at once gives 756 and no handle", "write one busy; dial one; status", "0 756 6"},
    {"an entry that is being dialled gives 756", "write one; dial one; dial one; settled", "0 0 756 8192/0"},
    {"a dial of a connected entry joins it, and each needs a hang-up",
     "write one; dial one; end; dial one; end; connections; hangup; status; hangup; gone",
     "0 0 connected 0 connected one 0 8192/0 0 yes"},
    {"a handle is unknown (6) soon after its hang-up, and gives 668 to a second one before",
     "write one; dial one; end; hangup; hangup; gone; hangup; status; connections",
     "0 0 connected 0 668 yes 6 6 none", "second-hang-up-6", "0 0 connected 0 6 yes 6 6 none"},
    {"a dial that is hung up tells no more", "write one; dial one; hangup; gone; ended", "0 0 0 yes no",
     "told-of-hang-up", "0 0 0 yes yes"},
    {"a list of connections that does not fit gives 603 and the room wanted",
     "write one; dial one; end; connections; connections short", "0 0 connected one 603 more"},
    {"a connection tells its address", "write one; dial one; end; address; hangup; gone; address",
     "0 0 connected dotted 0 yes 6"},
    {"a connection outlives the process that dialled it", "write one; elsewhere; connections", "0 0 one",
     "ends-with-its-process", "0 0 none"},
};

struct NotAsked {};

using Words = std::vector<std::string>;
using Options = std::map<std::string, std::string>;

// The sizes that the library sends, whatever the headers' own records have.
constexpr DWORD entrySize = 2088;
constexpr DWORD dialParamsSize = 1064;
constexpr DWORD entryNameSize = 532;
constexpr DWORD connectionSize = 696;
constexpr DWORD statusSize = 288;
constexpr DWORD projectionSize = 48;
constexpr DWORD roomForMany = 64; // records

constexpr DWORD goneTimeout = 3'000; // ms, that of the library
constexpr DWORD endTimeout = 90'000; // ms
constexpr DWORD silence = 1'000;     // ms
constexpr DWORD poll = 10;           // ms

template<class Condition>
bool isInTime(DWORD timeout, Condition condition) {
    const DWORD start = GetTickCount();
    while (!condition() && GetTickCount() - start < timeout)
        Sleep(poll);
    return condition();
}

std::string joined(const Words& words, char between) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : std::string(1, between)) + word;
    return text.empty() ? "none" : text;
}

Words split(const std::string& text, char between) {
    Words words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream >> std::ws, word, between);)
        words.push_back(word);
    return words;
}

// What the notifier of a dial was told.
struct Told {
    std::mutex lock = {};
    std::vector<std::pair<RASCONNSTATE, DWORD>> states = {};
    std::set<DWORD> threads = {};
    std::set<HRASCONN> handles = {};
    RASCONNSTATE lastWanted = RASCS_Interactive; // it answers 0 to this
};

std::deque<Told> dials(1); // by callback id, for the life of the program: a notification may come late

DWORD CALLBACK notify(ULONG_PTR id, DWORD, HRASCONN handle, UINT, RASCONNSTATE state, DWORD error, DWORD) {
    Told& told = dials[id];
    const std::scoped_lock locked(told.lock);
    told.states.emplace_back(state, error);
    told.threads.insert(GetCurrentThreadId());
    told.handles.insert(handle);
    return state != told.lastWanted;
}

// Remote access with a phonebook of its own. With the object that goes, and all that was dialled from it.
struct Computer {
    const Options& options;
    std::string folder;
    std::string file = folder + "\\probes.pbk";
    std::vector<HRASCONN> dialled = {nullptr}; // the latest dial that has a handle is the last one

    ~Computer();
    const char* phonebook() const { return file.c_str(); }
    HRASCONN handle() const { return dialled.back(); }
    std::string option(const std::string& name) const {
        return options.contains("--" + name) ? options.at("--" + name) : throw NotAsked();
    }
};

template<class Record>
Record sized(DWORD size) {
    Record record{};
    record.dwSize = size;
    return record;
}

RASENTRYA pptpEntry(const std::string& server, DWORD size = entrySize) {
    auto entry = sized<RASENTRYA>(size);
    entry.dwfOptions = RASEO_RequireEncryptedPw | RASEO_RequireMsEncryptedPw | RASEO_RequireDataEncryption |
                       RASEO_RequireMsCHAP2;
    server.copy(entry.szLocalPhoneNumber, RAS_MaxPhoneNumber);
    entry.dwfNetProtocols = RASNP_Ip;
    entry.dwFramingProtocol = RASFP_Ppp;
    std::strcpy(entry.szDeviceType, RASDT_Vpn);
    entry.dwIdleDisconnectSeconds = RASIDS_Disabled;
    entry.dwType = RASET_Vpn;
    entry.dwEncryptionType = ET_Require;
    entry.dwVpnStrategy = VS_PptpOnly;
    return entry;
}

RASDIALPARAMSA dialParams(const std::string& entry, const std::string& user, DWORD size = dialParamsSize) {
    auto params = sized<RASDIALPARAMSA>(size);
    entry.copy(params.szEntryName, RAS_MaxEntryName);
    user.copy(params.szUserName, UNLEN);
    return params;
}

RASCONNSTATUSA statusOf(HRASCONN handle, DWORD& code) {
    auto status = sized<RASCONNSTATUSA>(statusSize);
    code = RasGetConnectStatusA(handle, &status);
    return status;
}

bool isGone(HRASCONN handle) {
    DWORD code = 0;
    return isInTime(goneTimeout, [&] { return statusOf(handle, code), code == ERROR_INVALID_HANDLE; });
}

// The connections from the computer's phonebook.
std::vector<RASCONNA> connectionsOf(const Computer& computer) {
    std::vector<char> buffer(roomForMany * connectionSize);
    std::memcpy(buffer.data(), &connectionSize, sizeof connectionSize);
    auto bytes = static_cast<DWORD>(buffer.size());
    DWORD count = 0;
    RasEnumConnectionsA(reinterpret_cast<RASCONNA*>(buffer.data()), &bytes, &count);
    std::vector<RASCONNA> found(count);
    for (DWORD i = 0; i < count; ++i)
        std::memcpy(&found[i], &buffer[i * connectionSize], connectionSize);
    std::erase_if(found, [&](auto& each) { return lstrcmpiA(each.szPhonebook, computer.phonebook()) != 0; });
    return found;
}

Computer::~Computer() {
    for (const RASCONNA& connection : connectionsOf(*this))
        dialled.push_back(connection.hrasconn);
    for (const HRASCONN each : dialled)
        if (RasHangUpA(each) == ERROR_SUCCESS)
            isGone(each);
    for (const char* entry : {"one", "two", "three"}) // and what the system keeps with them elsewhere
        RasDeleteEntryA(phonebook(), entry);
    DeleteFileA(phonebook());
    RemoveDirectoryA(folder.c_str());
}

// The steps. Each takes the words that it is called with, itself the first, and answers.

std::string write(Computer& computer, const Words& words) {
    auto entry = pptpEntry(computer.option(words[2].empty() ? "server" : words[2]));
    return std::to_string(
        RasSetEntryPropertiesA(computer.phonebook(), words[1].c_str(), &entry, entrySize, nullptr, 0));
}

std::string entries(Computer& computer, const Words& words) {
    std::vector<RASENTRYNAMEA> records(roomForMany, sized<RASENTRYNAMEA>(entryNameSize));
    DWORD bytes = words[1] == "short" ? entryNameSize : roomForMany * entryNameSize;
    DWORD count = 0;
    const DWORD code = RasEnumEntriesA(nullptr, computer.phonebook(), records.data(), &bytes, &count);
    if (code == ERROR_BUFFER_TOO_SMALL)
        return "wants " + std::to_string(bytes);
    Words names;
    for (DWORD i = 0; code == ERROR_SUCCESS && i < count; ++i)
        names.emplace_back(records[i].szEntryName);
    return code == ERROR_SUCCESS ? joined(names, ',') : std::to_string(code);
}

std::string store(Computer& computer, const Words& words) {
    RASDIALPARAMSA params = dialParams(words[1], words[2]);
    return std::to_string(RasSetEntryDialParamsA(computer.phonebook(), &params, TRUE));
}

std::string stored(Computer& computer, const Words& words) {
    RASDIALPARAMSA params = dialParams(words[1], {});
    BOOL hasPassword = TRUE;
    const DWORD code = RasGetEntryDialParamsA(computer.phonebook(), &params, &hasPassword);
    return std::to_string(code) + " " + params.szUserName + (hasPassword ? " with password" : "");
}

// The codes that records of no known size get.
std::string sizes(Computer& computer, const Words&) {
    RASENTRYA entry = pptpEntry("10.0.0.1", 1);
    RASDIALPARAMSA params = dialParams("one", "user", 1);
    auto name = sized<RASENTRYNAMEA>(1);
    auto connection = sized<RASCONNA>(1);
    auto status = sized<RASCONNSTATUSA>(1);
    BOOL hasPassword = FALSE;
    DWORD bytes = 4096, count = 0;
    HRASCONN handle = nullptr;
    const char* const path = computer.phonebook();
    const std::set<DWORD> codes{
        RasSetEntryPropertiesA(path, "one", &entry, entrySize, nullptr, 0),
        RasSetEntryDialParamsA(path, &params, TRUE),
        RasGetEntryDialParamsA(path, &params, &hasPassword),
        RasDialA(nullptr, path, &params, 2, reinterpret_cast<void*>(&notify), &handle),
        RasEnumEntriesA(nullptr, path, &name, &bytes, &count),
        RasEnumConnectionsA(&connection, &bytes, &count),
        RasGetConnectStatusA(nullptr, &status)};
    Words texts;
    for (const DWORD code : codes)
        texts.push_back(std::to_string(code));
    return joined(texts, ',');
}

std::string dial(Computer& computer, const Words& words) {
    RASDIALPARAMSA params = dialParams(words[1], computer.option("user"));
    const std::string password = (words[2] == "wrongly" ? "not " : "") + computer.option("password");
    password.copy(params.szPassword, PWLEN);
    params.dwCallbackId = dials.size();
    dials.emplace_back().lastWanted = words[2] == "quietly" ? RASCS_ConnectDevice : RASCS_Interactive;
    HRASCONN handle = nullptr;
    const DWORD code =
        RasDialA(nullptr, computer.phonebook(), &params, 2, reinterpret_cast<void*>(&notify), &handle);
    if (handle)
        computer.dialled.push_back(handle);
    return std::to_string(code);
}

// How the latest dial ended, as its notifier was told.
std::string ending() {
    const std::scoped_lock locked(dials.back().lock);
    const auto& states = dials.back().states;
    if (states.empty() || (states.back().second == ERROR_SUCCESS && states.back().first < RASCS_Connected))
        return {};
    if (states.back().second != ERROR_SUCCESS)
        return "failed " + std::to_string(states.back().second);
    return states.back().first == RASCS_Connected ? "connected" : "disconnected";
}

std::string told(Computer&, const Words&) {
    const std::scoped_lock locked(dials.back().lock);
    Words states;
    for (const auto& [state, error] : dials.back().states)
        states.push_back(std::to_string(state));
    return joined(states, ',');
}

// Which threads told of which handles.
std::string tellers(Computer& computer, const Words&) {
    const std::scoped_lock locked(dials.back().lock);
    const Told& told = dials.back();
    if (told.handles != std::set{computer.handle()} || told.threads.contains(GetCurrentThreadId()))
        return "wrong";
    return told.threads.size() == 1 ? "another" : "several";
}

// The state and the error of the latest connection, or the code of a query that fails.
std::string status(Computer& computer, const Words&) {
    DWORD code = 0;
    const RASCONNSTATUSA status = statusOf(computer.handle(), code);
    return code == ERROR_SUCCESS ? std::to_string(status.rasconnstate) + "/" + std::to_string(status.dwError)
                                 : std::to_string(code);
}

std::string connections(Computer& computer, const Words& words) {
    if (words[1] == "short") {
        auto connection = sized<RASCONNA>(connectionSize);
        DWORD bytes = connectionSize - 1, count = 0;
        const DWORD code = RasEnumConnectionsA(&connection, &bytes, &count);
        return std::to_string(code) + (bytes >= connectionSize ? " more" : " less");
    }
    Words names;
    for (const RASCONNA& connection : connectionsOf(computer))
        names.push_back(connection.szEntryName +
                        std::string(connection.hrasconn == computer.handle() ? "" : " of another handle"));
    return joined(names, ',');
}

std::string address(Computer& computer, const Words&) {
    RASPPPIPA projection{};
    projection.dwSize = projectionSize;
    DWORD bytes = projectionSize;
    const DWORD code = RasGetProjectionInfoA(computer.handle(), RASP_PppIp, &projection, &bytes);
    if (code != ERROR_SUCCESS)
        return std::to_string(code);
    return projection.dwError == 0 && std::strchr(projection.szIpAddress, '.') ? "dotted"
                                                                               : projection.szIpAddress;
}

// Has another process dial, which ends then.
std::string elsewhere(Computer& computer, const Words&) {
    std::string command = GetCommandLineA() + (" --dial-from \"" + computer.folder + "\"");
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return "no process";
    CloseHandle(process.hThread);
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = 1;
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hProcess);
    for (const RASCONNA& connection : connectionsOf(computer))
        computer.dialled.push_back(connection.hrasconn);
    return std::to_string(exitCode);
}

const std::map<std::string, std::string (*)(Computer&, const Words&)> steps{
    {"write", write},
    {"entries", entries},
    {"rename",
     [](Computer& computer, const Words& words) {
         return std::to_string(RasRenameEntryA(computer.phonebook(), words[1].c_str(), words[2].c_str()));
     }},
    {"delete",
     [](Computer& computer, const Words& words) {
         return std::to_string(RasDeleteEntryA(computer.phonebook(), words[1].c_str()));
     }},
    {"store", store},
    {"stored", stored},
    {"sizes", sizes},
    {"text",
     [](Computer&, const Words& words) {
         char text[512]{};
         const DWORD code = RasGetErrorStringA(std::stoul(words[1]), text, std::stoul(words[2]));
         return code == ERROR_SUCCESS && !*text ? "empty" : std::to_string(code);
     }},
    {"dial", dial},
    {"end",
     [](Computer&, const Words&) {
         isInTime(endTimeout, [] { return !ending().empty(); });
         return ending().empty() ? "endless" : ending();
     }},
    {"ended", [](Computer&, const Words&) { return std::string(ending().empty() ? "no" : "yes"); }},
    {"settled",
     [](Computer& computer, const Words& words) {
         isInTime(endTimeout, [&] { return status(computer, words) == "8192/0"; });
         return status(computer, words);
     }},
    {"told", told},
    {"tellers", tellers},
    {"status", status},
    {"pause", [](Computer&, const Words&) { return Sleep(silence), std::string("0"); }},
    {"connections", connections},
    {"address", address},
    {"hangup",
     [](Computer& computer, const Words&) { return std::to_string(RasHangUpA(computer.handle())); }},
    {"gone",
     [](Computer& computer, const Words&) { return std::string(isGone(computer.handle()) ? "yes" : "no"); }},
    {"elsewhere", elsewhere},
};

// The answers to the steps of a probe, one behind the other.
std::string answersOf(Computer& computer, const char* probe) {
    Words answers;
    for (const std::string& step : split(probe, ';')) {
        Words words = split(step, ' ');
        words.resize(3);
        answers.push_back(steps.at(words[0])(computer, words));
    }
    return joined(answers, ' ');
}

// False when it is not so.
bool ask(const Probe& probe, const Options& options) {
    char temporary[MAX_PATH]{};
    GetTempPathA(sizeof temporary, temporary);
    const std::string folder = temporary + ("remote-access-probes-" + std::to_string(GetCurrentProcessId()));
    std::string verdict = "so", detail;
    try {
        CreateDirectoryA(folder.c_str(), nullptr);
        Computer computer{options, folder};
        const std::string answers = answersOf(computer, probe.steps);
        if (PathMatchSpecA(answers.c_str(), probe.answers))
            verdict = "so";
        else if (probe.difference && PathMatchSpecA(answers.c_str(), probe.otherAnswers))
            detail = ": the known difference " + std::string(probe.difference);
        else
            verdict = "NOT SO",
            detail = ": " + std::string(probe.steps) + " gave " + answers + " instead of " + probe.answers;
    } catch (const NotAsked&) {
        verdict = "not asked";
    }
    std::printf("%-10s%s%s\n", verdict.c_str(), probe.behaviour, detail.c_str());
    std::fflush(stdout);
    return verdict != "NOT SO";
}

Options readOptions(int count, char** words) {
    constexpr std::array known{"--server", "--user", "--password-file", "--unreachable",
                               "--silent", "--busy", "--dial-from"};
    Options options;
    for (int i = 1; i < count; i += 2) {
        if (std::string(words[i]) == "--help")
            return {};
        if (std::find(known.begin(), known.end(), std::string(words[i])) == known.end())
            throw std::invalid_argument("unknown option " + std::string(words[i]));
        if (i + 1 == count)
            throw std::invalid_argument(std::string(words[i]) + " wants a value");
        options[words[i]] = words[i + 1];
    }
    for (const char* needed : {"--server", "--user", "--password-file"})
        if (!options.contains(needed))
            throw std::invalid_argument(std::string(needed) + " is missing");
    std::ifstream file(options.at("--password-file"));
    if (!std::getline(file, options["--password"]) || options["--password"].empty())
        throw std::invalid_argument("no password can be read from " + options.at("--password-file"));
    return options;
}

} // namespace

int main(int count, char** words) {
    Options options;
    try {
        options = readOptions(count, words);
    } catch (const std::invalid_argument& mistake) {
        std::fprintf(stderr, "standin_probes: %s\n\n%s", mistake.what(), usage);
        return 2;
    }
    if (options.empty())
        return std::fputs(usage, stdout) < 0;
    if (options.contains("--dial-from")) {
        auto* const left = new Computer{options, options.at("--dial-from")};
        ExitProcess(answersOf(*left, "dial one; end") == "0 connected" ? 0 : 1);
    }
    const auto passed = std::count_if(std::begin(probes), std::end(probes),
                                      [&](const Probe& probe) { return ask(probe, options); });
    const auto failed = static_cast<std::ptrdiff_t>(std::size(probes)) - passed;
    std::printf("cases: %td passed, %td failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
