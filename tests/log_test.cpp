#include "outside/Log.h"
#include "tests/kit/import_table.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

#include <shlobj.h>

#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr char LevelName[] = "_ZN3LOG5levelE";
constexpr char PrintName[] = "_ZN3LOG5printEiPKclS1_z";
constexpr char PrintsName[] = "_ZN3LOG6printsEiPKclRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE";

fs::path modulePath(const wchar_t* module) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(GetModuleHandleW(module), path, MAX_PATH);
    return path;
}

class TestFolder {
  public:
    TestFolder() : path(fs::temp_directory_path() / ("log_test." + std::to_string(GetCurrentProcessId()))) {
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~TestFolder() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }

    const fs::path path;
};

class Environment {
  public:
    Environment(const wchar_t* n, const std::wstring& value) : name(n) {
        SetEnvironmentVariableW(name, value.c_str());
    }
    ~Environment() { SetEnvironmentVariableW(name, nullptr); }

  private:
    const wchar_t* name;
};

// A copy of Log.dll, loaded afresh with the settings beside it and unloaded again.
class LogCopy {
  public:
    explicit LogCopy(const fs::path& folder, const std::string& settings = {}) {
        const fs::path dll = folder / "Log.dll";
        fs::copy_file(modulePath(L"Log.dll"), dll, fs::copy_options::overwrite_existing);
        if (!settings.empty())
            std::ofstream(folder / "Log.ini") << "[log]\n" << settings;
        module = LoadLibraryW(dll.c_str());
        REQUIRE(module);
        level = at<long*>(LevelName);
        print = at<decltype(&LOG::print)>(PrintName);
        prints = at<decltype(&LOG::prints)>(PrintsName);
        REQUIRE((level && print && prints));
        REQUIRE(level != &LOG::level);
    }
    ~LogCopy() { FreeLibrary(module); }

    void write(const std::string& text, int recordLevel = 1) const {
        prints(recordLevel, ".\\Test", 7, text);
    }

    long* level;
    decltype(&LOG::print) print;
    decltype(&LOG::prints) prints;
    HMODULE module;

  private:
    template<typename T>
    T at(const char* name) const {
        return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    }
};

// Without what follows the last line end, which goes into `rest`.
std::vector<std::string> linesOf(const fs::path& file, std::string& rest) {
    std::ifstream in(file, std::ios::binary);
    std::vector<std::string> lines;
    for (; std::getline(in, rest) && !in.eof(); lines.push_back(rest)) {
        REQUIRE(rest.ends_with('\r'));
        rest.pop_back();
    }
    return lines;
}

std::vector<std::string> linesOf(const fs::path& file) {
    std::string rest;
    const auto lines = linesOf(file, rest);
    REQUIRE(rest.empty());
    return lines;
}

std::string lastLineOf(const fs::path& file) {
    const auto lines = linesOf(file);
    return lines.empty() ? std::string() : lines.back();
}

// What stands behind the place of a record.
std::string textOf(const std::string& record) {
    return record.substr(record.find(") ") + 2);
}

HANDLE inheritedOutput(const fs::path& file) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    const HANDLE output =
        CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, OPEN_ALWAYS, 0, nullptr);
    REQUIRE(output != INVALID_HANDLE_VALUE);
    return output;
}

struct Child {
    DWORD exitCode;
    DWORD processId;
};

// Runs the hidden case `name` of this program, with its standard error in `errors`.
Child runChild(const std::string& name, const fs::path& errors = L"NUL") {
    std::wstring command =
        L"\"" + modulePath(nullptr).wstring() + L"\" \"" + fs::path(name).wstring() + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = inheritedOutput(L"NUL");
    startup.hStdError = inheritedOutput(errors);
    PROCESS_INFORMATION process{};
    REQUIRE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                           &process));
    CHECK(WaitForSingleObject(process.hProcess, 60'000) == WAIT_OBJECT_0);
    Child child{STILL_ACTIVE, process.dwProcessId};
    GetExitCodeProcess(process.hProcess, &child.exitCode);
    for (const HANDLE handle : {process.hThread, process.hProcess, startup.hStdOutput, startup.hStdError})
        CloseHandle(handle);
    return child;
}

constexpr DWORD KilledCode = 77;
constexpr DWORD EndingCode = 78;

// Stands in for RtlDllShutdownInProgress.
BOOLEAN NTAPI writeLate() {
    LOG::prints(1, "late", 1, "late record");
    return TRUE;
}

// From now on a record is written when the process ends, by a module that is unloaded before Log.dll.
void writeAtUnload(const fs::path& folder) {
    const auto module = (new LogCopy(folder))->module;
    REQUIRE(
        (new ImportTable(module))->replace("RtlDllShutdownInProgress", reinterpret_cast<void*>(writeLate)));
}

} // namespace

