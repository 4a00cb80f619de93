// Asks a computer's remote access, one by one, for what the library relies on.
#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>

#include <process.h>
#include <ras.h>
#include <raserror.h>

#include <set>

#include <shlwapi.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
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

// The probes, as a person reads them: paragraphs of a behaviour, its steps and its answers.
constexpr char probes[] =
#include "tests/standin/probes.txt"
    ;

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

std::atomic<bool> isInterrupted = false;

template<class Condition>
bool isInTime(DWORD timeout, Condition condition) {
    const DWORD start = GetTickCount();
    while (!condition() && GetTickCount() - start < timeout && !isInterrupted)
        Sleep(poll);
    return condition();
}

std::string joined(const Words& words, const char* between) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : between) + word;
    return text.empty() ? "none" : text;
}

Words split(const std::string& text, char between) {
    Words words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream >> std::ws, word, between);)
        words.push_back(word);
    return words;
}

std::string stateText(RASCONNSTATE state, DWORD error) {
    return std::to_string(state) + "/" + std::to_string(error);
}

// What the notifier of a dial was told.
struct Told {
    std::mutex lock = {};
    Words states = {};
    std::atomic<bool> hasEnded = false;
    std::set<DWORD> threads = {};
    std::set<HRASCONN> handles = {};
    RASCONNSTATE lastWanted = RASCS_Interactive; // it answers 0 to this
};

// By callback id, for the life of the program: a notification may come late.
std::array<Told, 100> dials;
std::size_t latestDial = 0;

DWORD CALLBACK notify(ULONG_PTR id, DWORD, HRASCONN handle, UINT, RASCONNSTATE state, DWORD error, DWORD) {
    Told& told = dials.at(id);
    const std::scoped_lock locked(told.lock);
    told.states.push_back(stateText(state, error));
    told.hasEnded = error != ERROR_SUCCESS || state >= RASCS_Connected;
    told.threads.insert(GetCurrentThreadId());
    told.handles.insert(handle);
    return state != told.lastWanted;
}

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

// The records that `call` enumerates; without room for them an answer of what it wants.
template<class Record, class Call>
std::string enumerate(DWORD size, bool isShort, std::vector<Record>& found, Call call) {
    std::vector<char> buffer(roomForMany * size);
    std::memcpy(buffer.data(), &size, sizeof size);
    DWORD bytes = isShort ? size - 1 : roomForMany * size;
    DWORD count = 0;
    const DWORD code = call(reinterpret_cast<Record*>(buffer.data()), &bytes, &count);
    found.resize(code == ERROR_SUCCESS ? count : 0);
    for (DWORD i = 0; i < found.size(); ++i)
        std::memcpy(&found[i], &buffer[i * size], size);
    const bool wantsAll = bytes == count * size;
    return std::to_string(code) + (code == ERROR_BUFFER_TOO_SMALL && wantsAll ? " for all" : "");
}

// Remote access with a phonebook of its own, worked by steps, each of which gives an answer. With the object
// the phonebook goes, and what was dialled from it is hung up.
class Computer {
  public:
    Computer(const Options& commandLine, const std::string& ownFolder)
        : options(commandLine), folder(ownFolder), phonebook(ownFolder + "\\probes.pbk") {
        CreateDirectoryA(folder.c_str(), nullptr);
    }
    ~Computer();
    Computer(const Computer&) = delete;

    // The answers to "step one two; step ..." in their order.
    std::string answers(const std::string& steps);

  private:
    std::string answer(const std::string& step, const std::string& one, const std::string& two);
    std::string answerOfDial(const std::string& step, const std::string& argument);
    std::string option(const std::string& name) const {
        return options.contains("--" + name) ? options.at("--" + name) : throw NotAsked();
    }
    std::string entries(bool isShort) const;
    std::string stored(const std::string& entry) const;
    std::string sizes() const;
    DWORD dial(const std::string& entry, const std::string& manner);
    std::string connections(bool isShort);
    std::string address() const;

    std::string status() const {
        auto status = sized<RASCONNSTATUSA>(statusSize);
        const DWORD code = RasGetConnectStatusA(handles.back(), &status);
        return code == 0 ? stateText(status.rasconnstate, status.dwError) : std::to_string(code);
    }
    bool isGone() const {
        return isInTime(goneTimeout, [this] { return status() == "6"; });
    }
    std::string elsewhere() const {
        const std::string quoted = "\"" + folder + "\"";
        return std::to_string(
            _spawnl(_P_WAIT, _pgmptr, GetCommandLineA(), "--dial-from", quoted.c_str(), nullptr));
    }

    const Options& options;
    std::string folder;
    std::string phonebook;
    std::vector<HRASCONN> handles = {nullptr}; // the last one is that of the latest dial that has one
};

