// What is in the log of a process that ends, in whatever way. Each such process is this program again, with a
// hidden case.
#include "tests/kit/import_table.h"
#include "tests/outside/log_kit.h"

#include <atomic>

#include <shlobj.h>

#include <thread>

namespace {

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