TEST_CASE("child: killed", "[.]") {
    for (int i = 0; i < 100; ++i)
        LOG::print(1, "child", i, "record %d", i);
    TerminateProcess(GetCurrentProcess(), KilledCode);
}

TEST_CASE("child: ends while others write", "[.]") {
    const TestFolder folder;
    writeAtUnload(folder.path);
    std::atomic<int> begun{0};
    const auto writeForever = [&] {
        for (int i = 0;; ++i) {
            LOG::print(1, "child", i, "%s", std::string(200, 'x').c_str());
            if (i == 10)
                ++begun;
        }
    };
    for (int i = 0; i < 3; ++i)
        std::thread(writeForever).detach();
    while (begun < 3)
        Sleep(1);
    ExitProcess(EndingCode);
}

TEST_CASE("child: writes one record", "[.]") {
    LOG::prints(1, "child", 1, "one record");
}

TEST_CASE("child: writes at its end", "[.]") {
    LOG::prints(1, "child", 1, "one record");
    const TestFolder folder;
    writeAtUnload(folder.path);
}

TEST_CASE("A record is one line with its time, process, thread, level and place") {
    const TestFolder folder;
    {
        const LogCopy log(folder.path, "file=" + (folder.path / "a" / "b" / "my.log").string() + "\n");
        log.write("Can't bind 0:1723", 2);
        log.print(1, ".\\Varnel", 120, "<<== %s(%s),period = %d(ms)\n", "VARNEL::dialUp", "node7", 15);
        log.prints(1, nullptr, 0, "");
    }
    const auto lines = linesOf(folder.path / "a" / "b" / "my.log");
    REQUIRE(lines.size() == 3);
    const std::string when = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";
    const std::string who =
        std::to_string(GetCurrentProcessId()) + "/" + std::to_string(GetCurrentThreadId());
    CHECK(std::regex_match(lines[0], std::regex(when + who + R"( 2 \.\\Test\(7\) Can't bind 0:1723)")));
    CHECK(std::regex_match(
        lines[1],
        std::regex(when + who + R"( 1 \.\\Varnel\(120\) <<== VARNEL::dialUp\(node7\),period = 15\(ms\))")));
    CHECK(std::regex_match(lines[2], std::regex(when + who + R"( 1 \?\(0\) )")));
    CHECK(fs::remove(folder.path / "a" / "b" / "my.log")); // the unloaded library has closed it
}

TEST_CASE("The level is the environment's, else that of Log.ini, else 2") {
    const auto [variable, settings, level] = GENERATE(table<std::wstring, std::string, long>({
        {L"", "", 2},
        {L"", "level=3\n", 3},
        {L"", "level=all\n", 2},
        {L"0", "level=3\n", 0},
        {L"3x", "level=1\n", 1},
    }));
    const TestFolder folder;
    const Environment environment(L"TAVIK_LOG_LEVEL", variable);
    CHECK(*LogCopy(folder.path, settings).level == level);
}

TEST_CASE("The file is the environment's at the first record, else that of Log.ini") {
    const TestFolder folder;
    const LogCopy log(folder.path, "file=" + (folder.path / "ini.log").string() + "\n");
    const Environment file(L"TAVIK_LOG_FILE", folder.path / L"\u00FC\u4E2D.log");
    log.write("here");
    CHECK(linesOf(folder.path / L"\u00FC\u4E2D.log").size() == 1);
    CHECK(!fs::exists(folder.path / "ini.log"));
}

