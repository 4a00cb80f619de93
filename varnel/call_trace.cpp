#include "call_trace.h"

#include "log_line.h"

CallTrace::CallTrace(std::string name, std::string argumentText, long sourceLine, int recordLevel)
    : operation(std::move(name)), file(sourceName), arguments(std::move(argumentText)), line(sourceLine),
      level(recordLevel), start(GetTickCount()) {
    LOG::print(level, file.c_str(), line, "==>>%s(%s)\n", operation.c_str(), arguments.c_str());
}

CallTrace::~CallTrace() {
    LOG::print(level, file.c_str(), line, "<<== %s(%s),period = %d(ms)\n", operation.c_str(),
               arguments.c_str(), static_cast<int>(GetTickCount() - start));
}
