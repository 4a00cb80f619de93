// Log.dll, mostly in copies that are loaded for one test each.
#include "outside/Log.h"
#include "tests/outside/module_imports.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <latch>
#include <map>
#include <regex>

#include <shlobj.h>

#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

constexpr FallibleCall fallibleCalls[] = {allocation,
                                          {"GetEnvironmentVariableW"},
                                          {"GetModuleFileNameW"},
                                          {"GetPrivateProfileStringW"},
                                          {"_wfsopen"},
                                          {"SetHandleInformation"},
                                          {"MultiByteToWideChar"},
                                          {"WideCharToMultiByte"},
                                          {"fwrite"},
                                          {"fflush", 0xFFFFFFFF},
                                          {"_wrename", 0xFFFFFFFF},
                                          {"_wmkdir", 0xFFFFFFFF},
                                          {"_wremove", 0xFFFFFFFF},
                                          {"_filelengthi64", ~Word{0}},
                                          {"GetFileAttributesW", 0xFFFFFFFF}};

fs::path modulePath(const wchar_t* module) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(GetModuleHandleW(module), path, MAX_PATH);
    return path;
}

// All but the last one are whole; that may be cut off, and is then left out.
std::vector<std::string> linesOf(const fs::path& file, bool mayBeCutOff = false) {
    std::ifstream in(file, std::ios::binary);
    std::vector<std::string> lines;
    std::string line;
    for (; std::getline(in, line) && !in.eof(); lines.push_back(line)) {
        REQUIRE(line.ends_with('\r'));
        line.pop_back();
    }
    REQUIRE((line.empty() || mayBeCutOff));
    return lines;
}

// What stands behind the place of a record.
std::string textOf(const std::string& record) {
    return record.substr(record.find(") ") + 2);
}

void setVariable(const wchar_t* name, const std::wstring& value) {
    SetEnvironmentVariableW(name, value.empty() ? nullptr : value.c_str());
}

