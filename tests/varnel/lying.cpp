// Plays on a computer whose answers are lies, out of a seed: texts without ends, counts beyond the buffer,
// sizes changed, entries that vanish, values of any type and length, codes of any number. Whatever it is
// told, the library stays within its bounds, gives back what it was lent, and touches nothing of a stranger.
#include "play.h"

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

const auto& anyOf(const auto& all) {
    return all[below(static_cast<DWORD>(std::size(all)))];
}

std::string anyText() {
    static const std::string others[] = {"stranger #0",     "..",      "con", "%s%n", "a/b", "1", "999.1.1.1",
                                         "ms_pptpminiport", "10.0.0.1"};
    static const std::string tails[] = {"", " #0", " #1", " #", "#0", "7 #0", " #9999999999"};
    return oneIn(3) ? anyOf(others) : anyOf(peers) + anyOf(tails);
}

bool isPeers(const std::string& name) {
    return std::ranges::any_of(peers, [&](const std::string& id) {
        return boost::iequals(name, id) || boost::istarts_with(name, id + " #");
    });
}

template<Name Function, class Check>
void check(Check isRight) {
    on<Function>([isRight, honest = Call<Function>::answer](auto... arguments) {
        if (!isRight(arguments...))
            complain(text::call(Function.view(), arguments...) + ": of a stranger");
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
    std::vector<Import*> able = allImports();
    std::erase_if(able, [](const Import* import) {
        return import->codes.empty() || import->failing == Failing::byThrowing ||
               import->name == "RegEnumKeyExA";
    });
    std::vector<Fault> failures(below(4));
    for (Fault& failure : failures)
        failure = {anyOf(able), static_cast<long>(1 + below(6)), oneIn(3), 1 + below(2'000)};
    return failures;
}

} // namespace

void answers::fill(char* field, std::size_t room, const std::string& text) {
    const char filler = lie ? static_cast<char>(0xC0 + room % 31) : '\0';
    const std::string shown = lie && oneIn(2) ? anyText() : text;
    std::memset(field, filler, room);
    if (!lie || !oneIn(4))
        shown.copy(field, room);
    if (lie && shown.size() < room && !oneIn(3))
        field[shown.size()] = '\0';
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
    return oneIn(2) ? anyOf(edges) : static_cast<DWORD>(chance()) >> below(32);
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

void playLying(Situation& situation) {
    if (!std::exchange(answers::lie, true))
        checkCalls();
    for (int rounds = soaks ? 1'000 : 40; rounds > 0; --rounds) {
        chance.seed(seed * 2654435761U + static_cast<unsigned int>(report::runs));
        Run run(situation);
        peers = {run.meant("Node"), run.meant("Node...")};
        shownHandles.clear();
        run.computer.apply(fmt::format("level = {}", below(4)));
        for (const Step& step : situation.steps) {
            anyConnection = !step.operation.starts_with("dialDown ");
            report::begin(
                fmt::format("{}: {}, run {} of seed {}", situation.name, step.operation, report::runs, seed));
            Outcome came = run.perform(step, someFailures());
            std::erase_if(came.offences, [](const std::string& offence) {
                return offence.starts_with("a dialled connection"); // which a lie may have called gone
            });
            if (came.result == "throws" || came.passwordLeft)
                came.offences.push_back("it throws, or leaves the password in memory");
            report::end(came.offences);
        }
    }
}
