// The product's logging library, Log.dll.
#pragma once

#include <string>

#ifdef LOG_BUILDING
#define LOG_API __declspec(dllexport)
#else
#define LOG_API __declspec(dllimport)
#endif

// Writes the records of all modules of a process into one file. Levels: 1 major actions, 2 failures, 3
// details. Every function may be called from several threads at once, keeps the thread's last error as it
// was, never throws, and loses a record that cannot be written without telling the caller.
class LOG_API LOG {
  public:
    LOG() = delete;

    // Records above this level are dropped. Read by callers before they build a text; may be set at any time.
    static long level;

    // One record from a printf-style format. `file` and `line` say where in the source it was written.
    static void print(int level, const char* file, long line, const char* format, ...)
        __attribute__((format(gnu_printf, 4, 5)));

    // One record from a finished text, in the ANSI code page or UTF-8. A line end at its end is optional.
    static void prints(int level, const char* file, long line, const std::string& text);
};
