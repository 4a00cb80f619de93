#include "call_trace.h"

#include "log_line.h"

CallTrace::CallTrace(const std::string& operation_, const std::string& arguments_, long line_, int level_)
    : operation(operation_), file(logFile), arguments(arguments_), line(line_), level(level_),
      start(GetTickCount()) {
    LOG::print(level, file.c_str(), line, "==>>%s(%s)\n", operation.c_str(), arguments.c_str());
}

CallTrace::~CallTrace() {
    LOG::print(level, file.c_str(), line, "<<== %s(%s),period = %d(ms)\n", operation.c_str(),
               arguments.c_str(), static_cast<int>(GetTickCount() - start));
}