Computer::~Computer() {
    connections(false); // takes the handles of what another process has dialled
    for (; handles.back(); handles.pop_back())
        if (RasHangUpA(handles.back()) == ERROR_SUCCESS)
            isGone();
    for (const char* entry : {"one", "two", "three"}) // and what the system keeps with them elsewhere
        RasDeleteEntryA(phonebook.c_str(), entry);
    DeleteFileA(phonebook.c_str());
    RemoveDirectoryA(folder.c_str());
}

std::string Computer::entries(bool isShort) const {
    std::vector<RASENTRYNAMEA> found;
    const std::string answer =
        enumerate(entryNameSize, isShort, found, [this](auto* names, DWORD* bytes, DWORD* count) {
            return RasEnumEntriesA(nullptr, phonebook.c_str(), names, bytes, count);
        });
    Words names;
    for (const RASENTRYNAMEA& each : found)
        names.emplace_back(each.szEntryName);
    return answer == "0" ? joined(names, ",") : answer;
}

std::string Computer::connections(bool isShort) {
    std::vector<RASCONNA> found;
    const std::string answer = enumerate(connectionSize, isShort, found, RasEnumConnectionsA);
    Words names;
    for (const RASCONNA& each : found) {
        if (lstrcmpiA(each.szPhonebook, phonebook.c_str()) != 0)
            continue;
        names.emplace_back(each.szEntryName);
        if (std::find(handles.begin(), handles.end(), each.hrasconn) == handles.end()) {
            names.back() += " by another";
            handles.push_back(each.hrasconn);
        }
    }
    return answer == "0" ? joined(names, ",") : answer;
}

std::string Computer::stored(const std::string& entry) const {
    RASDIALPARAMSA params = dialParams(entry, {});
    BOOL hasPassword = TRUE;
    const DWORD code = RasGetEntryDialParamsA(phonebook.c_str(), &params, &hasPassword);
    return std::to_string(code) + " " + params.szUserName + (hasPassword ? " with password" : "");
}

// The code that records of no known size get.
std::string Computer::sizes() const {
    RASENTRYA entry = pptpEntry("10.0.0.1", 1);
    RASDIALPARAMSA params = dialParams("one", "user", 1);
    auto name = sized<RASENTRYNAMEA>(1);
    auto connection = sized<RASCONNA>(1);
    auto status = sized<RASCONNSTATUSA>(1);
    BOOL hasPassword = FALSE;
    DWORD bytes = 4096;
    DWORD count = 0;
    HRASCONN handle = nullptr;
    const char* const path = phonebook.c_str();
    const std::set<DWORD> codes{
        RasSetEntryPropertiesA(path, "one", &entry, entrySize, nullptr, 0),
        RasSetEntryDialParamsA(path, &params, TRUE),
        RasGetEntryDialParamsA(path, &params, &hasPassword),
        RasDialA(nullptr, path, &params, 2, reinterpret_cast<void*>(&notify), &handle),
        RasEnumEntriesA(nullptr, path, &name, &bytes, &count),
        RasEnumConnectionsA(&connection, &bytes, &count),
        RasGetConnectStatusA(nullptr, &status)};
    return codes.size() == 1 ? std::to_string(*codes.begin()) : "several";
}

DWORD Computer::dial(const std::string& entry, const std::string& manner) {
    RASDIALPARAMSA params = dialParams(entry, option("user"));
    ((manner == "wrongly" ? "not " : "") + option("password")).copy(params.szPassword, PWLEN);
    params.dwCallbackId = ++latestDial;
    if (manner == "quietly")
        dials.at(latestDial).lastWanted = RASCS_ConnectDevice;
    HRASCONN handle = nullptr;
    const DWORD code =
        RasDialA(nullptr, phonebook.c_str(), &params, 2, reinterpret_cast<void*>(&notify), &handle);
    if (handle)
        handles.push_back(handle);
    return code;
}

std::string Computer::address() const {
    auto projection = sized<RASPPPIPA>(projectionSize);
    DWORD bytes = projectionSize;
    const DWORD code = RasGetProjectionInfoA(handles.back(), RASP_PppIp, &projection, &bytes);
    const bool hasAddress = projection.dwError == 0 && std::strchr(projection.szIpAddress, '.');
    return std::to_string(code) + (hasAddress ? " address" : "");
}

std::string Computer::answer(const std::string& step, const std::string& one, const std::string& two) {
    const char* const path = phonebook.c_str();
    if (step == "entries")
        return entries(one == "short");
    if (step == "stored")
        return stored(one);
    if (step == "sizes")
        return sizes();
    DWORD code = 0;
    if (step == "write") {
        RASENTRYA entry = pptpEntry(option(two.empty() ? "server" : two));
        code = RasSetEntryPropertiesA(path, one.c_str(), &entry, entrySize, nullptr, 0);
    } else if (step == "store") {
        RASDIALPARAMSA params = dialParams(one, two);
        code = RasSetEntryDialParamsA(path, &params, TRUE);
    } else if (step == "rename") {
        code = RasRenameEntryA(path, one.c_str(), two.c_str());
    } else if (step == "delete") {
        code = RasDeleteEntryA(path, one.c_str());
    } else if (step == "dial") {
        code = dial(one, two);
    } else if (step == "hangup") {
        code = RasHangUpA(handles.back());
    } else if (step == "text") {
        char text[512]{};
        code = RasGetErrorStringA(std::stoul(one), text, std::stoul(two));
    } else {
        return answerOfDial(step, one);
    }
    return std::to_string(code);
}