TEST_CASE("A record above the level is not written by either function") {
    const TestFolder folder;
    const Environment file(L"TAVIK_LOG_FILE", folder.path / "my.log");
    const LogCopy log(folder.path);
    for (long level = 0; level <= 3; ++level) {
        *log.level = level;
        for (int recordLevel = 1; recordLevel <= 3; ++recordLevel) {
            log.write("prints", recordLevel);
            log.print(recordLevel, "", 0, "print");
        }
    }
    CHECK(linesOf(folder.path / "my.log").size() == 2 * (0 + 1 + 2 + 3));
}

TEST_CASE("The text arrives whole, and never as a second record") {
    const TestFolder folder;
    const Environment file(L"TAVIK_LOG_FILE", folder.path / "my.log");
    using namespace std::string_literals;
    const std::string huge(1'000'000, 'h');
    const std::vector<std::pair<std::string, std::string>> texts{
        {"line end\n", "line end"},
        {"line end\r\n", "line end"},
        {"two\n\n", "two\\n"},
        {"real\r\n2030-01-01 00:00:00.000 1/1 1 .\\Varnel(1) forged",
         "real\\r\\n2030-01-01 00:00:00.000 1/1 1 .\\Varnel(1) forged"},
        {"tab\there\x1B[2J\x7F", "tab\\there\\u001b[2J\\u007f"},
        {"zero\0inside"s, "zero\\u0000inside"},
        {"next\xC2\x85line\xE2\x80\xA8separator", "next\\u0085line\\u2028separator"},
        {"\xE8\xBF\x9E\xE6\x8E\xA5", "\xE8\xBF\x9E\xE6\x8E\xA5"},
        {"%s%n%d", "%s%n%d"},
        {huge, huge},
    };
    {
        const LogCopy log(folder.path, "size=10240\n");
        for (const auto& [text, ignored] : texts)
            log.write(text);
        log.write("ANSI \xE9"); // no UTF-8
        log.print(1, "", 0, "%s|%lld|%zu|%ls", huge.c_str(), -5'000'000'000LL, sizeof(int), L"wide");
    }
    const auto lines = linesOf(folder.path / "my.log");
    REQUIRE(lines.size() == texts.size() + 2);
    for (std::size_t i = 0; i < texts.size(); ++i)
        CHECK(textOf(lines[i]) == texts[i].second);
    wchar_t expected[2] = L"";
    MultiByteToWideChar(CP_ACP, 0, "\xE9", -1, expected, 2);
    char utf8[8] = "";
    WideCharToMultiByte(CP_UTF8, 0, expected, -1, utf8, sizeof utf8, nullptr, nullptr);
    CHECK(textOf(lines[texts.size()]) == "ANSI "s + utf8);
    CHECK(textOf(lines.back()) == huge + "|-5000000000|4|wide");
}

TEST_CASE("Records of many threads are all there, whole and each thread's in order, across rotations") {
    constexpr int Threads = 8, Records = 300, Files = 100;
    const TestFolder folder;
    {
        const LogCopy log(folder.path, "file=" + (folder.path / "my.log").string() +
                                           "\nsize=16\nfiles=" + std::to_string(Files) + "\n");
        std::vector<std::thread> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.emplace_back([&log, t] {
                for (int i = 0; i < Records; i += 2) {
                    log.print(1, "thread", t, "%d %s", i, std::string(50, 'x').c_str());
                    log.prints(1, "thread", t, std::to_string(i + 1) + " " + std::string(50, 'x'));
                }
            });
        }
        for (auto& thread : threads)
            thread.join();
    }
    const std::regex form(R"(.* 1 thread\((\d)\) (\d+) x{50})");
    std::map<int, int> next;
    for (int file = Files - 1; file >= 0; --file) {
        const std::string name = file == 0 ? "my.log" : "my." + std::to_string(file) + ".log";
        for (const auto& line : linesOf(folder.path / name)) {
            std::smatch parts;
            REQUIRE(std::regex_match(line, parts, form));
            REQUIRE(next[std::stoi(parts[1])]++ == std::stoi(parts[2]));
        }
    }
    for (int t = 0; t < Threads; ++t)
        CHECK(next[t] == Records);
}

