// Plays the situations of texts on a whole computer, and compares what comes with what they say. README.md
// tells how to write one.
//
//   end_to_end_test COMPUTER FOLDER TEXT... [--accept]    plays the texts of the folder
//   end_to_end_test stays-loaded ID                       for the texts themselves
#include "outside/Helper.h"

#include <winsock2.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>

#include <io.h>

#include <map>
#include <random>
#include <utility>

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

namespace {

std::FILE* const report = _fdopen(_dup(1), "w");
const fs::path place = "C:\\end-to-end"; // the folder of the situation that is played

std::string bytesOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

Lines linesOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    Lines lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line.substr(0, line.find_last_not_of("\r ") + 1));
    return lines;
}

// What the test itself does to the computer; each command gets the rest of its line.

std::mt19937 chance;
int struckHosts = 0;

void killHost(const std::string& withinMilliseconds) {
    Sleep(static_cast<DWORD>(chance() % std::stoul(withinMilliseconds)));
    struckHosts += std::system("taskkill /f /im varnel-host.exe >nul 2>&1") == 0;
}

// The driver must have been stopped.
void setDriverVersion(const std::string& build) {
    const fs::path file = "C:\\windows\\system32\\Drivers\\Ombrel.SYS";
    std::string image = bytesOf(file);
    image.at(image.find("\xBD\x04\xEF\xFE") + offsetof(VS_FIXEDFILEINFO, dwFileVersionLS)) =
        static_cast<char>(std::stoi(build));
    // Wine lets go of its image a moment later.
    while (!DeleteFileW(file.c_str()))
        Sleep(10);
    std::ofstream(file, std::ios::binary) << image;
}