// Of the latest dial, or the latest connection.
std::string Computer::answerOfDial(const std::string& step, const std::string& argument) {
    Told& told = dials.at(latestDial);
    if (step == "end")
        isInTime(handles.back() ? endTimeout : 0, [&] { return told.hasEnded.load(); });
    if (step == "settled")
        isInTime(handles.back() ? endTimeout : 0, [this] { return status() == "8192/0"; });
    if (step == "status" || step == "settled")
        return status();
    if (step == "pause")
        return isInTime(silence, [] { return false; }) ? "" : "0";
    if (step == "gone")
        return isGone() ? "gone" : "known";
    if (step == "connections")
        return connections(argument == "short");
    if (step == "address")
        return address();
    if (step == "elsewhere")
        return elsewhere();
    const std::scoped_lock locked(told.lock);
    if (step == "told")
        return joined(told.states, ",");
    if (step == "end")
        return told.hasEnded ? told.states.back() : "endless";
    if (step == "ended")
        return told.hasEnded ? "ended" : "open";
    if (step != "tellers")
        throw std::logic_error("there is no step " + step);
    if (told.handles != std::set{handles.back()} || told.threads.contains(GetCurrentThreadId()))
        return "wrong";
    return told.threads.size() == 1 ? "another" : "several";
}

std::string Computer::answers(const std::string& steps) {
    Words answers;
    for (const std::string& step : split(steps, ';')) {
        Words words = split(step, ' ');
        words.resize(3);
        answers.push_back(answer(words[0], words[1], words[2]));
    }
    return joined(answers, " ");
}

bool fits(const std::string& answers, const std::string& pattern) {
    return PathMatchSpecA(answers.c_str(), pattern.c_str()) != FALSE;
}

// What a probe has shown, from the lines of its paragraph.
std::string verdictOn(const Words& paragraph, const Options& options) {
    try {
        char temporary[MAX_PATH]{};
        GetTempPathA(sizeof temporary, temporary);
        Computer computer(options,
                          temporary + ("remote-access-probes-" + std::to_string(GetCurrentProcessId())));
        const std::string answers = computer.answers(paragraph[1]);
        if (fits(answers, paragraph[2]))
            return "so";
        const Words difference = split(paragraph.size() > 3 ? paragraph[3] : "", ':');
        if (difference.size() == 2 && fits(answers, difference[1]))
            return "so, but for the known difference " + difference[0].substr(std::strlen("or "));
        return "NOT SO: " + answers + " instead of " + paragraph[2];
    } catch (const NotAsked&) {
        return "not asked";
    } catch (const std::exception& fault) {
        return std::string("NOT SO: ") + fault.what();
    }
}

Options readOptions(int count, char** words) {
    Options options;
    for (int i = 1; i < count; i += 2) {
        if (!std::strstr(usage, words[i]) && std::strcmp(words[i], "--dial-from") != 0)
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

BOOL WINAPI interrupt(DWORD) {
    isInterrupted = true; // the probe under way ends, and removes what it made
    return TRUE;
}

// The result is how many are not so.
int askAll(const Options& options) {
    int passed = 0;
    int failed = 0;
    std::istringstream text(probes);
    Words paragraph;
    for (std::string line; std::getline(text, line) && !isInterrupted;) {
        if (!line.empty()) {
            paragraph.push_back(line.substr(line.find_first_not_of(' ')));
        } else if (!paragraph.empty()) {
            const std::string verdict = verdictOn(paragraph, options);
            std::printf("%s: %s\n", paragraph[0].c_str(), verdict.c_str());
            std::fflush(stdout);
            ++(verdict.starts_with("NOT SO") ? failed : passed);
            paragraph.clear();
        }
    }
    std::printf("cases: %d passed, %d failed\n", passed, failed + isInterrupted);
    return failed + isInterrupted;
}

} // namespace

int main(int count, char** words) {
    if (count == 2 && std::string(words[1]) == "--help")
        return std::fputs(usage, stdout) < 0;
    try {
        const Options options = readOptions(count, words);
        if (options.contains("--dial-from")) {
            auto* const left = new Computer(options, options.at("--dial-from"));
            ExitProcess(left->answers("dial one; end") == "0 8192/0" ? 0 : 1);
        }
        SetConsoleCtrlHandler(interrupt, TRUE);
        return askAll(options) == 0 ? 0 : 1;
    } catch (const std::invalid_argument& mistake) {
        std::fprintf(stderr, "standin_probes: %s\n\n%s", mistake.what(), usage);
        return 2;
    }
}
