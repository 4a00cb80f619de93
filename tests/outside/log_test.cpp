#include "tests/kit/import_table.h"
#include "tests/outside/log_kit.h"

#include <map>
#include <regex>
#include <thread>

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
