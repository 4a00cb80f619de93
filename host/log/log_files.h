// The files of a log: the one being written and those that it was before, and the records in them.
#pragma once

#include "log/record.h"
#include "owners.h"

#include <windows.h>

#include <filesystem>
#include <functional>
#include <vector>

namespace logs {

// The log that the settings of Log.dll name; empty when they name none.
std::filesystem::path namedLog();

// The same, else, of all in the folder of logs, the one written last.
std::filesystem::path usualLog();

// The files of the log that are there, the oldest first.
std::vector<std::filesystem::path> filesOf(const std::filesystem::path& log);

// What was found that is no record, each kind counted.
struct Unreadable {
    std::size_t foreign = 0; // not begun as a record is
    std::size_t broken = 0;  // begun so, and not gone on so
    std::size_t cut = 0;     // the last of a file, without an end
    std::string first;       // where, as FILE:LINE

    std::size_t all() const { return foreign + broken + cut; }
};

using TakeRecord = std::function<void(const Record&)>;

// Reads a log piece by piece. Whoever writes it may rename and remove its files meanwhile.
class LogReader {
  public:
    explicit LogReader(std::filesystem::path newest) : log(std::move(newest)) {}

    // Every record of every file. Throws std::runtime_error when a file cannot be read. When it `isFollowed`,
    // its last line may still be written.
    void readAll(const TakeRecord& take, bool isFollowed = false);

    // The records written since the last call, or since readAll, through rotations; the first call without
    // that only takes its place behind what there is.
    void follow(const TakeRecord& take);

    const Unreadable& unreadable() const { return notRead; }
    std::size_t records() const { return taken; }
    std::size_t files() const { return filesRead; }
    const std::filesystem::path& path() const { return log; }

  private:
    static Handle open(const std::filesystem::path& path);
    static unsigned long long identityOf(HANDLE file);
    void begin(const std::filesystem::path& path);
    void readOn(HANDLE file, const TakeRecord& take);
    void endOfFile();
    void takeLine(std::string_view text, const TakeRecord& take);
    void note(std::size_t& kind);
    std::vector<std::filesystem::path> writtenSince(unsigned long long identity) const;

    const std::filesystem::path log;
    Unreadable notRead;
    std::size_t taken = 0;
    std::size_t filesRead = 0;

    std::string name; // of the file that is read
    std::size_t line = 0;
    std::string pending;  // of a line whose end has not come yet
    bool tooLong = false; // that line
    Handle followed;
    bool following = false;
};

} // namespace logs
