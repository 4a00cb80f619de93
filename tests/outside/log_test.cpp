// Log.dll, in copies that are loaded for one test each.
#include "outside/Log.h"
#include "tests/outside/module_imports.h"

#include <fmt/format.h>

#include <atomic>

#include <fcntl.h>

#include <filesystem>
#include <fstream>

#include <io.h>
#include <process.h>

#include <regex>

#include <shlobj.h>

#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr Word minusOne = 0xFFFFFFFF;
constexpr FallibleCall fallible[] = {{"GetEnvironmentVariableW"},  {"GetPrivateProfileStringW"},
                                     {"GetModuleFileNameW"},       {"fwrite"},
                                     {"MultiByteToWideChar"},      {"WideCharToMultiByte"},
                                     {"SetHandleInformation"},     {"_wfsopen"},
                                     {"_filelengthi64", ~Word{0}}, {"GetFileAttributesW", minusOne},
                                     {"fflush", minusOne},         {"_wrename", minusOne},
                                     {"_wremove", minusOne},       {"_wmkdir", minusOne}};

const fs::path folder = fs::temp_directory_path() / fmt::format("log_test.{}", GetCurrentProcessId());
const fs::path file = folder / "my.log";

void useFile(const fs::path& path) {
    SetEnvironmentVariableW(L"TAVIK_LOG_FILE", path.c_str());
}

fs::path modulePath(const wchar_t* module) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(GetModuleHandleW(module), path, MAX_PATH);
    return path;
}

// All of them are whole. What follows the last line end, as a process may leave it, does not count.
std::vector<std::string> linesOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line, '\r') && in.get() == '\n';)
        lines.push_back(line);
    return lines;
}

std::string lastLine() {
    return linesOf(file).back();
}