// An empty folder, and environment without variables of the log.
class LogTest {
  public:
    LogTest() {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    ~LogTest() {
        setVariable(L"TAVIK_LOG_LEVEL", L"");
        setVariable(L"TAVIK_LOG_FILE", L"");
        fs::remove_all(folder); // what is still open cannot be removed
    }

  protected:
    const fs::path folder = fs::temp_directory_path() / ("log_test." + std::to_string(GetCurrentProcessId()));
    const fs::path file = folder / "my.log";
};

// A copy of Log.dll, with `settings` beside it, that writes to my.log beside it unless they say otherwise.
class LogCopy {
  public:
    explicit LogCopy(const fs::path& folder, const std::string& settings = {}) {
        fs::copy_file(modulePath(L"Log.dll"), folder / "Log.dll", fs::copy_options::skip_existing);
        std::ofstream(folder / "Log.ini") << "[log]\n"
                                          << settings << "\nfile=" << (folder / "my.log").string();
        module = LoadLibraryW((folder / "Log.dll").c_str());
        REQUIRE(module);
        find(level, "_ZN3LOG5levelE");
        find(print, "_ZN3LOG5printEiPKclS1_z");
        find(prints, "_ZN3LOG6printsEiPKclRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    }
    ~LogCopy() { FreeLibrary(module); }

    HMODULE module;
    long* level;
    decltype(&LOG::print) print;
    decltype(&LOG::prints) prints;

  private:
    template<class POINTER>
    void find(POINTER& pointer, const char* name) const {
        pointer = reinterpret_cast<POINTER>(reinterpret_cast<void*>(GetProcAddress(module, name)));
        REQUIRE(pointer);
    }
};

// Runs a hidden case of this program, with its standard error in a file; the exit code and the process id.
std::pair<DWORD, DWORD> runChild(const std::wstring& name, const fs::path& errors = L"NUL") {
    std::wstring command = L"\"" + modulePath(nullptr).wstring() + L"\" \"" + name + L"\"";
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdError =
        CreateFileW(errors.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, OPEN_ALWAYS, 0, nullptr);
    PROCESS_INFORMATION process{};
    REQUIRE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                           &process));
    CHECK(WaitForSingleObject(process.hProcess, 20'000) == WAIT_OBJECT_0);
    DWORD exitCode = STILL_ACTIVE;
    GetExitCodeProcess(process.hProcess, &exitCode);
    for (const HANDLE handle : {process.hThread, process.hProcess, startup.hStdError})
        CloseHandle(handle);
    return {exitCode, process.dwProcessId};
}

constexpr DWORD killedCode = 77;

} // namespace

TEST_CASE_METHOD(LogTest, "A record is one line with its time, process, thread, level and place") {
    setVariable(L"TAVIK_LOG_FILE", folder / L"\u00FC\u4E2D" / "new" / "my.log");
    const LogCopy log(folder);
    log.prints(2, ".\\Varnel", 7, "Can't bind 0:1723");
    log.print(1, "\\a\n", 120, "<<== %s(%s),period = %d(ms)\n", "dialUp", "node7", 15);
    log.prints(1, nullptr, -1, "");
    const auto lines = linesOf(folder / L"\u00FC\u4E2D" / "new" / "my.log");
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const std::string start = fmt::format(R"({:04}-{:02}-{:02} \d\d:\d\d:\d\d\.\d{{3}} {}/{} )", now.wYear,
                                          now.wMonth, now.wDay, GetCurrentProcessId(), GetCurrentThreadId());
    REQUIRE(lines.size() == 3);
    CHECK(std::regex_match(lines[0], std::regex(start + R"(2 \.\\Varnel\(7\) Can't bind 0:1723)")));
    CHECK(std::regex_match(lines[1],
                           std::regex(start + R"(1 \\a\(120\) <<== dialUp\(node7\),period = 15\(ms\))")));
    CHECK(std::regex_match(lines[2], std::regex(start + R"(1 \?\(-1\) )")));
}

TEST_CASE_METHOD(LogTest,
                 "The level is the environment's, else that of Log.ini, else 2; what is above is dropped") {
    const auto [variable, settings, level] =
        GENERATE(table<std::wstring, std::string, long>({{L"", "", 2},
                                                         {L"", "level=3", 3},
                                                         {L"", "level=all", 2},
                                                         {L"0", "level=3", 0},
                                                         {L"3x", "level=1", 1}}));
    setVariable(L"TAVIK_LOG_LEVEL", variable);
    const LogCopy log(folder, settings);
    CHECK(*log.level == level);
    for (*log.level = 0; *log.level <= 3; ++*log.level)
        for (int recordLevel = 1; recordLevel <= 3; ++recordLevel) {
            log.print(recordLevel, "", *log.level, "");
            log.prints(recordLevel, "", *log.level, "");
        }
    std::string places;
    for (const auto& line : linesOf(file))
        places += line.substr(line.size() - 6);
    CHECK(places == " 1 (1)  1 (1)  1 (2)  1 (2)  2 (2)  2 (2)  1 (3)  1 (3)  2 (3)  2 (3)  3 (3)  3 (3) ");
}

TEST_CASE_METHOD(LogTest, "The limits are those of Log.ini, within bounds, else 1 MiB and 5 files") {
    const auto [settings, kiB, files] =
        GENERATE(table<std::string, long long, int>({{"", 1024, 5},
                                                     {"size=7\nfiles=3", 7, 3},
                                                     {"size=7 K\nfiles=x", 1024, 5},
                                                     {"size=0\nfiles=0", 1, 1},
                                                     {"size=9999999\nfiles=101", 1048576, 100}}));
    const auto numbered = [this](int number) { return folder / ("my." + std::to_string(number) + ".log"); };
    std::ofstream(numbered(files - 1)) << "oldest\r\n";
    std::ofstream(numbered(files - 2)) << "older\r\n";
    LogCopy(folder).prints(1, "", 1, "");
    const LogCopy log(folder, settings);
    ModuleImports imports(log.module);
    const long long room = kiB * 1024 - static_cast<long long>(fs::file_size(file));
    imports.on("_filelengthi64", [room](int) { return room; });
    log.prints(1, "", 2, "");
    CHECK(linesOf(file).size() == 2);
    log.prints(1, "", 3, "");
    CHECK(linesOf(file).size() == 1);
    CHECK(linesOf(numbered(files - 1)).front() == (files == 1 ? "oldest" : "older"));
    CHECK_FALSE(fs::exists(numbered(files)));
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
        {"\xE2\x80\xA7\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\xAA", "\xE2\x80\xA7\\u2028\\u2029\xE2\x80\xAA"},
        {"\xE8\xBF\x9E\xF0\x9F\x99\x82", "\xE8\xBF\x9E\xF0\x9F\x99\x82"},
        {"ANSI \xE9", "ANSI "s + utf8},
        {"%s%n%d", "%s%n%d"},
        {huge, huge},
    };
    const LogCopy log(folder);
    for (const auto& [text, expected] : texts) {
        log.prints(1, "", 0, text);
        CHECK(textOf(linesOf(file).back()) == expected);
    }
    log.print(1, "", 0, "%s|%lld|%zu|%ls", huge.c_str(), -5'000'000'000LL, sizeof(int), L"wide");
    CHECK(textOf(linesOf(file).back()) == huge + "|-5000000000|4|wide");
    log.print(1, "", 0, nullptr);
    CHECK(linesOf(file).size() == texts.size() + 2);
}

TEST_CASE_METHOD(LogTest,
                 "Records of many threads are all there, whole and each thread's in order, across files") {
    constexpr int records = 200, files = 50;
    const LogCopy log(folder, fmt::format("size=16\nfiles={}", files));
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
        threads.emplace_back([&log, t] {
            for (int i = 0; i < records; i += 2) {
                log.print(1, "thread", t, "%d %s", i, std::string(50, 'x').c_str());
                log.prints(1, "thread", t, std::to_string(i + 1) + " " + std::string(50, 'x'));
            }
        });
    for (auto& thread : threads)
        thread.join();
    const std::regex form(R"(.* 1 thread\((\d)\) (\d+) x{50})");
    std::map<int, int> next;
    for (int number = files - 1; number >= 0; --number) {
        const fs::path part = number == 0 ? file : folder / fmt::format("my.{}.log", number);
        CHECK((!fs::exists(part) || fs::file_size(part) <= 16 * 1024));
        for (const auto& line : linesOf(part)) {
            std::smatch parts;
            REQUIRE(std::regex_match(line, parts, form));
            REQUIRE(next[std::stoi(parts[1])]++ == std::stoi(parts[2]));
        }
    }
    for (int t = 0; t < 6; ++t)
        CHECK(next[t] == records);
}

TEST_CASE_METHOD(LogTest,
                 "A file that a reader keeps from being renamed stays bounded and loses no new record") {
    const LogCopy log(folder, "size=1");
    log.prints(1, "", 0, "first");
    const HANDLE reader = CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    for (int i = 0; i < 4; ++i) { // every second one finds the file full
        log.prints(1, "", i, std::string(600, 'x'));
        CHECK(linesOf(file).back().find(fmt::format("({})", i)) != std::string::npos);
        CHECK(fs::file_size(file) <= 1024);
    }
    CloseHandle(reader);
}

TEST_CASE_METHOD(LogTest, "A file that cannot be opened is never felt, and tried again after 10 s") {
    fs::create_directory(file);
    const LogCopy log(folder);
    ModuleImports imports(log.module);
    DWORD now = 0xFFFFFFF0;
    bool tried = false;
    imports.on("GetTickCount", [&now] { return now; });
    imports.on("Sleep", [&tried](DWORD) { tried = true; });
    const auto triesAfter = [&](DWORD ms) {
        now += ms;
        tried = false;
        SetLastError(4711);
        log.prints(1, "", 0, "now");
        CHECK(GetLastError() == 4711);
        return tried;
    };
    CHECK(triesAfter(0));
    CHECK_FALSE(triesAfter(0));
    CHECK_FALSE(triesAfter(9'999));
    CHECK(triesAfter(1));
    fs::remove(file);
    CHECK_FALSE(triesAfter(9'999));
    CHECK_FALSE(fs::exists(file));
    triesAfter(1);
    CHECK(linesOf(file).size() == 1);
    // The ticks begin again, so that the time of the failure comes once more.
    bool spoilt = false;
    imports.on("fflush",
               [&spoilt](FILE* stream) { return std::exchange(spoilt, true) ? std::fflush(stream) : EOF; });
    triesAfter(DWORD{} - 10'000);
    CHECK(linesOf(file).back().ends_with("now"));
    CHECK(linesOf(file).size() >= 2);
}

TEST_CASE_METHOD(LogTest, "Whatever call fails, nobody is told, and what is written later arrives") {
    setVariable(L"TAVIK_LOG_FILE", file); // in case that Log.ini cannot be read
    using Failing = FailingCalls<fallibleCalls>;
    Failing::inTurn([this] {
        {
            const LogCopy log(folder, "size=1");
            ModuleImports imports(log.module);
            DWORD now = 0;
            imports.on("GetTickCount", [&now] { return now; });
            imports.on("Sleep", [](DWORD) {});
            const Failing failing(log.module);
            for (int i = 0; i < 3; ++i) { // every second one finds the file full
                SetLastError(4711);
                log.print(1, ".\\Varnel", i, "%s", std::string(600, 'x').c_str());
                CHECK(GetLastError() == 4711);
            }
            const bool disturbed = !Failing::failed.empty();
            now += 10'000;
            log.prints(1, ".\\Varnel", 4, "later");
            CHECK((!disturbed || linesOf(file).back().ends_with("1 .\\Varnel(4) later")));
        }
        for (const auto& entry : fs::directory_iterator(folder))
            if (entry.path().extension() == ".log")
                fs::remove(entry.path()); // which fails for a file that has been left open
    });
}

TEST_CASE("child: killed", "[.]") {
    for (int i = 0; i < 100; ++i)
        LOG::print(1, "child", i, "record %d", i);
    TerminateProcess(GetCurrentProcess(), killedCode);
}

TEST_CASE("child: writes", "[.]") {
    LOG::prints(1, "child", 1, "one record");
}

// From now on a record is written when the process ends, by a module that is unloaded before Log.dll.
void writeAtUnload(const fs::path& folder) {
    const auto* const copy = new LogCopy(folder);
    (new ModuleImports(copy->module))->on("RtlDllShutdownInProgress", []() -> BOOLEAN {
        LOG::prints(1, "late", 1, "late record");
        return TRUE;
    });
}

TEST_CASE_METHOD(LogTest, "child: writes at its end", "[.]") {
    LOG::prints(1, "child", 1, "one record");
    writeAtUnload(folder);
}

TEST_CASE_METHOD(LogTest, "child: ends while others write", "[.]") {
    writeAtUnload(folder);
    std::latch begun(3);
    for (int t = 0; t < 3; ++t)
        std::thread([&begun] {
            for (int i = 0;; ++i) {
                LOG::prints(1, "child", i, std::string(200, 'x'));
                if (i == 10)
                    begun.count_down();
            }
        }).detach();
    begun.wait();
    ExitProcess(killedCode);
}

TEST_CASE_METHOD(LogTest, "A killed process has lost no record") {
    setVariable(L"TAVIK_LOG_FILE", file);
    CHECK(runChild(L"child: killed").first == killedCode);
    REQUIRE(linesOf(file).size() == 100);
    CHECK(textOf(linesOf(file).back()) == "record 99");
}

TEST_CASE_METHOD(LogTest,
                 "A process ends cleanly while its threads write; at most the last record is cut off") {
    setVariable(L"TAVIK_LOG_FILE", file);
    for (int run = 0; run < 3; ++run)
        CHECK(runChild(L"child: ends while others write").first == killedCode);
    for (const auto& line : linesOf(file, true))
        CHECK((line.ends_with(std::string(200, 'x')) || line.ends_with("late record")));
}

TEST_CASE_METHOD(LogTest, "Records are still written while the modules of an ending process are unloaded") {
    setVariable(L"TAVIK_LOG_FILE", file);
    CHECK(runChild(L"child: writes at its end").first == 0);
    REQUIRE(linesOf(file).size() == 2);
    CHECK(textOf(linesOf(file).back()) == "late record");
}

TEST_CASE_METHOD(LogTest,
                 "A process adds to the file of another, or writes to standard error or the usual place") {
    const LogCopy log(folder);
    log.prints(1, "parent", 1, "before");
    setVariable(L"TAVIK_LOG_FILE", file);
    CHECK(runChild(L"child: writes").first == 0);
    log.prints(1, "parent", 1, "after");
    const auto lines = linesOf(file);
    REQUIRE(lines.size() == 3);
    CHECK(textOf(lines[0]) + textOf(lines[1]) + textOf(lines[2]) == "beforeone recordafter");

    setVariable(L"TAVIK_LOG_FILE", L"-");
    runChild(L"child: writes", folder / "errors");
    CHECK(textOf(linesOf(folder / "errors").at(0)) == "one record");

    setVariable(L"TAVIK_LOG_FILE", L"");
    const std::string process = std::to_string(runChild(L"child: writes").second);
    wchar_t common[MAX_PATH] = L"";
    SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common);
    const fs::path usual = fs::path(common) / "Tavik" / "log" / "log_test.log";
    CHECK(linesOf(usual).back().find(" " + process + "/") != std::string::npos);
    fs::remove(usual);
}
