// Plays the situations: situations_test [--accept | --failing | --lying | --threads] [--long] [--seed N]
// FILE...
#include "play.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

namespace {

constexpr char help[] = "usage: situations_test WAY FILE...\n\n"
                        "  written  plays the situations as the files have them; VARNEL_ACCEPT=1 writes what "
                        "came into the files\n"
                        "  failing  every call of each play fails in turn\n"
                        "  lying    the system lies; VARNEL_SEED=N says how, VARNEL_SOAK=1 for how long\n"
                        "  threads  many threads dial, hang up and ask at once (no files)";

struct Way {
    std::string name;
    void (*play)(std::vector<SituationFile>& files, Tally& tally);
};
const Way ways[] = {{"written", &playAsWritten},
                    {"failing", &playFailing},
                    {"lying", &playLying},
                    {"threads", &playInThreads}};

// What each thread is doing, and since when.
std::recursive_mutex watchedLock;
std::map<DWORD, std::pair<std::string, std::chrono::steady_clock::time_point>> watched;
constexpr std::chrono::seconds patience{20};

[[noreturn]] void blame(const char* what, DWORD thread = GetCurrentThreadId()) {
    const std::scoped_lock locked(watchedLock);
    std::printf("%s: %s\ncases: 0 passed, 1 failed\n", watched[thread].first.c_str(), what);
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), EXIT_FAILURE);
    std::abort();
}

LONG CALLBACK crashed(EXCEPTION_POINTERS*) {
    blame("crashed");
}

} // namespace

void watchdog::start() {
    SetUnhandledExceptionFilter(&crashed);
    std::set_terminate([] { blame("let an exception out of where none may pass"); });
    std::thread([] {
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            const std::scoped_lock locked(watchedLock);
            for (const auto& [thread, run] : watched)
                if (!run.first.empty() && std::chrono::steady_clock::now() - run.second > patience)
                    blame("has not returned", thread);
        }
    }).detach();
}

void watchdog::watch(const std::string& run) {
    const std::scoped_lock locked(watchedLock);
    watched[GetCurrentThreadId()] = {run, std::chrono::steady_clock::now()};
}

int main(int count, char** arguments) {
    const std::vector<std::string> said(arguments + 1, arguments + count);
    if (said.empty() || said[0] == "--help")
        return std::puts(help), 2;
    Tally tally;
    std::vector<SituationFile> files;
    try {
        for (std::size_t i = 1; i < said.size(); ++i)
            files.emplace_back(said[i]);
        const auto way = std::ranges::find(ways, said[0], &Way::name);
        if (way == std::end(ways))
            throw std::runtime_error("no way of playing is called " + said[0]);
        for (const std::string& odd : redirectImports())
            throw std::runtime_error(odd);
        answerForSystem();
        answerForRemoteAccess();
        answerForRegistryAndServices();
        answerForRouterAndNetworks();
        answerForHeap();
        watchdog::start();
        way->play(files, tally);
    } catch (const std::exception& reason) {
        tally.failure(reason.what());
    }
    std::printf("campaign %s: %lu runs, seed %u%s\n", said[0].c_str(), tally.runs, seed(),
                tally.failed == 0 ? "" : ", FAILED");
    std::printf("cases: %lu passed, %lu failed\n", tally.passed, tally.failed);
    return tally.failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