TEST_CASE("The log is bounded and keeps its newest records") {
    const TestFolder folder;
    const auto kept = GENERATE(1, 3);
    {
        const LogCopy log(folder.path, "file=" + (folder.path / "my.log").string() +
                                           "\nsize=1\nfiles=" + std::to_string(kept) + "\n");
        for (int i = 0; i < 200; ++i) {
            SetLastError(4711);
            log.print(1, "", i, "%s", std::string(40, 'x').c_str());
            REQUIRE(GetLastError() == 4711);
        }
    }
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder.path)) {
        if (entry.path().extension() == ".log")
            files.push_back(entry.path());
    }
    CHECK(files.size() == static_cast<std::size_t>(kept));
    for (const auto& file : files)
        CHECK(fs::file_size(file) <= 1024);
    CHECK(lastLineOf(folder.path / "my.log").find("(199)") != std::string::npos);
}

TEST_CASE("A file that a reader keeps from being renamed stays bounded and loses no new record") {
    const TestFolder folder;
    const fs::path file = folder.path / "my.log";
    const LogCopy log(folder.path, "file=" + file.string() + "\nsize=1\nfiles=3\n");
    log.write("first");
    const HANDLE reader = CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    REQUIRE(reader != INVALID_HANDLE_VALUE);
    for (int i = 0; i < 20; ++i)
        log.print(1, "", i, "%s", std::string(600, 'x').c_str()); // every second one finds the file full
    CloseHandle(reader);
    CHECK(fs::file_size(file) <= 1024);
    CHECK(lastLineOf(file).find("(19)") != std::string::npos);
}

TEST_CASE("A log that cannot be written is never felt") {
    const TestFolder folder;
    const Environment file(L"TAVIK_LOG_FILE", folder.path); // a folder
    const LogCopy log(folder.path);
    const auto begin = GetTickCount();
    for (int i = 0; i < 1000; ++i) {
        SetLastError(4711);
        log.write("lost");
        log.print(1, nullptr, 0, "%s", "lost");
        REQUIRE(GetLastError() == 4711);
    }
    CHECK(GetTickCount() - begin < 20'000); // an attempt to open it takes 50 ms
}

TEST_CASE("A killed process has lost no record") {
    const TestFolder folder;
    const Environment file(L"TAVIK_LOG_FILE", folder.path / "my.log");
    CHECK(runChild("child: killed").exitCode == KilledCode);
    const auto lines = linesOf(folder.path / "my.log");
    REQUIRE(lines.size() == 100);
    CHECK(textOf(lines.back()) == "record 99");
}

TEST_CASE("A process ends cleanly while its threads write; at most the last record is cut off") {
    for (int run = 0; run < 3; ++run) {
        const TestFolder folder;
        const Environment file(L"TAVIK_LOG_FILE", folder.path / "my.log");
        CHECK(runChild("child: ends while others write").exitCode == EndingCode);
        std::string rest;
        for (const auto& line : linesOf(folder.path / "my.log", rest))
            REQUIRE((line.ends_with(std::string(200, 'x')) || line.ends_with("late record")));
    }
}

TEST_CASE("Records are still written while the modules of an ending process are unloaded") {
    const TestFolder folder;
    const Environment file(L"TAVIK_LOG_FILE", folder.path / "my.log");
    CHECK(runChild("child: writes at its end").exitCode == 0);
    const auto lines = linesOf(folder.path / "my.log");
    REQUIRE(lines.size() == 2);
    CHECK(textOf(lines[1]) == "late record");
}

TEST_CASE("A dash stands for standard error") {
    const TestFolder folder;
    const Environment file(L"TAVIK_LOG_FILE", L"-");
    CHECK(runChild("child: writes one record", folder.path / "errors").exitCode == 0);
    const auto lines = linesOf(folder.path / "errors");
    REQUIRE(lines.size() == 1);
    CHECK(lines[0].ends_with("1 child(1) one record"));
}

TEST_CASE("Without settings the log is in the folder of all users, named after the program") {
    wchar_t common[MAX_PATH] = L"";
    REQUIRE(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common) == S_OK);
    const fs::path file = fs::path(common) / "Tavik" / "log" / "log_test.log";
    const auto child = runChild("child: writes one record");
    const auto lines = linesOf(file);
    const std::string last = lines.empty() ? "" : lines.back();
    CHECK(last.find(" " + std::to_string(child.processId) + "/") != std::string::npos);
    fs::remove(file);
}
