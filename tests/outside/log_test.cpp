// Log.dll, in copies that are loaded for one test each.
#include "outside/Log.h"
#include "tests/outside/module_imports.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>

#include <process.h>

#include <regex>

#include <shlobj.h>

#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr Word minusOne = 0xFFFFFFFF;
constexpr FallibleCall fallible[] = {{"GetEnvironmentVariableW"},
                                     {"GetPrivateProfileStringW"},
                                     {"GetModuleFileNameW"},
                                     {"fwrite"},
                                     {"MultiByteToWideChar"},
                                     {"WideCharToMultiByte"},
                                     {"SetHandleInformation"},
                                     {"_wfsopen"},
                                     {"_filelengthi64", ~Word{0}},
                                     {"GetFileAttributesW", minusOne},
                                     {"fflush", minusOne},
                                     {"_wrename", minusOne},
                                     {"_wremove", minusOne},
                                     {"_wmkdir", minusOne},
                                     {allocation}};

const fs::path folder = fs::temp_directory_path() / fmt::format("log_test.{}", GetCurrentProcessId());
const fs::path file = folder / "my.log";

void useFile(const fs::path& path) {
    SetEnvironmentVariableW(L"TAVIK_LOG_FILE", path.c_str());
}

// What the log's file has become after so many rotations.
fs::path numbered(int rotations) {
    return rotations == 0 ? file : folder / fmt::format("my.{}.log", rotations);
}

// All of them are whole. What follows the last line end, as a process may leave it, does not count.
std::vector<std::string> linesOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line, '\r') && in.get() == '\n';)
        lines.push_back(line);
    return lines;
}

