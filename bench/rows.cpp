#include "bench.h"
#include "outside/Log.h"
#include "service.h"
#include "varnel/Varnel.h"

#include <winsock2.h>

#include <fmt/format.h>

#include <windows.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <memory>

#include <psapi.h>
#include <ras.h>

#include <thread>

namespace {

constexpr DWORD address = 0x0A000001;

void dial() {
    VARNEL::dialUp("node", "secret", true, true, address);
}

// The calls of the library, by hand.
HANDLE bareEvent;

DWORD CALLBACK bareNotifier(ULONG_PTR, DWORD, HRASCONN, UINT, RASCONNSTATE, DWORD, DWORD) {
    SetEvent(bareEvent);
    return 1;
}

void bareDial() {
    GetTickCount();
    GetTickCount();
    if (const HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, "RasPbFile")) {
        WaitForSingleObject(mutex, 0);
        ReleaseMutex(mutex);
        CloseHandle(mutex);
    }
    RASENTRYNAMEA names[1] = {};
    DWORD size = sizeof names, count = 0;
    service::enumEntries(nullptr, nullptr, names, &size, &count);
    RASENTRYA entry = {};
    service::setEntryProperties(nullptr, "node #0", &entry, sizeof entry, nullptr, 0);
    RASDIALPARAMSA params = {};
    service::setEntryDialParams(nullptr, &params, TRUE);
    BOOL stored = FALSE;
    service::getEntryDialParams(nullptr, &params, &stored);
    GetTickCount();
    HMODULE self = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCSTR>(&bareDial), &self);
    bareEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HRASCONN connection = nullptr;
    service::dial(nullptr, nullptr, &params, 2, reinterpret_cast<void*>(&bareNotifier), &connection);
    WaitForSingleObject(bareEvent, 10'000);
    CloseHandle(bareEvent);
    RASPPPIPA projection = {};
    service::projectionInfo(connection, RASP_PppIp, &projection, &size);
    service::noSleep(1'000);
    RASCONNSTATUSA status = {};
    service::connectStatus(connection, &status);
    GetTickCount();
}

void bareList(DWORD& count, RASCONNA*& connections) {
    DWORD size = 256 * service::recordSize;
    connections = static_cast<RASCONNA*>(HeapAlloc(GetProcessHeap(), 0, size));
    service::enumConnections(connections, &size, &count);
}

void bareEntryName() {
    GetTickCount();
    DWORD count = 0;
    RASCONNA* connections = nullptr;
    bareList(count, connections);
    HeapFree(GetProcessHeap(), 0, connections);
    GetTickCount();
}

void bareHangUp() {
    GetTickCount();
    DWORD count = 0;
    RASCONNA* connections = nullptr;
    bareList(count, connections);
    if (count > 0) {
        service::hangUp(connections->hrasconn);
        GetTickCount();
        RASCONNSTATUSA status = {};
        service::connectStatus(connections->hrasconn, &status);
        service::deleteEntry(nullptr, "node #0");
    }
    HeapFree(GetProcessHeap(), 0, connections);
    char folder[MAX_PATH] = "";
    GetEnvironmentVariableA("TAVIK_WORKING_FOLDER", nullptr, 0);
    GetEnvironmentVariableA("TAVIK_WORKING_FOLDER", folder, sizeof folder);
    DeleteFileA((std::string(folder) + "\\node\\pptp.pbk").c_str());
    GetTickCount();
}

// A dial at level 3, against one at level 0 and the same lines written by one call each.
Row logRow(const std::string& folder) {
    LOG::level = 3;
    dial();
    std::vector<std::string> lines;
    std::ifstream log(folder + "\\bench.log", std::ios::binary);
    for (std::string line; std::getline(log, line);)
        lines.push_back(line + '\n');
    const HANDLE file =
        CreateFileA((folder + "\\lines").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    Row row = compared(
        fmt::format("dialUp at log level 3, {} lines", lines.size()), "level 0 and WriteFile", 1.5, 10,
        [] {
            LOG::level = 3;
            dial();
        },
        [&] {
            LOG::level = 0;
            dial();
            DWORD written = 0;
            for (const std::string& line : lines)
                WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
        });
    CloseHandle(file);
    LOG::level = 0;
    return row;
}

// What a call does for its records when nobody wants them.
long traces, records;
void countTrace(int, const char*, long, const char*, ...) {
    ++traces;
}
void countRecord(int, const char*, long, const std::string&) {
    ++records;
}

std::vector<Row> unwantedRows() {
    ImportTable imports(GetModuleHandleA("Varnel.dll"));
    imports.replace("_ZN3LOG5printEiPKclS1_z", reinterpret_cast<void*>(&countTrace));
    imports.replace("_ZN3LOG6printsEiPKclRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
                    reinterpret_cast<void*>(&countRecord));
    dial();
    return {{"log lines of a dial at level 0", "calls of Log.dll", 0, 0, records, 0},
            {"call traces of a dial at level 0", "calls of Log.dll, 2 for each of 4", 0, 0, traces, 0}};
}

// Diallers that wait, each in a thread; how long it takes from a notification until its waiter runs, in ms.
double wakening(int diallers, const std::function<void()>& wait,
                const std::function<void(service::Held&)>& wake) {
    std::vector<double> times;
    for (int round = 0; round < 128 / diallers + 3; ++round) {
        std::vector<service::Held> all(static_cast<std::size_t>(diallers));
        std::vector<std::thread> threads;
        threads.reserve(all.size());
        for (service::Held& one : all)
            threads.emplace_back([&one, &wait] {
                service::held = &one;
                wait();
                service::held = nullptr;
            });
        for (service::Held& one : all)
            while (one.waiting == 0)
                Sleep(1);
        Sleep(20); // until they wait indeed
        for (service::Held& one : all) {
            const double start = now();
            wake(one);
            while (one.waiting != 0)
                SwitchToThread();
            LARGE_INTEGER frequency;
            QueryPerformanceFrequency(&frequency);
            times.push_back(1000.0 * static_cast<double>(one.woken.QuadPart) /
                                static_cast<double>(frequency.QuadPart) -
                            start);
        }
        for (std::thread& thread : threads)
            thread.join();
    }
    std::ranges::sort(times);
    return times[times.size() / 2];
}

Row wakeningRow(int diallers) {
    std::vector<double> ratios;
    for (int batch = 0; batch < 9; ++batch) {
        const double library = wakening(diallers, dial, [](service::Held& one) { one.notify(); });
        const double bare = wakening(
            diallers,
            [] {
                const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
                service::held->callbackId = reinterpret_cast<ULONG_PTR>(event);
                service::stampedWait(event, INFINITE);
                CloseHandle(event);
            },
            [](service::Held& one) { SetEvent(reinterpret_cast<HANDLE>(one.callbackId)); });
        ratios.push_back(library / bare);
    }
    std::ranges::sort(ratios);
    return {fmt::format("notification to woken dialler, {}", diallers),
            "a bare event",
            ratios.front(),
            ratios[ratios.size() / 2],
            0,
            1.5};
}

SIZE_T memory() {
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters.PagefileUsage;
}

DWORD handles() {
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return count;
}

double manyDials(int many) {
    const double start = now();
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(many));
    for (int i = 0; i < many; ++i)
        threads.emplace_back(
            [i] { VARNEL::dialUp(fmt::format("node{}", i), "secret", true, true, address); });
    for (std::thread& thread : threads)
        thread.join();
    return now() - start;
}

// The second of settling passes for true here.
std::vector<Row> manyRows() {
    manyDials(256);
    const SIZE_T memoryBefore = memory();
    const DWORD handlesBefore = handles();
    std::vector<double> ratios;
    ratios.reserve(5);
    for (int batch = 0; batch < 5; ++batch)
        ratios.push_back(manyDials(256) / manyDials(1));
    std::ranges::sort(ratios);
    const auto more = static_cast<long>(handles()) - static_cast<long>(handlesBefore);
    const auto grown = static_cast<double>(memory()) - static_cast<double>(memoryBefore);
    return {{"256 dials at once", "one dial", ratios.front(), ratios[2], 0, 1.2},
            {"handles after them", "before", 0, 0, more, 0},
            {"memory after them, KiB more", "before", grown / 1024, grown / 1024, 0, 0}};
}

// The time that a call of the library spends in what it imports.
constexpr std::size_t mostImports = 192;
std::array<std::uintptr_t, mostImports> real;
double inside;

using Word = std::uintptr_t;
template<std::size_t ROW>
Word timedCall(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j, Word k, Word l,
               Word m) {
    const double start = now();
    const Word result =
        reinterpret_cast<decltype(&timedCall<ROW>)>(real[ROW])(a, b, c, d, e, f, g, h, i, j, k, l, m);
    const DWORD error = GetLastError();
    inside += now() - start;
    SetLastError(error);
    return result;
}

template<std::size_t... ROWS>
constexpr auto timedCalls(std::index_sequence<ROWS...>) {
    return std::array{&timedCall<ROWS>...};
}

Row initRow() {
    ImportTable imports(GetModuleHandleA("Varnel.dll"));
    static constexpr auto thunks = timedCalls(std::make_index_sequence<mostImports>());
    std::size_t row = 0;
    for (const ImportTable::Entry& entry : imports.entries()) {
        const bool ours = entry.module == "Log.dll" || entry.module == "Helper.dll";
        if (ours || entry.module.starts_with("lib") || entry.module == "msvcrt.dll" || row == mostImports)
            continue;
        real[row] = reinterpret_cast<std::uintptr_t>(*entry.slot);
        imports.replace(entry.name, reinterpret_cast<void*>(thunks[row++]));
    }
    std::wstring message;
    const auto init = [&] { return VARNEL::init(nullptr, false, false, false, true, false, message); };
    init();
    std::vector<double> ratios;
    for (int batch = 0; batch < 21; ++batch) {
        inside = 0;
        const double start = now();
        init();
        ratios.push_back((now() - start) / inside);
    }
    std::ranges::sort(ratios);
    return {
        "init, all in place", "its time in system calls", ratios.front(), ratios[ratios.size() / 2], 0, 1.2};
}

} // namespace

