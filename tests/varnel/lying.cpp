// Plays on a computer whose answers are lies, out of a seed: texts without ends, counts beyond the buffer,
// sizes changed, entries that vanish, values of any type and length, codes of any number. Whatever it is
// told, the library stays within its bounds, gives back what it was lent, and touches nothing of a stranger.
#include "play.h"

#include <algorithm>
#include <cstring>
#include <random>

#include <raserror.h>

namespace {

std::mt19937 chance;
std::vector<std::string> peers;                    // whose entries and connections may be touched
std::multimap<HRASCONN, std::string> shownHandles; // with the names under which they were shown
bool anyConnection = false;                        // may be hung up

// Fields of one size are filled with a character of their own: a text with more of it than the field holds
// was read past the field's end.
std::map<char, std::size_t> longestOf;

DWORD below(DWORD end) {
    return static_cast<DWORD>(chance() % end);
}

bool oneIn(DWORD n) {
    return below(n) == 0;
}

std::string anyText() {
    static const std::string others[] = {"stranger #0",     "..",      "con", "%s%n", "a/b", "1", "999.1.1.1",
                                         "ms_pptpminiport", "10.0.0.1"};
    static const std::string tails[] = {"", " #0", " #1", " #", "#0", "7 #0", " #9999999999"};
    return oneIn(3) ? others[below(std::size(others))]
                    : peers[below(static_cast<DWORD>(peers.size()))] + tails[below(std::size(tails))];
}

bool isPeers(std::string name) {
    Convert2LowCase(name);
    return std::ranges::any_of(peers, [&](std::string id) {
        Convert2LowCase(id);
        return name == id || name.starts_with(id + " #");
    });
}

template<Name NAME, class CHECK>
void check(CHECK isRight) {
    on<NAME>([isRight, honest = Call<NAME>::answer](auto... arguments) {
        if (!isRight(arguments...))
            complain(text::call(NAME.view(), arguments...) + ": of a stranger");
        return honest(arguments...);
    });
}

void checkCalls() {
    check<"RasDialA">([](LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, auto...) {
        return isPeers(params->szEntryName) && isPeers(params->szUserName) &&
               strnlen(params->szDomain, sizeof params->szDomain) < sizeof params->szDomain;
    });
    check<"RasHangUpA">([](HRASCONN conn) {
        const auto [first, last] = shownHandles.equal_range(conn);
        const Connection* const known = theComputer().find(conn);
        return conn == nullptr || (known != nullptr && known->dialled) || (anyConnection && first != last) ||
               std::any_of(first, last, [](const auto& shown) { return isPeers(shown.second); });
    });
    check<"RasDeleteEntryA">([](LPCSTR, LPCSTR name) { return isPeers(name); });
    check<"RasRenameEntryA">([](LPCSTR, LPCSTR from, LPCSTR to) { return isPeers(from) && isPeers(to); });
    check<"DeleteFileA">([](const std::string& path) {
        return !path.ends_with("pptp.pbk") || std::ranges::any_of(peers, [&](const std::string& id) {
            return path == "C:\\peers\\" + id + "\\pptp.pbk";
        });
    });
    check<"logLine">([](int, const char*, long, const std::string& text) {
        return std::ranges::none_of(longestOf, [&](const auto& field) {
            return text.find(std::string(field.second + 1, field.first)) != std::string::npos;
        });
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
        failure = {failure.import, static_cast<long>(1 + below(6)), oneIn(3), 1 + below(2'000)};
    }
    return failures;
}

} // namespace

void answers::fill(char* field, std::size_t room, const std::string& truth) {
    const char filler = lie ? static_cast<char>(0xC0 + room % 31) : '\0';
    const std::string text = lie && oneIn(2) ? anyText() : truth;
    std::memset(field, filler, room);
    if (!lie || !oneIn(4))
        text.copy(field, room);
    if (lie && text.size() < room && !oneIn(3))
        field[text.size()] = '\0';
    longestOf[filler] = room;
    const std::string told(field, strnlen(field, room - 1));
    if (lie && room == MAX_PATH && CheckIdFormat(nullptr, told, nullptr, nullptr, nullptr))
        peers.push_back(told); // for all that the library knows
}

DWORD answers::number(DWORD truth) {
    static constexpr DWORD edges[] = {0,   1,   2,   3,          4,          79,        80,
                                      255, 256, 257, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    if (!lie || oneIn(2))
        return truth;
    return oneIn(2) ? edges[below(std::size(edges))] : static_cast<DWORD>(chance()) >> below(32);
}

void answers::show(RASCONNA& record, const Connection& connection) {
    HRASCONN const handle = lie ? reinterpret_cast<HRASCONN>(ULONG_PTR{below(9)}) : connection.handle;
    record.dwSize = number(record.dwSize);
    record.hrasconn = handle;
    fill(record.szEntryName, connection.entryName);
    fill(record.szPhonebook, connection.phoneBook);
    shownHandles.emplace(handle,
                         std::string(record.szEntryName, strnlen(record.szEntryName, RAS_MaxEntryName)));
}

void playLying(std::vector<SituationFile>& files, Tally& tally) {
    answers::lie = true;
    checkCalls();
    const unsigned int rounds = isAsked("VARNEL_SOAK") ? 1'000 : 40;
    for (const SituationFile& file : files)
        for (const Situation& situation : file.situations) {
            const unsigned long failedBefore = tally.failed;
            for (unsigned int round = 0; round < rounds; ++round)
                for (const Play& play : situation.plays) {
                    chance.seed(seed() * 2654435761U + static_cast<std::uint32_t>(++tally.runs));
                    Run run(situation);
                    run.computer.clock.yieldTakes = 250;
                    peers = {run.meant("Node"), run.meant("Node...")};
                    shownHandles.clear();
                    for (const Step& step : play.steps) {
                        anyConnection = !step.operation.starts_with("dialDown ");
                        const std::string name = situation.name + ": " + step.operation + ", run " +
                                                 std::to_string(tally.runs) + " of seed " +
                                                 std::to_string(seed());
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
