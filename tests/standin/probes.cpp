// Asks a computer's remote access, one by one, for what the library relies on.
#include <boost/algorithm/string.hpp>
#include <fmt/format.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <mutex>

#include <ras.h>
#include <raserror.h>
#include <shlwapi.h>

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

// The probes, as a person reads them: paragraphs of a behaviour, its steps and its answers.
constexpr char probes[] =
#include "tests/standin/probes.txt"
    ;

using Words = std::vector<std::string>;
using Options = std::map<std::string, std::string>;

// The sizes that the library sends. The headers' own records are longer in two cases.
constexpr DWORD entrySize = 2088;
constexpr DWORD connectionSize = 696;
static_assert(sizeof(RASDIALPARAMSA) == 1064 && sizeof(RASENTRYNAMEA) == 532);
static_assert(sizeof(RASCONNSTATUSA) == 288 && sizeof(RASPPPIPA) == 48);
constexpr DWORD roomForMany = 64; // connections

constexpr DWORD goneTimeout = 3'000; // ms, that of the library
constexpr DWORD endTimeout = 90'000; // ms
constexpr DWORD silence = 1'000;     // ms, in which nothing is awaited
constexpr DWORD poll = 10;           // ms

std::atomic<bool> isInterrupted = false;

template<class Condition>
void await(DWORD timeout, Condition isReached) {
    const DWORD start = GetTickCount();
    while (!isReached() && GetTickCount() - start < timeout && !isInterrupted)
        Sleep(poll);
}

Words split(const std::string& text, const char* between) {
    Words words;
    boost::iter_split(words, boost::trim_copy(text), boost::first_finder(between));
    for (std::string& word : words)
        boost::trim(word);
    return words;
}

std::string stateText(RASCONNSTATE state, DWORD error) {
    return std::to_string(state) + "/" + std::to_string(error);
}

// What the notifier of a dial was told.
struct Told {
    std::mutex lock;
    Words states;
    std::atomic<bool> hasEnded = false;
    RASCONNSTATE lastWanted = RASCS_Interactive; // it answers 0 to this
};

std::list<Told> dials; // for the life of the program: a notification may come late

DWORD CALLBACK notify(ULONG_PTR dial, DWORD, HRASCONN, UINT, RASCONNSTATE state, DWORD error, DWORD) {
    Told& told = *reinterpret_cast<Told*>(dial);
    const std::scoped_lock locked(told.lock);
    told.states.push_back(stateText(state, error));
    told.hasEnded = error != ERROR_SUCCESS || state >= RASCS_Connected;
    return state != told.lastWanted;
}

RASDIALPARAMSA dialParams(const std::string& entry, const std::string& user) {
    RASDIALPARAMSA params = {};
    params.dwSize = sizeof params;
    entry.copy(params.szEntryName, RAS_MaxEntryName);
    user.copy(params.szUserName, UNLEN);
    return params;
}

// Remote access with a phonebook of its own, worked by steps. With the object the phonebook goes, and what
// was dialled from it is hung up.
class Computer {
  public:
    explicit Computer(const Options& commandLine) : options(commandLine) {
        char folder[MAX_PATH] = {};
        GetTempPathA(sizeof folder, folder);
        phonebook = fmt::format("{}remote-access-probes-{}.pbk", folder, GetCurrentProcessId());
    }
    Computer(const Computer&) = delete;
    ~Computer() {
        for (; handles.back(); handles.pop_back())
            if (RasHangUpA(handles.back()) == ERROR_SUCCESS)
                statusOnceIt("6", goneTimeout);
        for (const char* entry : {"one", "two", "three"}) // and what the system keeps with them elsewhere
            RasDeleteEntryA(path(), entry);
        DeleteFileA(path());
    }

