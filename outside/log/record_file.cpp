#include "outside/log/record_file.h"

#include "outside/log/settings.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

extern "C" BOOLEAN NTAPI RtlDllShutdownInProgress();

namespace logging {
namespace {

// A file that cannot be opened costs a wait; it is not tried again at each record.
constexpr DWORD reopenPause = 10'000; // ms

// Holds the section. Once the process is ending nobody else can
// release it, so it is then taken only when free.
class Guard {
  public:
    explicit Guard(CRITICAL_SECTION& s) : section(s) {
        if (processIsEnding())
            held = TryEnterCriticalSection(&section) != FALSE;
        else
            EnterCriticalSection(&section);
    }
    ~Guard() {
        if (held)
            LeaveCriticalSection(&section);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    explicit operator bool() const { return held; }

  private:
    CRITICAL_SECTION& section;
    bool held = true;
};

std::unique_ptr<spdlog::sinks::sink> makeSink(const FileSettings& settings) {
    std::unique_ptr<spdlog::sinks::sink> sink;
    if (settings.path == standardError)
        sink = std::make_unique<spdlog::sinks::stderr_sink_st>();
    else
        sink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(settings.path, settings.maxBytes,
                                                                      settings.files - 1);
    sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%d %H:%M:%S.%e %P/%t %v"));
    return sink;
}

} // namespace

bool processIsEnding() {
    return RtlDllShutdownInProgress() != FALSE;
}

RecordFile::RecordFile() {
    InitializeCriticalSection(&section);
}

RecordFile::~RecordFile() {
    DeleteCriticalSection(&section);
}

void RecordFile::write(const std::string& line) noexcept {
    // A rotation that fails spoils the sink; the record then goes to a new one.
    constexpr int attempts = 2;
    try {
        for (int attempt = 0; attempt < attempts; ++attempt) {
            if (needsOpening())
                open(fileSettings());
            if (put(line))
                return;
        }
    } catch (...) {
    }
}

bool RecordFile::needsOpening() {
    if (processIsEnding())
        return false;
    const Guard guard(section);
    return !sink && !(openingFailed && GetTickCount() - failedAt < reopenPause);
}

void RecordFile::open(const FileSettings& settings) {
    const Guard guard(section);
    if (sink)
        return;
    try {
        sink = makeSink(settings);
        openingFailed = false;
    } catch (const spdlog::spdlog_ex&) {
        openingFailed = true;
        failedAt = GetTickCount();
    }
}

bool RecordFile::put(const std::string& line) {
    const Guard guard(section);
    if (!guard || !sink)
        return true;
    try {
        sink->log({spdlog::string_view_t(), spdlog::level::off, line});
        sink->flush();
        return true;
    } catch (const std::exception&) { // of spdlog, or for want of memory: its file may be closed by now
        sink.reset();
        return false;
    }
}

} // namespace logging
