// Plays the situations: situations_test [--accept | --failing | --lying | --threads] [--long] [--seed N]
// FILE...
#include "play.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

namespace {

constexpr char help[] =
    "usage: situations_test [--accept | --failing | --lying | --threads] [--long] [--seed N] FILE...\n\n"
    "Plays the situations of each FILE as they are written, and prints what is other.\n\n"
    "  --accept   writes what came into the files; read the difference before it is committed\n"
    "  --failing  every call of each play fails in turn, once and from there on\n"
    "  --lying    the system lies, by the seed\n"
    "  --threads  many threads dial, hang up and ask at once (takes no files)\n"
    "  --long     the same for longer\n";

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
    Way way{.accept = std::getenv("VARNEL_ACCEPT") != nullptr,
            .isLong = std::getenv("VARNEL_SOAK") != nullptr};
    if (const char* const seed = std::getenv("VARNEL_SEED"))
        way.seed = static_cast<unsigned int>(std::strtoul(seed, nullptr, 10));
    std::string kind;
    std::vector<SituationFile> files;
    try {
        for (int i = 1; i < count; ++i) {
            const std::string argument = arguments[i];
            if (argument == "--accept" || argument == "--long")
                (argument == "--long" ? way.isLong : way.accept) = true;
            else if (argument == "--seed" && i + 1 < count)
                way.seed = static_cast<unsigned int>(std::stoul(arguments[++i]));
            else if (argument == "--failing" || argument == "--lying" || argument == "--threads")
                kind = argument.substr(2);
            else if (argument.starts_with("-"))
                return std::fputs(help, stdout), argument == "--help" ? 0 : 2;
            else
                files.emplace_back(argument);
        }
        for (const std::string& odd : redirectImports())
            throw std::runtime_error(odd);
        answerForSystem();
        answerForRemoteAccess();
        answerForRegistryAndServices();
        answerForRouterAndNetworks();
        answerForHeap();
        watchdog::start();
        Tally tally;
        if (kind == "failing")
            playFailing(files, way, tally);
        else if (kind == "lying")
            playLying(files, way, tally);
        else if (kind == "threads")
            playInThreads(way, tally);
        else
            playAsWritten(files, way, tally);
        std::printf("campaign %s: %lu runs, seed %u%s\n", kind.empty() ? "situations" : kind.c_str(),
                    tally.runs, way.seed, tally.failed == 0 ? "" : ", FAILED");
        std::printf("cases: %lu passed, %lu failed\n", tally.passed, tally.failed);
        return tally.failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& reason) {
        std::printf("%s\ncases: 0 passed, 1 failed\n", reason.what());
        return 2;
    }
}
