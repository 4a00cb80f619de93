#include "tests/campaigns/watchdog.h"

#include "tests/kit/imports.h"

#include <exception>

Watchdog::Watchdog(const Campaign& campaign_, std::chrono::seconds patience_)
    : campaign(campaign_), patience(patience_), watching([this] { watch(); }) {
    only = this;
    SetUnhandledExceptionFilter(&crashed);
    std::set_terminate([] { blame("let an exception out of where none may pass"); });
}

Watchdog::~Watchdog() {
    over = true;
    watching.join();
    SetUnhandledExceptionFilter(nullptr);
    only = nullptr;
}

void Watchdog::noteImports() {
#define NOTE_IMPORT(module, function, failure, shown)                                                        \
    before<#function>([](const auto&...) {                                                                   \
        if (own != nullptr)                                                                                  \
            own->import = #function;                                                                         \
    });
    VARNEL_IMPORTS(NOTE_IMPORT)
#undef NOTE_IMPORT
}

Watchdog::Call::Call(Watchdog& watchdog, std::size_t thread, const char* operation, std::size_t run) {
    own = &watchdog.threads.at(thread);
    own->import = nullptr;
    own->run = run;
    own->since = std::chrono::steady_clock::now();
    own->operation = operation;
}

Watchdog::Call::~Call() {
    own->operation = nullptr;
    own = nullptr;
}

void Watchdog::watch() {
    while (!over) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (std::size_t number = 0; number < threads.size(); ++number)
            endIfBlocked(number);
    }
}

void Watchdog::endIfBlocked(std::size_t number) {
    const Thread& thread = threads[number];
    if (thread.operation != nullptr && std::chrono::steady_clock::now() - thread.since.load() > patience)
        end(number, "has not returned");
}

void Watchdog::end(std::size_t number, const char* what) const {
    const Thread& thread = threads[number];
    const char* const operation = thread.operation;
    const char* const import = thread.import;
    fmt::print("{}, last import {}, run {}, thread {}: {}\n", operation != nullptr ? operation : "a call",
               import != nullptr ? import : "not noted", thread.run.load(), number, what);
    campaign.report("FAILED");
    TerminateProcess(GetCurrentProcess(), EXIT_FAILURE); // which waits for nobody
    std::abort();
}

// A thread that is outside every call is one of a notifier.
void Watchdog::blame(const char* what) {
    if (only == nullptr)
        std::abort();
    if (own != nullptr)
        only->end(static_cast<std::size_t>(own - only->threads.data()), what);
    only->end(0, (std::string(what) + ", or a notifier beside it").c_str());
}

long __stdcall Watchdog::crashed(struct _EXCEPTION_POINTERS*) {
    blame("crashed");
}