void holdPort(const std::string& held) {
    static SOCKET port = INVALID_SOCKET;
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    closesocket(std::exchange(port, socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(1723);
    if (held != "held" || bind(port, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return;
    listen(port, 1);
    // Wine finds the owner of a socket only after the process has tried to transfer something.
    u_long withoutWaiting = 1;
    ioctlsocket(port, static_cast<long>(FIONBIO), &withoutWaiting);
    send(port, "x", 1, 0);
}

const std::map<std::string, void (*)(const std::string&)> ownCommands = {
    {"kill", killHost}, {"driver", setDriverVersion}, {"port", holdPort}};

// Loads the library, dials with the id, or does not when it is empty, and lets the library go.
int staysLoaded(const std::string& id) {
    using DialUp = DWORD (*)(const std::string&, const std::string&, bool, bool, DWORD);
    constexpr auto dialUp = "_ZN6VARNEL6dialUpERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES7_bbm";
    HMODULE const library = LoadLibraryA("Varnel.dll");
    const auto dial = reinterpret_cast<DialUp>(reinterpret_cast<void*>(GetProcAddress(library, dialUp)));
    if (!id.empty())
        dial(id, id, false, true, 1);
    FreeLibrary(library);
    return GetModuleHandleA("Varnel.dll") != nullptr;
}

// A line of a text, with the lines that are typed then and those that must come of it.
struct Step {
    std::string line;
    Lines typed = {};
    Lines said = {};
};

std::vector<Step> stepsOf(const fs::path& text) {
    std::vector<Step> steps;
    for (const std::string& line : linesOf(text))
        if (line.starts_with("< "))
            steps.back().typed.push_back(line);
        else if (line.starts_with("  ") || line.starts_with("! ") || line.starts_with("= "))
            steps.back().said.push_back(line);
        else
            steps.push_back({line});
    return steps;
}

void rewrite(const fs::path& text, const std::vector<Step>& steps) {
    std::ofstream file(text, std::ios::binary);
    for (const Step& step : steps)
        for (const Lines& lines : {Lines{step.line}, step.typed, step.said})
            for (const std::string& line : lines)
                file << line << '\n';
}

constexpr int notStarted = 9009; // cmd.exe's code

// Any other command is one of cmd.exe, which inherits this program's streams: files beside the place.
Lines run(const Step& step) {
    const std::string command = step.line.substr(2);
    const size_t blank = command.find(' ');
    if (const auto own = ownCommands.find(command.substr(0, blank)); own != ownCommands.end()) {
        own->second(command.substr(blank + 1));
        return {};
    }
    std::ofstream typed("..\\typed", std::ios::binary);
    for (const std::string& line : step.typed)
        typed << line.substr(2) << "\r\n";
    typed.close();
    int exitCode = 0;
    for (int tries = 3; tries > 0; --tries) {
        if (!std::freopen("..\\typed", "rb", stdin) || !std::freopen("..\\output", "wb", stdout) ||
            !std::freopen("..\\messages", "wb", stderr))
            throw std::runtime_error("the files beside the situation's folder cannot be opened");
        errno = 0;
        exitCode = _wsystem(utf82unicode(command).c_str());
        // Under load Wine at times fails to start a program: the shell, or what the shell is to start.
        if ((exitCode != -1 || errno == 0) && exitCode != notStarted)
            break;
    }
    Lines came;
    for (const auto& [file, mark] : {std::pair("..\\output", "  "), std::pair("..\\messages", "! ")})
        for (const std::string& line : linesOf(file))
            if (!line.empty())
                came.push_back(mark + line);
    if (exitCode != 0)
        came.push_back(fmt::format("= {}", exitCode));
    return came;
}

// "*" stands for any characters, "?" for any one.
bool matches(std::string_view pattern, std::string_view line) {
    if (pattern.starts_with('*'))
        return matches(pattern.substr(1), line) || (!line.empty() && matches(pattern, line.substr(1)));
    if (pattern.empty() || line.empty())
        return pattern == line;
    return (pattern[0] == '?' || pattern[0] == line[0]) && matches(pattern.substr(1), line.substr(1));
}

class Player {
  public:
    explicit Player(const Lines& words) : computer(words.at(0)), folder(fs::absolute(words.at(1))) {}

    void play(const std::string& text, bool accepts) {
        std::vector<Step> steps = stepsOf(folder / text);
        for (Step& step : steps)
            if (step.line.starts_with("on "))
                begin(step.line);
            else if (step.line.starts_with("> ") && here)
                play(step);
        end();
        if (accepts)
            rewrite(folder / text, steps);
    }

    int passed = 0;
    int failed = 0;

  private:
    // A situation that is played again goes on in the place as it left it.
    void begin(const std::string& heading) {
        end();
        here = heading.substr(0, heading.find(':')).find(computer) != heading.npos;
        if (!here || std::exchange(situation, heading) == heading)
            return;
        fs::current_path(place.parent_path());
        fs::remove_all(place);
        fs::copy(folder / "given", place);
        fs::current_path(place);
    }

    void play(Step& step) {
        Lines came = run(step);
        for (size_t i = 0; i < std::min(came.size(), step.said.size()); ++i)
            if (matches(step.said[i], came[i]))
                came[i] = step.said[i];
        if (came != step.said)
            fail(fmt::format("{}\n{}\n-- but there came --\n{}", step.line, fmt::join(step.said, "\n"),
                             fmt::join(came, "\n")));
        step.said = came;
    }

    void end() {
        if (!here)
            return;
        // As bytes or in UTF-16, where nobody typed it.
        for (const fs::path& file : fs::recursive_directory_iterator(place)) {
            std::string bytes = bytesOf(file);
            std::erase(bytes, '\0');
            if (bytes.find("Open-Sesame-7") != bytes.npos && file != place / "peers.ini" &&
                file != place / "password")
                fail("the password stands in " + file.string());
        }
        ++(failing ? failed : passed);
        here = failing = false;
    }

    void fail(const std::string& difference) {
        if (!std::exchange(failing, true))
            fmt::print(report, "{}\n{}\n\n", situation, difference);
    }

    const std::string computer;
    const fs::path folder;
    std::string situation;
    bool here = false; // it is played on this computer
    bool failing = false;
};

} // namespace

int main(int count, char** arguments) { // NOLINT(bugprone-exception-escape): that ends the program
    Lines words(arguments + 1, arguments + count);
    if (words.at(0) == "stays-loaded")
        return staysLoaded(words.at(1));
    const bool accepts = std::erase(words, "--accept") != 0;
    for (const char* setting :
         {"STANDIN_RAS_FOLDER=C:\\end-to-end", "STANDIN_RAS_PEERS=C:\\end-to-end\\peers.ini",
          "STANDIN_ROUTER_FOLDER=C:\\end-to-end", "TAVIK_WORKING_FOLDER=C:\\end-to-end\\working",
          "TAVIK_LOG_FILE=C:\\end-to-end\\varnel.log", "TAVIK_LOG_LEVEL=3"})
        _putenv(setting);
    const bool soak = std::getenv("VARNEL_SOAK") != nullptr;
    const char* const given = std::getenv("VARNEL_SEED");
    const unsigned long seed = given ? std::stoul(given) : soak ? std::random_device()() : 1;
    chance.seed(seed);
    Player player(words);
    for (const std::string& text : Lines(words.begin() + 2, words.end()))
        for (int times = text != "kills.txt" ? 1 : soak ? 200 : 10; times > 0; --times)
            player.play(text, accepts);
    if (words.back() == "kills.txt")
        fmt::print(report, "campaign kills: {} plays, {} hosts killed at work, seed {}\n",
                   player.passed + player.failed, struckHosts, seed);
    fmt::print(report, "cases: {} passed, {} failed\n", player.passed, player.failed);
    return player.failed != 0;
}
