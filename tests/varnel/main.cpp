#include "play.h"

#include <future>

namespace {

constexpr char help[] = "usage: situations_test written|failing|lying|threads FILE...\n"
                        "VARNEL_ACCEPT=1 writes what came, when played as written, into the files; "
                        "VARNEL_SEED=N says how to lie; VARNEL_SOAK=1 disturbs for longer";

// What each thread is at, and since when.
struct Present {
    std::string run;
    std::chrono::steady_clock::time_point begun;
};
std::recursive_mutex presentLock;
std::map<DWORD, Present> presents;
constexpr std::chrono::seconds patience{20};

// Ends the program, when a run crashes or does not return.
LONG giveUp(const char* what, DWORD thread = GetCurrentThreadId()) {
    const std::scoped_lock locked(presentLock);
    std::printf("%s: %s\ncases: 0 passed, 1 failed\n", presents[thread].run.c_str(), what);
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), EXIT_FAILURE);
    return EXCEPTION_EXECUTE_HANDLER;
}

const std::map<std::string, void (*)(Situation&)> ways = {
    {"written", &playAsWritten}, {"failing", &playFailing}, {"lying", &playLying}};

unsigned long passed = 0; // situations of which no run has failed

void playAll(const std::string& way, std::span<const std::string> paths) {
    if (way == "threads")
        playInThreads();
    for (const std::string& path : paths) {
        SituationFile file(path);
        for (Situation& situation : file.situations) {
            const unsigned long failedBefore = report::failed;
            ways.at(way)(situation);
            passed += report::failed == failedBefore ? 1U : 0U;
        }
        if (accepts && way == "written")
            file.write();
    }
    passed += way == "threads" && report::failed == 0 ? 1U : 0U;
}

} // namespace

void report::begin(const std::string& run) {
    const std::scoped_lock locked(presentLock);
    ++runs;
    presents[GetCurrentThreadId()] = {run, std::chrono::steady_clock::now()};
}

void report::end(const std::vector<std::string>& offences) {
    constexpr unsigned long mostShown = 20;
    const std::scoped_lock locked(presentLock);
    const std::string run = std::exchange(presents[GetCurrentThreadId()], {}).run;
    if (!offences.empty() && ++failed <= mostShown)
        std::printf("%s\n    %s\n\n", run.c_str(), joined(offences, "\n    ").c_str());
}

int main(int count, char** arguments) {
    const std::vector<std::string> said(arguments + 1, arguments + count);
    if (said.empty() || (said[0] == "threads") != (said.size() == 1))
        return std::puts(help), 2;
    try {
        report::end(redirectImports());
        report::end(oddInShippedModules());
        for (const auto answer : {&answerForSystem, &answerForRemoteAccess, &answerForRegistryAndServices,
                                  &answerForRouterAndNetworks, &answerForHeap})
            answer();
        SetUnhandledExceptionFilter([](EXCEPTION_POINTERS*) { return giveUp("crashed"); });
        std::set_terminate([] { giveUp("let an exception out of where none may pass"); });
        auto playing = std::async(std::launch::async, [&] {
            playAll(said[0], {said.begin() + 1, said.end()});
        });
        while (playing.wait_for(std::chrono::milliseconds(200)) == std::future_status::timeout)
            for (const std::scoped_lock locked(presentLock); const auto& [thread, at] : presents)
                if (!at.run.empty() && std::chrono::steady_clock::now() - at.begun > patience)
                    giveUp("has not returned", thread);
        playing.get();
    } catch (const std::exception& reason) {
        report::end({reason.what()});
    }
    std::printf("campaign %s: %lu runs, seed %u%s\ncases: %lu passed, %lu failed\n", said[0].c_str(),
                report::runs.load(), seed, report::failed == 0 ? "" : ", FAILED", passed,
                report::failed.load());
    return report::failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