// A copy of Log.dll, with settings beside it.
class LogCopy {
  public:
    explicit LogCopy(const std::string& settings = {}, const fs::path& where = folder) {
        fs::copy_file(modulePath(L"Log.dll"), where / "Log.dll", fs::copy_options::skip_existing);
        std::ofstream(where / "Log.ini") << "[log]\n" << settings;
        module = LoadLibraryW((where / "Log.dll").c_str());
        level = exported<long*>("_ZN3LOG5levelE");
        print = exported<decltype(print)>("_ZN3LOG5printEiPKclS1_z");
        prints = exported<decltype(prints)>(
            "_ZN3LOG6printsEiPKclRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    }
    ~LogCopy() { FreeLibrary(module); }

    HMODULE module;
    long* level;
    decltype(&LOG::print) print;
    decltype(&LOG::prints) prints;

  private:
    template<class POINTER>
    POINTER exported(const char* name) const {
        return reinterpret_cast<POINTER>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    }
};

// Has an empty folder, and my.log in it as the file of the log.
class LogTest {
  public:
    LogTest() {
        fs::remove_all(folder);
        fs::create_directories(folder);
        useFile(file);
    }
    ~LogTest() { fs::remove_all(folder); } // which fails for a file that is still open
};

} // namespace

TEST_CASE_METHOD(LogTest, "A record is one line with its time, process, thread, level and place") {
    const fs::path elsewhere = folder / L"\u00FC\u4E2D" / "new" / "my.log";
    const LogCopy log("file=" + file.string());
    useFile(elsewhere);
    log.prints(2, ".\\Varnel", 7, "Can't bind 0:1723");
    useFile(file); // too late
    log.print(1, "\\a\n", 120, "<<== %s(%s),period = %d(ms)\n", "dialUp", "node7", 15);
    log.prints(1, nullptr, -1, "");
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const std::regex start(fmt::format(R"({:04}-{:02}-{:02} \d\d:\d\d:\d\d\.\d{{3}} {}/{} )", now.wYear,
                                       now.wMonth, now.wDay, GetCurrentProcessId(), GetCurrentThreadId()));
    const std::string all = fmt::format("{}\n", fmt::join(linesOf(elsewhere), "\n"));
    CHECK(std::regex_replace(all, start, "") == "2 .\\Varnel(7) Can't bind 0:1723\n"
                                                "1 \\a(120) <<== dialUp(node7),period = 15(ms)\n"
                                                "1 ?(-1) \n");
}

TEST_CASE_METHOD(LogTest, "The file is also that of Log.ini, else one for all users, or standard error") {
    useFile("");
    LogCopy("file=" + file.string()).prints(1, "", 1, "to the file");
    CHECK(lastLine().ends_with("to the file"));
    {
        const LogCopy log;
        ModuleImports imports(log.module);
        imports.on("GetModuleFileNameW", [](HMODULE module, wchar_t* path, DWORD room) {
            return room <= MAX_PATH ? room : GetModuleFileNameW(module, path, room); // a long path
        });
        imports.on("SHGetFolderPathW", [](HWND, int id, HANDLE, DWORD, wchar_t* path) -> HRESULT {
            return id == CSIDL_COMMON_APPDATA ? wcscpy(path, folder.c_str()), S_OK : E_FAIL;
        });
        log.prints(1, "", 1, "");
    }
    CHECK(linesOf(folder / "Tavik" / "log" / "log_test.log").size() == 1);
    const int errors = _dup(2), instead = _wopen(file.c_str(), _O_WRONLY | _O_APPEND);
    _dup2(instead, 2);
    LogCopy("file=-").prints(1, "", 1, "to standard error");
    _dup2(errors, 2);
    _close(instead);
    CHECK(lastLine().ends_with("to standard error"));
}

TEST_CASE_METHOD(LogTest,
                 "The level is the environment's, else Log.ini's, else 2; what is above is dropped") {
    using Row = std::tuple<const wchar_t*, const char*, long>;
    const auto [variable, settings, level] =
        GENERATE(Row{L"", "", 2}, Row{L"", "level=3", 3}, Row{L"", "level=all", 2}, Row{L"0", "level=3", 0},
                 Row{L"3x", "level=1", 1});
    SetEnvironmentVariableW(L"TAVIK_LOG_LEVEL", variable);
    const LogCopy log(settings);
    CHECK(*log.level == level);
    for (*log.level = 0; *log.level <= 3; ++*log.level)
        for (int recordLevel = 1; recordLevel <= 3; ++recordLevel) {
            log.print(recordLevel, "", *log.level, "%s", "");
            log.prints(recordLevel, "", *log.level, "");
        }
    std::string places;
    for (const auto& line : linesOf(file))
        places += line.substr(line.size() - 6);
    CHECK(places == "1 (1) 1 (1) 1 (2) 1 (2) 2 (2) 2 (2) 1 (3) 1 (3) 2 (3) 2 (3) 3 (3) 3 (3) ");
}

TEST_CASE_METHOD(LogTest, "The limits are those of Log.ini, within bounds, else 1 MiB and 5 files") {
    using Row = std::tuple<const char*, long long, int>;
    const auto [settings, kiB, files] =
        GENERATE(Row{"", 1024, 5}, Row{"size=7\nfiles=3", 7, 3}, Row{"size=7 K\nfiles=x", 1024, 5},
                 Row{"size=0\nfiles=0", 1, 1}, Row{"size=9999999\nfiles=101", 1048576, 100});
    const auto numbered = [](int number) { return folder / fmt::format("my.{}.log", number); };
    std::ofstream(numbered(files - 1)) << "oldest\n";
    std::ofstream(numbered(files - 2)) << "older\n";
    LogCopy().prints(1, "", 1, "");
    const LogCopy log(settings);
    ModuleImports imports(log.module);
    const long long size = kiB * 1024 - static_cast<long long>(fs::file_size(file));
    imports.on("_filelengthi64", [size](int) { return size; });
    log.prints(1, "", 2, "");
    CHECK(linesOf(file).size() == 2);
    log.prints(1, "", 3, "");
    CHECK(linesOf(file).size() == 1);
    CHECK(linesOf(numbered(files - 1)).at(0) == (files == 1 ? "oldest" : "older"));
    CHECK_FALSE(fs::exists(numbered(files)));
}

TEST_CASE_METHOD(LogTest, "A file that a reader keeps from being renamed is emptied instead") {
    const LogCopy log("size=1");
    ModuleImports imports(log.module);
    imports.on("Sleep", [](DWORD) {});
    log.prints(1, "", 1, std::string(600, 'x'));
    std::FILE* const reader = _wfopen(file.c_str(), L"rb");
    log.prints(1, "", 2, std::string(600, 'x'));
    std::fclose(reader);
    CHECK(linesOf(file).size() == 1);
    CHECK(lastLine().find(" 1 (2) xxx") != std::string::npos);
}

TEST_CASE_METHOD(LogTest, "The text arrives whole, and never as a second record") {
    wchar_t wide[2] = L"";
    MultiByteToWideChar(CP_ACP, 0, "\xE9", -1, wide, 2);
    char utf8[8] = "";
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, utf8, sizeof utf8, nullptr, nullptr);
    const std::string huge(100'000, 'h'), forged = "2030-01-01 00:00:00.000 1/1 1 .\\Varnel(1) forged";
    const std::vector<std::pair<std::string, std::string>> texts{
        {"line end\n", "line end"},
        {"line end\r\n", "line end"},
        {"two\n\n", "two\\n"},
        {"real\r\n" + forged, "real\\r\\n" + forged},
        {"\tabc\x1B[2J\x1F \x7E\x7F", "\\tabc\\u001b[2J\\u001f \x7E\\u007f"},
        {"zero\0inside"s, "zero\\u0000inside"},
        {"\xC2\x9F\xC2\xA0", "\\u009f\xC2\xA0"},
        {"\xE2\x80\xA7\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\xB0", "\xE2\x80\xA7\\u2028\\u2029\xE2\x80\xB0"},
        {"\xE8\xBF\x9E\xF0\x9F\x99\x82", "\xE8\xBF\x9E\xF0\x9F\x99\x82"},
        {"ANSI \xE9", "ANSI "s + utf8},
        {"%s%n%d", "%s%n%d"},
        {huge, huge}};
    const LogCopy log;
    for (const auto& [text, expected] : texts) {
        log.prints(1, "", 0, text);
        CHECK(lastLine().ends_with(" 1 (0) " + expected));
    }
    log.print(1, "", 0, "%s|%lld|%zu|%ls", huge.c_str(), -5'000'000'000LL, sizeof(int), L"wide");
    CHECK(lastLine().ends_with(" 1 (0) " + huge + "|-5000000000|4|wide"));
    log.print(1, "", 0, nullptr);
    CHECK(linesOf(file).size() == texts.size() + 2);
}

TEST_CASE_METHOD(LogTest,
                 "Records of threads are all there, whole and each thread's in order, across files") {
    const LogCopy log("size=16\nfiles=50");
    const std::string filler(50, 'x');
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; i += 2) {
                log.print(1, "thread", t, "%d %s", i, filler.c_str());
                log.prints(1, "thread", t, fmt::format("{} {}", i + 1, filler));
            }
        });
    for (auto& thread : threads)
        thread.join();
    std::vector<int> next(6);
    for (int number = 49; number >= 0; --number)
        for (const auto& line : linesOf(number == 0 ? file : folder / fmt::format("my.{}.log", number))) {
            const auto t = static_cast<std::size_t>(line.at(line.find("thread(") + 7) - '0');
            CHECK(line.ends_with(fmt::format(" 1 thread({}) {} {}", t, next.at(t)++, filler)));
        }
    CHECK(next == std::vector<int>(6, 200));
}