    // What a step gives: the code of its call, or what it asks for.
    std::string answer(const std::string& step, const std::string& one, const std::string& two) {
        RASDIALPARAMSA params = dialParams(one, two);
        char text[256] = {};
        const std::map<std::string, std::function<std::string()>> steps = {
            {"write", [&] { return std::to_string(write(one, two.empty() ? "server" : two)); }},
            {"rename", [&] { return std::to_string(RasRenameEntryA(path(), one.c_str(), two.c_str())); }},
            {"delete", [&] { return std::to_string(RasDeleteEntryA(path(), one.c_str())); }},
            {"entries", [&] { return entries(); }},
            {"store", [&] { return std::to_string(RasSetEntryDialParamsA(path(), &params, TRUE)); }},
            {"stored", [&] { return stored(params); }},
            {"text", [&] { return std::to_string(RasGetErrorStringA(std::stoul(one), text, sizeof text)); }},
            {"dial", [&] { return std::to_string(dial(one, two)); }},
            {"end", [&] { return toldUntilItEnds(endTimeout); }},
            {"told", [&] { return toldUntilItEnds(0); }},
            {"status", [&] { return status(); }},
            {"silence", [&] { return statusOnceIt("", silence); }},
            {"settled", [&] { return statusOnceIt("8192/0", endTimeout); }},
            {"connections", [&] { return connections(); }},
            {"address", [&] { return address(); }},
            {"hangup", [&] { return std::to_string(RasHangUpA(handles.back())); }},
            {"gone", [&] { return statusOnceIt("6", goneTimeout); }},
        };
        return steps.contains(step) ? steps.at(step)() : "there is no step " + step;
    }

  private:
    const char* path() const { return phonebook.c_str(); }

    DWORD write(const std::string& entry, const std::string& peer) const {
        RASENTRYA record = {};
        record.dwSize = entrySize;
        record.dwfOptions = RASEO_RequireEncryptedPw | RASEO_RequireMsEncryptedPw |
                            RASEO_RequireDataEncryption | RASEO_RequireMsCHAP2;
        options.at("--" + peer).copy(record.szLocalPhoneNumber, RAS_MaxPhoneNumber);
        record.dwfNetProtocols = RASNP_Ip;
        record.dwFramingProtocol = RASFP_Ppp;
        std::strcpy(record.szDeviceType, RASDT_Vpn);
        record.dwIdleDisconnectSeconds = RASIDS_Disabled;
        record.dwType = RASET_Vpn;
        record.dwEncryptionType = ET_Require;
        record.dwVpnStrategy = VS_PptpOnly;
        return RasSetEntryPropertiesA(path(), entry.c_str(), &record, entrySize, nullptr, 0);
    }

    // Asked as the library does: with room for one, then with the room that the service wants.
    std::string entries() const {
        std::vector<RASENTRYNAMEA> found(1);
        DWORD bytes = sizeof found[0];
        DWORD count = 0;
        found[0].dwSize = bytes;
        DWORD code = RasEnumEntriesA(nullptr, path(), found.data(), &bytes, &count);
        if (code == ERROR_BUFFER_TOO_SMALL) {
            found.resize(bytes / sizeof found[0]);
            code = RasEnumEntriesA(nullptr, path(), found.data(), &bytes, &count);
        }
        found.resize(count);
        Words names = {std::to_string(code)};
        for (const RASENTRYNAMEA& each : found)
            names.emplace_back(each.szEntryName);
        return boost::join(names, " ");
    }

    std::string stored(RASDIALPARAMSA params) const {
        BOOL hasPassword = TRUE;
        const DWORD code = RasGetEntryDialParamsA(path(), &params, &hasPassword);
        return fmt::format("{} {}{}", code, params.szUserName, hasPassword ? " with password" : "");
    }

    DWORD dial(const std::string& entry, const std::string& manner) {
        RASDIALPARAMSA params = dialParams(entry, options.at("--user"));
        ((manner == "wrongly" ? "not " : "") + options.at("--password")).copy(params.szPassword, PWLEN);
        Told& notified = dials.emplace_back();
        notified.lastWanted = manner == "quietly" ? RASCS_ConnectDevice : RASCS_Interactive;
        params.dwCallbackId = reinterpret_cast<ULONG_PTR>(&notified);
        HRASCONN handle = nullptr;
        const DWORD code = RasDialA(nullptr, path(), &params, 2, reinterpret_cast<void*>(&notify), &handle);
        if (handle)
            handles.push_back(handle);
        return code;
    }

    std::string status() const {
        RASCONNSTATUSA record = {};
        record.dwSize = sizeof record;
        const DWORD code = RasGetConnectStatusA(handles.back(), &record);
        return code == 0 ? stateText(record.rasconnstate, record.dwError) : std::to_string(code);
    }

