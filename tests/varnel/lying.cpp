// Plays on a computer whose answers are lies, out of a seed: texts without ends, counts beyond the buffer,
// sizes changed, entries that vanish, values of any type and length, codes of any number. Whatever it is
// told, the library stays within its bounds, gives back what it was lent, and touches nothing of a stranger.
#include "play.h"

#include <algorithm>
#include <cstring>
#include <random>

#include <raserror.h>

namespace {

// Fields of one kind are filled with a character of their own: a text with more of it than the field holds
// was read past the field's end.
struct Field {
    char filler;
    std::size_t longest;
};
constexpr Field entryName = {'\xC1', 256}, phoneBook = {'\xC2', 260}, address = {'\xC3', 15},
                fileName = {'\xC4', 259}, folder = {'\xC5', 259}, keyName = {'\xC6', 255},
                errorText = {'\xC7', 1023}, value = {'\xC8', 259},
                foreign = {'\xC9', 0}; // whatever the library has no business with

std::mt19937 chance;
std::vector<std::string> peers;                    // whose entries and connections may be touched
std::multimap<HRASCONN, std::string> shownHandles; // with the names under which they were shown
bool anyConnection = false;                        // may be hung up

DWORD below(DWORD end) {
    return static_cast<DWORD>(chance() % end);
}

bool oneIn(DWORD n) {
    return below(n) == 0;
}

DWORD number() {
    static constexpr DWORD edges[] = {0, 1, 2, 3, 79, 80, 255, 256, 257, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    return oneIn(2) ? edges[below(std::size(edges))] : static_cast<DWORD>(chance()) >> below(32);
}

std::string text() {
    static const std::string others[] = {"stranger #0",     "..", "con", "%s%n", "a/b", "999.1.1.1",
                                         "ms_pptpminiport", ""};
    const std::string id = peers.empty() ? "x" : peers.front();
    static const std::string tails[] = {"", " #0", " #1", " #", "#0", "7 #0", " #9999999999"};
    return oneIn(3) ? others[below(std::size(others))] : id + tails[below(std::size(tails))];
}

// What a reader who minds the field's size finds in it afterwards.
std::string bend(char* place, std::size_t room, const Field& field) {
    const std::string truth = text();
    std::memset(place, field.filler, room);
    if (!oneIn(4))
        truth.copy(place, room);
    if (truth.size() < room && !oneIn(3))
        place[truth.size()] = '\0';
    return {place, strnlen(place, std::min(room - 1, field.longest))};
}

template<std::size_t SIZE>
std::string bend(char (&place)[SIZE], const Field& field) {
    return bend(place, SIZE, field);
}

bool isPeers(std::string name) {
    Convert2LowCase(name);
    return std::ranges::any_of(peers, [&](std::string id) {
        Convert2LowCase(id);
        return name == id || name.starts_with(id + " #");
    });
}

void expectWithinFields(const std::string& told) {
    for (const Field& field :
         {entryName, phoneBook, address, fileName, folder, keyName, errorText, value, foreign})
        if (told.find(std::string(field.longest + 1, field.filler)) != std::string::npos)
            complain("a text runs past its field: " + told);
}

// Lets `lie` change what an import has answered.
template<Name NAME, class LIE>
void lieAbout(LIE lie) {
    on<NAME>([lie, honest = Call<NAME>::answer](auto... arguments) {
        auto result = honest(arguments...);
        lie(result, arguments...);
        return result;
    });
}

template<Name NAME, class CHECK>
void check(CHECK right) {
    on<NAME>([right, honest = Call<NAME>::answer](auto... arguments) {
        if (!right(arguments...))
            complain(text::call(NAME.view(), arguments...) + ": of a stranger");
        return honest(arguments...);
    });
}

void lieAboutRemoteAccess() {
    lieAbout<"RasEnumConnectionsA">([](DWORD& code, LPRASCONNA first, LPDWORD size, LPDWORD count) {
        *size = number();
        *count = oneIn(3) ? number() : below(5);
        for (DWORD i = 0; i < 3; ++i) { // the least that there is room for
            auto& record = *reinterpret_cast<RASCONNA*>(reinterpret_cast<char*>(first) + i * 696);
            std::memset(&record, foreign.filler, 696);
            HRASCONN const handle = reinterpret_cast<HRASCONN>(ULONG_PTR{below(9)});
            record.hrasconn = handle;
            bend(record.szPhonebook, phoneBook);
            const std::string name = bend(record.szEntryName, entryName);
            if (code == 0 && i < *count)
                shownHandles.emplace(handle, name);
        }
    });
    lieAbout<"RasEnumEntriesA">(
        [](DWORD& code, LPCSTR, LPCSTR, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
            code = oneIn(3) ? ERROR_BUFFER_TOO_SMALL : 0;
            *size = oneIn(3) ? number() % 100'000 : below(9) * 532;
            *count = oneIn(3) ? number() : below(3);
            bend(first->szEntryName, entryName);
            bend(first->szPhonebookPath, phoneBook);
        });
    lieAbout<"RasGetEntryDialParamsA">(
        [](DWORD&, LPCSTR, LPRASDIALPARAMSA params, LPBOOL) { std::memset(params, foreign.filler, 1064); });
    lieAbout<"RasGetConnectStatusA">([](DWORD&, HRASCONN, LPRASCONNSTATUSA record) {
        std::memset(record, foreign.filler, 288);
        record->dwError = oneIn(2) ? 0 : number();
    });
    lieAbout<"RasGetProjectionInfoA">([](DWORD&, HRASCONN, RASPROJECTION, LPVOID record, LPDWORD size) {
        std::memset(record, foreign.filler, 48);
        bend(static_cast<RASPPPIPA*>(record)->szIpAddress, address);
        *size = number();
    });
    lieAbout<"RasGetErrorStringA">([](DWORD&, UINT, LPSTR place, DWORD room) {
        bend(place, room, {errorText.filler, room - 1});
    });
    check<"RasDialA">([](LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, auto...) {
        return isPeers(params->szEntryName) && isPeers(params->szUserName) &&
               strnlen(params->szDomain, sizeof params->szDomain) < sizeof params->szDomain &&
               strnlen(params->szPhoneNumber, sizeof params->szPhoneNumber) < sizeof params->szPhoneNumber &&
               strnlen(params->szCallbackNumber, sizeof params->szCallbackNumber) <
                   sizeof params->szCallbackNumber;
    });
    check<"RasHangUpA">([](HRASCONN conn) {
        const auto [first, last] = shownHandles.equal_range(conn);
        const Connection* const known = theComputer().find(conn);
        return (known != nullptr && known->dialled) || (anyConnection && first != last) ||
               std::any_of(first, last, [](const auto& shown) { return isPeers(shown.second); });
    });
    check<"RasDeleteEntryA">([](LPCSTR, LPCSTR name) { return isPeers(name); });
    check<"RasRenameEntryA">([](LPCSTR, LPCSTR from, LPCSTR to) { return isPeers(from) && isPeers(to); });
}

void lieAboutSystem() {
    lieAbout<"GetSystemDirectoryA">([](UINT& length, LPSTR place, UINT room) {
        length = static_cast<UINT>(bend(place, room, folder).size());
        length = oneIn(3) ? number() : length;
    });
    lieAbout<"SHGetFolderPathA">(
        [](HRESULT&, HWND, int, HANDLE, DWORD, LPSTR place) { bend(place, MAX_PATH, folder); });
    const auto lieAboutFile = [](LPWIN32_FIND_DATAA found) {
        found->dwFileAttributes = oneIn(4) ? number() : FILE_ATTRIBUTE_DIRECTORY;
        const std::string name = bend(found->cFileName, fileName);
        if (CheckIdFormat(nullptr, name, nullptr, nullptr, nullptr))
            peers.push_back(name);
    };
    lieAbout<"FindFirstFileA">([=](HANDLE&, LPCSTR, LPWIN32_FIND_DATAA found) { lieAboutFile(found); });
    lieAbout<"FindNextFileA">([=](WINBOOL&, HANDLE, LPWIN32_FIND_DATAA found) { lieAboutFile(found); });
    check<"DeleteFileA">([](const std::string& path) {
        return path.empty() || path.ends_with(".SYS.tmp") ||
               std::ranges::any_of(
                   peers, [&](const std::string& id) { return path == "C:\\peers\\" + id + "\\pptp.pbk"; });
    });
    lieAbout<"RegQueryInfoKeyA">(
        [](LSTATUS&, HKEY, LPSTR, LPDWORD, LPDWORD, LPDWORD count, auto...) { *count = number(); });
    lieAbout<"RegEnumKeyExA">([](LSTATUS&, HKEY, DWORD, LPSTR name, LPDWORD size, auto...) {
        bend(name, 255, keyName);
        *size = number();
    });
    on<"RegQueryValueExA">([](HKEY, LPCSTR, LPDWORD, LPDWORD, LPBYTE data, LPDWORD size) {
        bend(reinterpret_cast<char*>(data), *size, {value.filler, *size - 1});
        *size = number();
        return LSTATUS{0};
    });
    const auto lieAboutState = [](LPSERVICE_STATUS status) {
        status->dwCurrentState = oneIn(2) ? 3 : number();
    };
    lieAbout<"ControlService">(
        [=](WINBOOL&, SC_HANDLE, DWORD, LPSERVICE_STATUS status) { lieAboutState(status); });
    lieAbout<"QueryServiceStatus">(
        [=](WINBOOL&, SC_HANDLE, LPSERVICE_STATUS status) { lieAboutState(status); });
    lieAbout<"GetFileVersion">(
        [](unsigned long long& version, const auto&) { version = oneIn(3) ? 0 : chance(); });
    lieAbout<"GetCategory">([](HRESULT&, INetwork*, NLM_NETWORK_CATEGORY* category) {
        *category = static_cast<NLM_NETWORK_CATEGORY>(number());
    });
    on<"GetPortOccupyProcessW">([](unsigned short, std::wstring& name) {
        name.assign(below(600), oneIn(2) ? L'\xD800' : L'x');
        return oneIn(3) ? 4UL : static_cast<unsigned long>(number());
    });
    on<"logLine">(
        [honest = Call<"logLine">::answer](int level, const char* file, long line, const std::string& told) {
            expectWithinFields(told);
            honest(level, file, line, told);
        });
}

// A few calls fail beside the lies, with any code.
std::vector<Fault> someFailures() {
    std::vector<Fault> failures(below(4));
    for (Fault& failure : failures) {
        do
            failure.import = allImports()[below(static_cast<DWORD>(allImports().size()))];
        while (failure.import->codes.empty() || failure.import->throws ||
               failure.import->name == "RegEnumKeyExA");
        failure = {failure.import, static_cast<long>(1 + below(6)), oneIn(3), 1 + number() % 0xFFFFFFFE};
    }
    return failures;
}

} // namespace

void playLying(const std::vector<SituationFile>& files, const Way& way, Tally& tally) {
    lieAboutRemoteAccess();
    lieAboutSystem();
    const unsigned int rounds = way.isLong ? 1'000 : 40;
    for (const SituationFile& file : files)
        for (const Situation& situation : file.situations) {
            const unsigned long failedBefore = tally.failed;
            for (unsigned int round = 0; round < rounds; ++round)
                for (const Play& play : situation.plays) {
                    chance.seed(way.seed * 2654435761U + static_cast<std::uint32_t>(++tally.runs));
                    Run run(situation);
                    run.computer.clock.yieldTakes = 250;
                    peers = {run.meant("Node"), run.meant("Node...")};
                    shownHandles.clear();
                    for (const Step& step : play.steps) {
                        anyConnection = !step.operation.starts_with("dialDown ");
                        const std::string name = situation.name + ": " + step.operation + ", run " +
                                                 std::to_string(tally.runs) + " of seed " +
                                                 std::to_string(way.seed);
                        watchdog::watch(name);
                        Outcome outcome = run.perform(step, someFailures());
                        std::erase_if(outcome.offences, [](const std::string& offence) {
                            return offence.starts_with("a dialled connection");
                        });
                        if (outcome.threw || outcome.passwordLeft || !outcome.offences.empty())
                            tally.failure(name + ", " + outcome.result +
                                          (outcome.passwordLeft ? ", password left" : "") + "\n    " +
                                          joined(outcome.offences, "\n    "));
                    }
                }
            tally.passed += tally.failed == failedBefore ? 1 : 0;
        }
    watchdog::watch("");
}
