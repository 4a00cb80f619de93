#include "outside/Log.h"

#include "outside/log/record_file.h"
#include "outside/log/record_text.h"
#include "outside/log/settings.h"

#include <fmt/format.h>

#include <windows.h>

namespace {

// Closed when the library is unloaded, but left alone at the end of the process: modules that are unloaded
// after this one may still write, and a thread that was stopped in the middle of a record holds the file's
// locks.
class OpenLog {
  public:
    OpenLog() = default;
    ~OpenLog() {
        if (!logging::processIsEnding())
            delete file;
    }
    OpenLog(const OpenLog&) = delete;
    OpenLog& operator=(const OpenLog&) = delete;

    void write(const std::string& line) const noexcept { file->write(line); }

  private:
    logging::RecordFile* const file = new logging::RecordFile;
};

const OpenLog openLog;

class LastErrorKept {
  public:
    LastErrorKept() = default;
    ~LastErrorKept() { SetLastError(code); }
    LastErrorKept(const LastErrorKept&) = delete;
    LastErrorKept& operator=(const LastErrorKept&) = delete;

  private:
    const DWORD code = GetLastError();
};

void write(int level, const char* file, long line, const std::string& text) {
    openLog.write(fmt::format("{} {}({}) {}", level, logging::oneLine(file ? file : "?"), line,
                              logging::oneLine(text)));
}

} // namespace

long LOG::level = logging::startLevel();

void LOG::print(int recordLevel, const char* file, long line, const char* format, ...) {
    if (recordLevel > level)
        return;
    const LastErrorKept lastErrorKept;
    va_list arguments;
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
