#pragma once

#include <windows.h>

#include <string>

// Logs that an operation was entered, and on leaving it by any road, an exception included, that it was left
// and after how many milliseconds. The threshold is the logging library's to apply.
class CALL_TRACE {
  public:
    CALL_TRACE(const std::string& operation, const std::string& arguments, long line, int level);
    ~CALL_TRACE();
    CALL_TRACE(const CALL_TRACE&) = delete;
    CALL_TRACE& operator=(const CALL_TRACE&) = delete;

  private:
    std::string operation;
    std::string file;
    std::string arguments;
    long line;
    int level;
    DWORD start;
};
