// Many threads of a host dial, hang up and ask at once, each for peers of its own, in a computer where time
// passes a thousand times faster. Notifications come early, late, twice, never and after the end. Each dial
// gets its own outcome, ids and names stay unique, and nothing is left.
#include "play.h"
#include "privates.h"

#include <climits>
#include <random>

#include <raserror.h>

#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr unsigned int hosts = 48;
constexpr DWORD speed = 1'000;
constexpr unsigned long idsBeforeWrap = 100; // and as many behind it, at least
constexpr DWORD tooLate = 9'999;             // the outcome of attempts that nobody waits for any more

enum class Timing { early, late, twice, never, afterTheEnd };

// What a thread's next dial comes to.
struct Plan {
    std::string peer;
    DWORD outcome;
    Timing timing;
    bool isBusyAtFirst;
    std::vector<std::jthread> notifiers = {}; // asked to stop when the dial is over

    bool isWaitedFor() const { return timing != Timing::never && timing != Timing::afterTheEnd; }
    bool isUp() const { return isWaitedFor() && outcome == 0; }
};
thread_local Plan* mine; // this thread's; a pointer, since the compiler frees thread-local objects too early

std::set<DWORD> idsSeen;

bool isMine(const Connection& connection) {
    return connection.entryName.starts_with(mine->peer + " #");
}

DWORD dial(LPRASDIALEXTENSIONS, LPCSTR phoneBook, LPRASDIALPARAMSA params, DWORD, LPVOID notifier,
           LPHRASCONN conn) {
    const auto id = static_cast<DWORD>(params->dwCallbackId);
    std::unique_lock locked(worldLock);
    expect(id != 0 && idsSeen.insert(id).second, "an attempt's id is 0 or comes twice");
    if (std::exchange(mine->isBusyAtFirst, false))
        return ERROR_DIAL_ALREADY_IN_PROGRESS;
    theComputer().apply("up " + std::string(params->szEntryName) + " = " + phoneBook);
    Connection& connection = theComputer().connections.back();
    connection.listed = mine->isUp();
    *conn = connection.handle;
    locked.unlock();
    const auto notify = [=, handle = *conn](RASCONNSTATE state, DWORD error) {
        reinterpret_cast<RASDIALFUNC2>(notifier)(id, 1, handle, WM_RASDIALEVENT, state, error, 0);
    };
    const auto end = [=, &plan = *mine] {
        notify(RASCS_OpenPort, 0);
        for (int times = plan.timing == Timing::twice ? 2 : 1; times > 0; --times)
            notify(RASCS_Connected, plan.outcome);
    };
    if (mine->timing == Timing::early)
        return end(), 0;
    mine->notifiers.emplace_back([=, &plan = *mine](const std::stop_token& dialIsOver) {
        if (plan.isWaitedFor())
            end();
        while (!dialIsOver.stop_requested())
            std::this_thread::sleep_for(1ms);
        if (plan.timing != Timing::never)
            notify(RASCS_Authenticate, tooLate);
    });
    return 0;
}

void answerInRealTime() {
    on<"RasDialA">(&dial);
    always<"CloseHandle">(TRUE); // its value does not come again, so a late use is known
    on<"CreateEventA">([](LPSECURITY_ATTRIBUTES, WINBOOL manualReset, WINBOOL, LPCSTR) { // none for a lock
        return manualReset != FALSE ? CreateEventA(nullptr, TRUE, FALSE, nullptr) : nullptr;
    });
    on<"Sleep">([](DWORD ms) { Sleep(ms / speed); });
    on<"GetTickCount">([] { return GetTickCount() * speed; });
    on<"WaitForSingleObject">([](HANDLE object, DWORD ms) { // at once: for the lock, which others have
        return ms != 0 && mine->isWaitedFor() ? WaitForSingleObject(object, INFINITE) : WAIT_TIMEOUT;
    });
    // Each thread is shown its own connections, since the library looks at the first three alone.
    on<"RasEnumConnectionsA">([honest = Call<"RasEnumConnectionsA">::answer](auto... arguments) {
        const auto everybodys = theComputer().connections;
        std::erase_if(theComputer().connections, std::not_fn(&isMine));
        const DWORD code = honest(arguments...);
        theComputer().connections = everybodys;
        return code;
    });
}

void dialAskAndHangUp() {
    // What nobody reports in time is a success to the library.
    const DWORD expected = mine->isWaitedFor() ? mine->outcome : 0;
    const std::string& peer = mine->peer;
    report::begin(peer + " dialUp");
    const DWORD result = VARNEL::dialUp(peer, "secret", false, false, 1);
    expect(result == expected, fmt::format("a dial that ends with {} gives {}", expected, result));
    for (std::jthread& notifier : mine->notifiers)
        notifier.request_stop();
    report::begin(peer + " getCurrentEntryNameById");
    expect(VARNEL::getCurrentEntryNameById(peer).starts_with(peer + " #") == mine->isUp(),
           "another entry is given");
    report::begin(peer + " dialDown");
    expect(VARNEL::dialDown(peer) == mine->isUp(), "a hang-up has another result");
    report::end({});
    const std::scoped_lock locked(worldLock);
    std::erase_if(theComputer().connections, &isMine);
}

} // namespace

void playInThreads() {
    answerInRealTime();
    for (const long wrap : {LONG_MAX, -1L}) {
        Computer computer;
        idsSeen.clear();
        journal::wanted = Seen::none;
        privates::onlyClient = true; // clean() looks for no folders
        privates::callbackIdIndex = wrap - static_cast<long>(idsBeforeWrap);
        const unsigned long enough = report::runs + 6 * idsBeforeWrap;
        const auto end = std::chrono::steady_clock::now() + (soaks ? 30s : 2s);
        const auto live = [=](unsigned int number) {
            std::mt19937 chance(seed * 1'000 + number);
            for (int round = 0; std::chrono::steady_clock::now() < end || report::runs < enough; ++round) {
                Plan plan = {.peer = fmt::format("node{}x{}", number, round),
                             .outcome = chance() % 2 == 0 ? 0 : 800 + static_cast<DWORD>(chance() % 100),
                             .timing = static_cast<Timing>(chance() % 5),
                             .isBusyAtFirst = chance() % 8 == 0};
                mine = &plan;
                dialAskAndHangUp();
                mine = nullptr;
            }
        };
        std::vector<std::jthread> threads;
        for (unsigned int number = 0; number < hosts; ++number)
            threads.emplace_back(live, number);
        threads.clear(); // waits for them
        VARNEL::clean();
        computer.settle();
        report::end(std::exchange(complaints, {}));
    }
}
