#include "tests/end_to_end/host_kit.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr DWORD longestRun = 60'000; // ms

fs::path freshFolder() {
    static int folders = 0;
    const std::string name =
        "varnel-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++folders);
    fs::path folder = fs::temp_directory_path() / name;
    fs::create_directories(folder);
    return folder;
}

fs::path program() {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).replace_filename("varnel-host.exe");
}

SECURITY_ATTRIBUTES inheritable() {
    return {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
}

Handle openForWriting(const fs::path& file) {
    SECURITY_ATTRIBUTES attributes = inheritable();
    return Handle(
        CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &attributes, CREATE_ALWAYS, 0, nullptr));
}

// The reading end of a pipe that holds `text` and has no writer any more. The text must fit a pipe.
Handle pipeWith(const std::string& text) {
    SECURITY_ATTRIBUTES attributes = inheritable();
    HANDLE reading = nullptr;
    HANDLE writing = nullptr;
    CreatePipe(&reading, &writing, &attributes, static_cast<DWORD>(text.size() + 1));
    const Handle writer(writing);
    SetHandleInformation(writing, HANDLE_FLAG_INHERIT, 0);
    DWORD written = 0;
    WriteFile(writing, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return Handle(reading);
}

std::wstring wide(const std::string& utf8) {
    std::wstring text(utf8.size(), L'\0');
    const int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()),
                                           text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<size_t>(length));
    return text;
}

Handle launch(const std::string& arguments, HANDLE input, HANDLE output, HANDLE messages) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = output;
    startup.hStdError = messages;
    PROCESS_INFORMATION started = {};
    std::wstring line = L"varnel-host " + wide(arguments);
    if (!CreateProcessW(program().c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &started))
        throw std::runtime_error("varnel-host.exe does not start, error " + std::to_string(GetLastError()));
    const Handle thread(started.hThread);
    return Handle(started.hProcess);
}

std::string inUtf16(const std::string& text) {
    std::string wide;
    for (const char character : text)
        wide += {character, '\0'};
    return wide;
}

} // namespace

std::string textOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

HostRun::HostRun(Handle runningProcess, fs::path outputFile, fs::path messagesFile)
    : process(std::move(runningProcess)), output(std::move(outputFile)), messages(std::move(messagesFile)) {}

Outcome HostRun::finish() {
    if (WaitForSingleObject(process.get(), longestRun) != WAIT_OBJECT_0)
        kill();
    DWORD exitCode = 0;
    GetExitCodeProcess(process.get(), &exitCode);
    return {static_cast<int>(exitCode), textOf(output), textOf(messages)};
}

void HostRun::kill() {
    TerminateProcess(process.get(), static_cast<UINT>(-1));
    WaitForSingleObject(process.get(), longestRun);
}

World::World(const std::string& peers) : folder(freshFolder()) {
    fs::create_directories(folder / "ras");
    write("peers.ini", peers);
}

World::~World() {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

HostRun World::start(const std::string& arguments, const std::string& input) const {
    SetEnvironmentVariableW(L"STANDIN_RAS_FOLDER", (folder / "ras").c_str());
    SetEnvironmentVariableW(L"STANDIN_RAS_PEERS", (folder / "peers.ini").c_str());
    SetEnvironmentVariableW(L"TAVIK_WORKING_FOLDER", (folder / "working").c_str());
    SetEnvironmentVariableW(L"TAVIK_LOG_FILE", (folder / "varnel.log").c_str());
    SetEnvironmentVariableW(L"TAVIK_LOG_LEVEL", L"3");
    const std::string run = std::to_string(++runs);
    const fs::path output = folder / ("output-" + run + ".txt");
    const fs::path messages = folder / ("messages-" + run + ".txt");
    Handle process = launch(arguments, pipeWith(input).get(), openForWriting(output).get(),
                            openForWriting(messages).get());
    return {std::move(process), output, messages};
}

Outcome World::run(const std::string& arguments, const std::string& input) const {
    return start(arguments, input).finish();
}

fs::path World::write(const std::string& name, const std::string& text) const {
    std::ofstream(folder / name, std::ios::binary) << text;
    return folder / name;
}

std::string World::phonebookOf(const std::string& id) const {
    return textOf(folder / "working" / id / "pptp.pbk");
}

std::string World::log() const {
    return textOf(folder / "varnel.log");
}

std::vector<std::string> World::filesWith(const std::string& text) const {
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (!entry.is_regular_file() || name == "peers.ini" || name.ends_with(".password"))
            continue;
        const std::string content = textOf(entry.path());
        if (content.find(text) != content.npos || content.find(inUtf16(text)) != content.npos)
            found.push_back(name);
    }
    return found;
}
