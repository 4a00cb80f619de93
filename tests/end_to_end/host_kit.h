// The host program as a child process, in a world of its own: peers, connections, working folder and log.
#pragma once

#include <windows.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

inline constexpr const char* goodPassword = "Open-Sesame-7";

struct HandleCloser {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

struct Outcome {
    int exitCode = -1;
    std::string output;   // what standard output received
    std::string messages; // what standard error received
};

std::string textOf(const std::filesystem::path& file); // empty when there is none

// A host program that runs.
class HostRun {
  public:
    HostRun(Handle runningProcess, std::filesystem::path outputFile, std::filesystem::path messagesFile);

    // Waits for its end. One that does not end in a minute is ended and has the exit code -1.
    Outcome finish();
    // Ends it from outside, at once.
    void kill();

  private:
    Handle process;
    std::filesystem::path output;
    std::filesystem::path messages;
};

// A fresh folder, removed at the end; `peers` is the text that describes the peers by address.
class World {
  public:
    explicit World(const std::string& peers);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // `arguments` is the program's command line; `input` is all that it finds on standard input.
    HostRun start(const std::string& arguments, const std::string& input = "") const;
    Outcome run(const std::string& arguments, const std::string& input = "") const;

    // Writes a file into the folder and gives its path.
    std::filesystem::path write(const std::string& name, const std::string& text) const;

    std::string phonebookOf(const std::string& id) const;
    std::string log() const;

    // The files, outputs included, in which `text` stands, as bytes or in UTF-16; the description of the
    // peers and the password files of the test are no part of it.
    std::vector<std::string> filesWith(const std::string& text) const;

    const std::filesystem::path folder;

  private:
    mutable int runs = 0;
};
