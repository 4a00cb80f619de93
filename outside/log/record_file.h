// The rotating file that the records of a process go to.
#pragma once

#include <spdlog/sinks/sink.h>

#include <windows.h>

#include <memory>
#include <string>

namespace logging {

struct FileSettings;

// Opens its file at the first record, so that a program may still
// choose it. Usable from several threads at once.
class RecordFile {
  public:
    RecordFile();
    ~RecordFile();
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;

    // Writes one line, and has handed it to the system on return. A line that cannot be written is lost.
    void write(const std::string& line) noexcept;

  private:
    bool needsOpening();
    void open(const FileSettings& settings);
    bool put(const std::string& line);

    CRITICAL_SECTION section;
    std::unique_ptr<spdlog::sinks::sink> sink;
    bool openingFailed = false;
    DWORD failedAt = 0; // tick count
};

// Whether the process is in its last moments: its other threads are gone, with whatever they had locked.
bool processIsEnding();

} // namespace logging