void measure(const std::string& folder, const std::function<void(const Row&)>& show) {
    SetEnvironmentVariableA("TAVIK_LOG_FILE", (folder + "\\bench.log").c_str());
    SetEnvironmentVariableA("TAVIK_WORKING_FOLDER", folder.c_str());
    LOG::level = 0;
    auto imports = std::make_unique<ImportTable>(GetModuleHandleA("Varnel.dll"));
    service::takeOver(*imports);
    service::connect(0);
    for (const Row& row : manyRows())
        show(row);

    imports->replace("Sleep", reinterpret_cast<void*>(&service::noSleep));
    show(compared("dialUp", "the bare calls", 1.05, 10, dial, bareDial));
    for (const DWORD connections : {0UL, 3UL, 256UL}) {
        service::connect(connections);
        show(compared(
            fmt::format("getCurrentEntryNameById, {} connections", connections), "the bare calls", 1.05, 100,
            [] { VARNEL::getCurrentEntryNameById("node"); }, bareEntryName));
        show(compared(
            fmt::format("dialDown, {} connections", connections), "the bare calls", 1.05, 10,
            [] { VARNEL::dialDown("node"); }, bareHangUp));
    }
    const SIZE_T before = memory();
    for (int i = 0; i < 1'000; ++i)
        dial();
    const double grown = (static_cast<double>(memory()) - static_cast<double>(before)) / 1024;
    show({"memory after 1,000 dials more, KiB", "before", grown, grown, 0, 0});
    for (const int diallers : {1, 8, 64})
        show(wakeningRow(diallers));
    for (const Row& row : unwantedRows())
        show(row);
    show(logRow(folder));
    imports.reset();
    show(initRow());
}