TEST_CASE_METHOD(LogTest, "A file that cannot be opened is tried again after 10 s") {
    fs::create_directory(file);
    const LogCopy log;
    ModuleImports imports(log.module);
    DWORD now = 0xFFFFFFF0;
    bool tried = false, spoilt = false;
    imports.on("GetTickCount", [&now] { return now; });
    imports.on("Sleep", [&tried](DWORD) { tried = true; });
    imports.on("fflush",
               [&spoilt](FILE* to) { return std::exchange(spoilt, false) ? EOF : std::fflush(to); });
    const auto triesAfter = [&](DWORD ms) {
        now += ms;
        log.prints(1, "", 0, "");
        return std::exchange(tried, false);
    };
    CHECK(triesAfter(0));
    CHECK_FALSE(triesAfter(0));
    CHECK_FALSE(triesAfter(9'999));
    CHECK(triesAfter(1));
    fs::remove(file);
    triesAfter(9'999);
    CHECK_FALSE(fs::exists(file));
    triesAfter(1);
    CHECK(linesOf(file).size() == 1);
    // A failure long ago is no reason to wait, not even when the count of time has come round to it.
    spoilt = true;
    triesAfter(0 - DWORD{10'000});
    CHECK(linesOf(file).size() == 3);
}

TEST_CASE_METHOD(LogTest, "Whatever call fails, nobody is told, and what is written later arrives") {
    using Failing = FailingCalls<fallible>;
    Failing::inTurn([] {
        {
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
            const bool disturbed = !Failing::failed.empty();
            now += 10'000;
            log.prints(1, "", 4, "later");
            CHECK((!disturbed || lastLine().ends_with(" 1 (4) later")));
        }
        fs::remove(file); // which fails for a file that has been left open
    });
}

// Ends while threads write and, at the very end, a module that is unloaded before Log.dll.
TEST_CASE("child", "[.]") {
    const fs::path place = _wgetenv(L"TAVIK_LOG_FILE");
    const auto* const copy = new LogCopy("", place.parent_path());
    (new ModuleImports(copy->module))->on("RtlDllShutdownInProgress", []() -> BOOLEAN {
        LOG::prints(1, "late", 1, "late record");
        return TRUE;
    });
    LOG::prints(1, "child", 1, "one record");
    std::atomic<int> begun = 0;
    const int threads = _wgetenv(L"TAVIK_TEST_THREADS") == nullptr ? 0 : 3;
    for (int t = 0; t < threads; ++t)
        std::thread([&begun] {
            for (int i = 0;; ++i) {
                LOG::prints(1, "child", i, "next");
                begun += i == 10;
            }
        }).detach();
    while (begun < threads)
        std::this_thread::yield();
    ExitProcess(77);
}

TEST_CASE_METHOD(LogTest, "What processes write into one file is there, also when they end meanwhile") {
    const LogCopy log;
    log.prints(1, "parent", 1, "before");
    const auto runChild = [] {
        return _wspawnl(_P_WAIT, modulePath(nullptr).c_str(), L"test -o NUL child", nullptr);
    };
    CHECK(runChild() == 77);
    CHECK(lastLine().ends_with("1 late(1) late record"));
    log.prints(1, "parent", 1, "after");
    CHECK(linesOf(file).size() == 4);
    SetEnvironmentVariableW(L"TAVIK_TEST_THREADS", L"3");
    for (int run = 0; run < 3; ++run)
        CHECK(runChild() == 77);
    CHECK(linesOf(file).size() > 4 + 3 * 3 * 11);
}