// A copy of Log.dll for a scope, alone with its settings in a folder, and my.log there as its file.
class LogCopy {
  public:
    explicit LogCopy(const std::string& settings = {}) {
        fs::create_directories(folder);
        wchar_t shipped[MAX_PATH] = L"";
        GetModuleFileNameW(GetModuleHandleW(L"Log.dll"), shipped, MAX_PATH);
        fs::copy_file(shipped, folder / "Log.dll");
        std::ofstream(folder / "Log.ini") << "[log]\n" << settings;
        useFile(file);
        module = LoadLibraryW((folder / "Log.dll").c_str());
        const auto find = [this](auto*& function, const char* name) {
            using Pointer = std::remove_reference_t<decltype(function)>;
            function = reinterpret_cast<Pointer>(reinterpret_cast<void*>(GetProcAddress(module, name)));
        };
        find(print, "_ZN3LOG5printEiPKclS1_z");
        find(prints, "_ZN3LOG6printsEiPKclRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    }
    ~LogCopy() {
        FreeLibrary(module);
        fs::remove_all(folder); // which fails for a file that is still open
    }

    HMODULE module;
    decltype(&LOG::print) print;
    decltype(&LOG::prints) prints;
};

} // namespace

TEST_CASE("A record is one line with its time, process, thread, level and place") {
    const fs::path elsewhere = folder / L"\u00FC\u4E2D" / "new" / "my.log";
    const LogCopy log("file=" + file.string());
    useFile(elsewhere);
    log.prints(2, ".\\Varnel", 7, "Can't bind 0:1723");
    useFile(file); // too late
    log.print(1, "\\a\n", 120, "<<== %s(%s),period = %d(ms)\n", "dialUp", "node7", 15);
    log.prints(1, nullptr, -1, "");
    const std::regex start(fmt::format(R"(20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{{3}} {}/{} )",
                                       GetCurrentProcessId(), GetCurrentThreadId()));
    const std::string all = fmt::format("{}", fmt::join(linesOf(elsewhere), "\n"));
    CHECK(std::regex_replace(all, start, "") == "2 .\\Varnel(7) Can't bind 0:1723\n"
                                                "1 \\a(120) <<== dialUp(node7),period = 15(ms)\n"
                                                "1 ?(-1) ");
}

TEST_CASE("The file is also that of Log.ini, else one for all users") {
    const auto [settings, place] = GENERATE(table<std::string, fs::path>(
        {{"file=" + file.string(), file}, {"", folder / "Tavik" / "log" / "log_test.log"}}));
    const LogCopy log(settings);
    useFile("");
    ModuleImports imports(log.module);
    imports.on("SHGetFolderPathW", [](HWND, int id, HANDLE, DWORD, wchar_t* path) -> HRESULT {
        return id == CSIDL_COMMON_APPDATA ? wcscpy(path, folder.c_str()), S_OK : E_FAIL;
    });
    log.prints(1, "", 1, "");
    CHECK(linesOf(place).size() == 1);
}

TEST_CASE("The level is the environment's, else Log.ini's, else 2; what is above is dropped") {
    const auto [variable, settings, level] = GENERATE(table<const char*, const char*, std::size_t>(
        {{"", "", 2}, {"", "level=3", 3}, {"", "level=all", 2}, {"0", "level=3", 0}, {"3x", "level=1", 1}}));
    SetEnvironmentVariableA("TAVIK_LOG_LEVEL", variable);
    const LogCopy log(settings);
    for (int recordLevel = 1; recordLevel <= 3; ++recordLevel) {
        log.print(recordLevel, "", 1, "%s", "");
        log.prints(recordLevel, "", 1, "");
    }
    CHECK(linesOf(file).size() == 2 * level);
}

TEST_CASE("The limits are those of Log.ini, within bounds, else 1 MiB and 5 files") {
    using Row = std::tuple<const char*, std::size_t, int>;
    const auto [settings, kiB, files] =
        GENERATE(Row{"", 1024, 5}, Row{"size=7\nfiles=3", 7, 3}, Row{"size=x\nfiles=0", 1024, 1},
                 Row{"size=0\nfiles=101", 1, 100});
    const LogCopy log(settings);
    for (int i = 0; i <= 2 * files; ++i) // two fit into a file
        log.prints(1, "", 1, std::string(kiB * 512 - 60, 'x'));
    CHECK(linesOf(file).size() == 1);
    CHECK((files == 1 || linesOf(numbered(files - 1)).size() == 2));
    CHECK_FALSE(fs::exists(numbered(files)));
}

TEST_CASE("The text arrives whole, and never as a second record") {
    wchar_t ansi[2] = L"";
    MultiByteToWideChar(CP_ACP, 0, "\xE9", -1, ansi, 2);
    const std::string huge(100'000, 'h'), forged = "2030-01-01 00:00:00.000 1/1 1 .\\Varnel(1) forged";
    const std::pair<std::string, std::string> texts[] = {
        {"two\n\r\n", "two\\n"},
        {"real\r\n" + forged, "real\\r\\n" + forged},
        {"\tabc\x1B[2J\x1F \x7E\x7F\0"s, "\\tabc\\u001b[2J\\u001f \x7E\\u007f\\u0000"},
        {"\xC2\x9F\xC2\xA0", "\\u009f\xC2\xA0"},
        {"\xE2\x80\xA7\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\xB0", "\xE2\x80\xA7\\u2028\\u2029\xE2\x80\xB0"},
        {"\xE8\xBF\x9E\xF0\x9F\x99\x82", "\xE8\xBF\x9E\xF0\x9F\x99\x82"},
        {"ANSI \xE9", "ANSI " + fs::path(ansi).string()},
        {"%s%n%d", "%s%n%d"},
        {huge, huge}};
    const LogCopy log;
    for (const auto& [text, expected] : texts) {
        log.prints(1, "", 0, text);
        CHECK(linesOf(file).back().ends_with(" 1 (0) " + expected));
    }
    log.print(1, "", 0, "%s|%lld|%zu|%ls", huge.c_str(), -5'000'000'000LL, sizeof(int), L"wide");
    CHECK(linesOf(file).back().ends_with(" 1 (0) " + huge + "|-5000000000|4|wide"));
    log.print(1, "", 0, nullptr);
    CHECK(linesOf(file).size() == std::size(texts) + 2);
}

TEST_CASE("Records of threads are all there and whole, across files") {
    const LogCopy log("size=16\nfiles=50");
    std::vector<std::jthread> threads(6);
    for (auto& thread : threads)
        thread = std::jthread([&log] {
            for (int i = 0; i < 200; ++i)
                log.print(1, "thread", 1, "%s", std::string(50, 'x').c_str());
        });
    threads.clear();
    int whole = 0;
    for (int number = 0; number < 50; ++number)
        for (const std::string& line : linesOf(numbered(number)))
            whole += line.substr(line.find(' ', 24)) == " 1 thread(1) " + std::string(50, 'x');
    CHECK(whole == 1200);
}

TEST_CASE("A file that cannot be opened is tried again after 10 s") {
    const LogCopy log;
    ModuleImports imports(log.module);
    DWORD now = 0xFFFFFFF0;
    imports.on("GetTickCount", [&now] { return now; });
    fs::create_directory(file);
    log.prints(1, "", 0, "lost");
    fs::remove(file);
    now += 9'999;
    log.prints(1, "", 0, "lost");
    CHECK(linesOf(file).empty());
    ++now;
    log.prints(1, "", 0, "");
    CHECK(linesOf(file).size() == 1);
}

TEST_CASE("Whatever call fails, nobody is told, and what is written later arrives") {
    using Failing = FailingCalls<fallible>;
    Failing::inTurn([] {
        const LogCopy log("size=1\nfile=" + file.string());
        ModuleImports imports(log.module);
        DWORD now = 0;
        imports.on("GetTickCount", [&now] { return now; });
        imports.on("Sleep", [](DWORD) {});
        const Failing failing(log.module);
        for (int i = 0; i < 3; ++i) { // every second one finds the file full
            SetLastError(4711);
            log.print(1, "", i, "%s", std::string(600, 'x').c_str());
            CHECK(GetLastError() == 4711);
        }
        CHECK((Failing::failed != "fwrite" || linesOf(file).size() == 1)); // written once more
        if (Failing::failed.empty())
            return;
        now += 10'000;
        log.prints(1, "", 4, "later");
        CHECK(linesOf(file).back().ends_with(" 1 (4) later"));
    });
}

// Ends while threads write and, at the very end, a module that is unloaded before Log.dll.
TEST_CASE("child", "[.]") {
    const fs::path copy = fs::path(_wgetenv(L"TAVIK_LOG_FILE")).replace_filename("Log.dll");
    (new ModuleImports(LoadLibraryW(copy.c_str())))->on("RtlDllShutdownInProgress", []() -> BOOLEAN {
        LOG::prints(1, "late", 1, "late record");
        return TRUE;
    });
    LOG::prints(1, "child", 1, "one record");
    const char* const threads = std::getenv("TAVIK_TEST_THREADS");
    for (int t = threads != nullptr ? std::stoi(threads) : 0; t > 0; --t)
        std::thread([] {
            for (;;)
                LOG::prints(1, "child", 1, "next");
        }).detach();
    Sleep(50);
    ExitProcess(77);
}

TEST_CASE("What processes write into one file is there, also when they end meanwhile") {
    const LogCopy log;
    const auto run = [](const char* threads) {
        SetEnvironmentVariableA("TAVIK_TEST_THREADS", threads);
        return _spawnl(_P_WAIT, _pgmptr, "test -o NUL child", nullptr);
    };
    log.prints(1, "parent", 1, "before");
    CHECK(run("0") == 77);
    CHECK(linesOf(file).back().ends_with("1 late(1) late record"));
    log.prints(1, "parent", 1, "after");
    CHECK(linesOf(file).size() == 4);
    for (int i = 0; i < 3; ++i)
        CHECK(run("3") == 77);
    CHECK(linesOf(file).size() > 4 + 3 * 3);
}
