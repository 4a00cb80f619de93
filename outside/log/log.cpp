#include "outside/Log.h"

#include "outside/last_error.h"
#include "outside/log/record_file.h"
#include "outside/log/record_text.h"
#include "outside/log/settings.h"

#include <fmt/format.h>

#include <windows.h>

namespace {

// Null once this library has been told that it is unloaded or that
// the process ends; records are lost from then on.
logging::RecordFile* openLog = new logging::RecordFile;

// At the end of the process the file is left as it is: a thread that was stopped in the middle of a record
// may hold its locks.
class CloseAtUnload {
  public:
    CloseAtUnload() = default;
    ~CloseAtUnload() {
        if (!logging::processIsEnding())
            delete openLog;
        openLog = nullptr;
    }
    CloseAtUnload(const CloseAtUnload&) = delete;
    CloseAtUnload& operator=(const CloseAtUnload&) = delete;
};

const CloseAtUnload closeAtUnload;

void write(int level, const char* file, long line, const std::string& text) {
    if (openLog)
        openLog->write(fmt::format("{} {}({}) {}", level, logging::oneLine(file ? file : "?"), line,
                                   logging::oneLine(text)));
}

} // namespace

long LOG::level = logging::startLevel();

void LOG::print(int recordLevel, const char* file, long line, const char* format, ...) {
    if (recordLevel > level)
        return;
    const LastErrorKept lastErrorKept;
    va_list arguments; // NOLINT(cppcoreguidelines-init-variables)
    va_start(arguments, format);
    try {
        write(recordLevel, file, line, logging::formatted(format ? format : "", arguments));
    } catch (...) {
    }
    va_end(arguments);
}

void LOG::prints(int recordLevel, const char* file, long line, const std::string& text) {
    if (recordLevel > level)
        return;
    const LastErrorKept lastErrorKept;
    try {
        write(recordLevel, file, line, text);
    } catch (...) {
    }
}