    std::string statusOnceIt(const std::string& is, DWORD timeout) const {
        await(timeout, [&] { return status() == is; });
        return status();
    }

    // What the latest dial's notifier was told, when the dial has ended or the time is over.
    std::string toldUntilItEnds(DWORD timeout) const {
        await(handles.back() ? timeout : 0, [] { return dials.back().hasEnded.load(); });
        const std::scoped_lock locked(dials.back().lock);
        return boost::join(dials.back().states, ",");
    }

    // Of the phonebook's entries alone.
    std::string connections() const {
        DWORD bytes = roomForMany * connectionSize;
        std::vector<char> records(bytes);
        DWORD count = 0;
        auto* const first = reinterpret_cast<RASCONNA*>(records.data());
        first->dwSize = connectionSize;
        Words names = {std::to_string(RasEnumConnectionsA(first, &bytes, &count))};
        for (DWORD i = 0; i < std::min(count, roomForMany); ++i) {
            const auto& each = *reinterpret_cast<const RASCONNA*>(&records[std::size_t{i} * connectionSize]);
            if (lstrcmpiA(each.szPhonebook, path()) == 0)
                names.emplace_back(each.szEntryName);
        }
        return boost::join(names, " ");
    }

    std::string address() const {
        RASPPPIPA projection = {};
        DWORD bytes = sizeof projection;
        projection.dwSize = bytes;
        const DWORD code = RasGetProjectionInfoA(handles.back(), RASP_PppIp, &projection, &bytes);
        return fmt::format("{} {}", code, projection.szIpAddress);
    }

    const Options& options;
    std::string phonebook;
    std::vector<HRASCONN> handles = {nullptr}; // the last one is that of the latest dial that has one
};

// What a probe has shown, from its lines: behaviour, steps, answers, and with a known difference one more.
std::string verdictOn(const Words& probe, const Options& options) {
    for (const std::string peer : {"unreachable", "silent", "busy"})
        if (probe.at(1).starts_with("write one " + peer) && !options.contains("--" + peer))
            return "not asked";
    Computer computer(options);
    Words each;
    for (const std::string& step : split(probe.at(1), ";")) {
        Words words = split(step, " ");
        words.resize(3);
        each.push_back(computer.answer(words[0], words[1], words[2]));
    }
    const std::string answers = boost::join(each, " ");
    if (PathMatchSpecA(answers.c_str(), probe.at(2).c_str()))
        return "so";
    const Words difference = split(probe.back(), ":");
    if (PathMatchSpecA(answers.c_str(), difference.back().c_str()))
        return "so, but for the known difference " + difference[0].substr(std::strlen("or "));
    return "NOT SO: " + answers + " instead of " + probe[2];
}

Options readOptions(int count, char** words) {
    Options options;
    for (int i = 1; i < count; i += 2) {
        const std::string name = words[i];
        if (i + 1 == count || !name.starts_with("--") || !boost::contains(usage, name + " "))
            throw std::invalid_argument("unknown option, or no value for it: " + name);
        options[name] = words[i + 1];
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
    if (count == 2 && std::string(words[1]) == "--help")
        return std::fputs(usage, stdout) < 0;
    try {
        const Options options = readOptions(count, words);
        // The probe under way then ends, and removes what it made.
        SetConsoleCtrlHandler([](DWORD) -> BOOL { return isInterrupted = true; }, TRUE);
        int passed = 0;
        int failed = 0;
        const Words paragraphs = split(probes, "\n\n");
        for (std::size_t i = 0; i < paragraphs.size() && !isInterrupted; ++i) {
            const Words probe = split(paragraphs[i], "\n");
            const std::string verdict = verdictOn(probe, options);
            std::printf("%s: %s\n", probe[0].c_str(), verdict.c_str());
            std::fflush(stdout);
            ++(isInterrupted || verdict.starts_with("NOT SO") ? failed : passed);
        }
        std::printf("cases: %d passed, %d failed\n", passed, failed);
        return failed == 0 ? 0 : 1;
    } catch (const std::exception& mistake) {
        std::fprintf(stderr, "standin_probes: %s\n\n%s", mistake.what(), usage);
        return 2;
    }
}
