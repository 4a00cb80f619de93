#pragma once

#include <windows.h>

#include <string>

// Logs that an operation was entered, and on leaving it by any road, an exception included, that it was left
// and after how many milliseconds. The threshold is the logging library's to apply.
class CallTrace {
  public:
    CallTrace(std::string name, std::string argumentText, long sourceLine, int recordLevel);
    ~CallTrace();
    CallTrace(const CallTrace&) = delete;
    CallTrace& operator=(const CallTrace&) = delete;

  private:
    std::string operation;
    std::string file;
    std::string arguments;
    long line;
    int level;
    DWORD start;
};
