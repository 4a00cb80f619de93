// Many threads of a host dial, hang up and ask at once, each for peers of its own, in a computer where time
// passes a thousand times faster. Notifications come early, late, twice, never and after the end. Each dial
// gets its own outcome, ids and names stay unique, and nothing is left.
#include "play.h"
#include "privates.h"

#include <algorithm>
#include <climits>
#include <deque>
#include <random>

#include <raserror.h>

#include <thread>

namespace {

constexpr int hosts = 48;
constexpr DWORD speed = 1'000;
constexpr std::size_t closedHandlesKept = 4'096;
constexpr unsigned long idsBeforeWrap = 100; // and as many behind it, at least
constexpr DWORD tooLate = 9'999; // the outcome of attempts that nobody waits for any more

enum class Timing { early, late, twice, never, afterTheEnd };

// What a thread's next dial comes to.
struct Plan {
    std::string peer;
    DWORD outcome;
    Timing timing;
    bool isBusyAtFirst;
    std::shared_ptr<std::atomic<bool>> isOver = std::make_shared<std::atomic<bool>>(false);

    bool isWaitedFor() const { return timing != Timing::never && timing != Timing::afterTheEnd; }
};
thread_local Plan* mine; // this thread's; a pointer, since the compiler frees thread-local objects too early

std::set<DWORD> idsSeen;
std::deque<HANDLE> closedHandles;
std::atomic<int> notifiers = 0;

bool isMine(const Connection& connection) {
    return connection.entryName.starts_with(mine->peer + " #");
}

void notify(LPVOID notifier, DWORD id, HRASCONN conn, long state, DWORD error) {
    reinterpret_cast<RASDIALFUNC2>(notifier)(id, 1, conn, WM_RASDIALEVENT, static_cast<RASCONNSTATE>(state),
                                             error, 0);
}

void endDial(HRASCONN handle, const Plan& dialled, DWORD id, LPVOID notifier) {
    notify(notifier, id, handle, RASCS_OpenPort, 0);
    {
        const std::scoped_lock locked(worldLock());
        if (Connection* const connection = theComputer().find(handle))
            connection->listed = dialled.outcome == 0;
    }
    for (int times = dialled.timing == Timing::twice ? 2 : 1; times > 0; --times)
        notify(notifier, id, handle, RASCS_Connected, dialled.outcome);
}

DWORD dial(LPRASDIALEXTENSIONS, LPCSTR phoneBook, LPRASDIALPARAMSA params, DWORD, LPVOID notifier,
           LPHRASCONN conn) {
    const auto id = static_cast<DWORD>(params->dwCallbackId);
    {
        const std::scoped_lock locked(worldLock());
        if (id == 0 || !idsSeen.insert(id).second)
            complain("an attempt's id is 0 or comes twice");
        if (std::exchange(mine->isBusyAtFirst, false))
            return ERROR_DIAL_ALREADY_IN_PROGRESS;
        theComputer().apply("up " + std::string(params->szEntryName) + " = " + phoneBook);
        theComputer().connections.back().listed = false;
        *conn = theComputer().connections.back().handle;
    }
    if (mine->timing == Timing::early)
        return endDial(*conn, *mine, id, notifier), 0;
    ++notifiers;
    std::thread([=, handle = *conn, dialled = *mine] {
        if (dialled.isWaitedFor())
            endDial(handle, dialled, id, notifier);
        while (!*dialled.isOver)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (dialled.timing != Timing::never)
            notify(notifier, id, handle, RASCS_Authenticate, tooLate);
        --notifiers;
    }).detach();
    return 0;
}

// A closed handle's value is not given out again for a while, so that its use is known for what it is.
WINBOOL closeHandle(HANDLE handle) {
    if (theComputer().thing(handle).empty())
        closedHandles.push_back(handle);
    for (; closedHandles.size() > closedHandlesKept; closedHandles.pop_front())
        CloseHandle(closedHandles.front());
    return TRUE;
}

void answerInRealTime() {
    on<"RasDialA">(&dial);
    on<"CloseHandle">(&closeHandle);
    on<"CreateEventA">([](LPSECURITY_ATTRIBUTES, WINBOOL manualReset, WINBOOL, LPCSTR) {
        return manualReset != FALSE ? CreateEventA(nullptr, TRUE, FALSE, nullptr)
                                    : nullptr; // none for a lock
    });
    on<"Sleep">([](DWORD ms) { Sleep(ms / speed); });
    on<"GetTickCount">([] { return GetTickCount() * speed; });
    on<"WaitForSingleObject">([](HANDLE object, DWORD) -> DWORD {
        {
            const std::scoped_lock locked(worldLock());
            if (theComputer().thing(object) == "lock")
                return WAIT_TIMEOUT;
        }
        return mine->isWaitedFor() ? WaitForSingleObject(object, INFINITE) : WAIT_TIMEOUT;
    });
    // Each thread is shown its own connections, since the library looks at the first three alone.
    on<"RasEnumConnectionsA">([honest = Call<"RasEnumConnectionsA">::answer](auto... arguments) {
        auto& all = theComputer().connections;
        const auto everybodys = all;
        std::erase_if(all, [](const Connection& connection) { return !isMine(connection); });
        const DWORD code = honest(arguments...);
        all = everybodys;
        return code;
    });
}

void dialAskAndHangUp() {
    // What nobody reports in time is a success to the library.
    const DWORD expected = mine->isWaitedFor() ? mine->outcome : 0;
    const std::string peer = mine->peer;
    watchdog::watch(peer + " dialUp");
    if (const DWORD result = VARNEL::dialUp(peer, "secret", false, false, 1); result != expected)
        complain("a dial that ends with " + std::to_string(expected) + " gives " + std::to_string(result));
    *mine->isOver = true;
    const bool isUp = mine->isWaitedFor() && mine->outcome == 0;
    watchdog::watch(peer + " getCurrentEntryNameById");
    if (VARNEL::getCurrentEntryNameById(peer).starts_with(peer + " #") != isUp)
        complain("another entry is given for a peer");
    watchdog::watch(peer + " dialDown");
    if (VARNEL::dialDown(peer) != isUp)
        complain("a hang-up has another result");
    watchdog::watch("");
    const std::scoped_lock locked(worldLock());
    std::erase_if(theComputer().connections, &isMine);
}

void live(int number, std::chrono::steady_clock::time_point end, std::atomic<unsigned long>& rounds) {
    std::mt19937 chance(seed() * 1'000 + static_cast<unsigned int>(number));
    for (int round = 0; std::chrono::steady_clock::now() < end || rounds < 2 * idsBeforeWrap; ++round, ++rounds) {
        Plan plan = {.peer = "node" + std::to_string(number) + "x" + std::to_string(round),
                     .outcome = chance() % 2 == 0 ? 0 : 800 + static_cast<DWORD>(chance() % 100),
                     .timing = static_cast<Timing>(chance() % 5),
                     .isBusyAtFirst = chance() % 8 == 0};
        mine = &plan;
        dialAskAndHangUp();
    }
}

} // namespace

void playInThreads(std::vector<SituationFile>&, Tally& tally) {
    answerInRealTime();
    for (const long wrap : {LONG_MAX, -1L}) {
        Computer computer;
        idsSeen.clear();
        journal::wanted = Seen::none;
        privates::onlyClient = true; // clean() looks for no folders
        privates::callbackIdIndex = wrap - static_cast<long>(idsBeforeWrap);
        std::atomic<unsigned long> rounds = 0;
        std::vector<std::thread> threads;
        const auto end = std::chrono::steady_clock::now() +
                         std::chrono::milliseconds(isAsked("VARNEL_SOAK") ? 30'000 : 2'000);
        for (int number = 0; number < hosts; ++number)
            threads.emplace_back([&, number] { live(number, end, rounds); });
        for (std::thread& thread : threads)
            thread.join();
        while (notifiers != 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        VARNEL::clean();
        computer.settle();
        const std::vector<std::string> offences = takeComplaints();
        tally.runs += rounds;
        if (offences.empty())
            ++tally.passed;
        else
            tally.failure("many threads: " + joined(offences, "\n    "));
    }
}
