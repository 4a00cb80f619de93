// A log's operations and dials as a trace, in the JSON of trace events that trace viewers open.
#pragma once

#include "log/dials.h"
#include "log/written_file.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace logs {

// Each thread and each dial has a line of its own ("tid"), on which slices nest. Times are in microseconds
// from the first record. Records of one millisecond are set a microsecond apart, in their order.
class TraceWriter {
  public:
    explicit TraceWriter(const std::filesystem::path& path);

    // The records in their order, then the dials, then the end.
    void take(const Record& record);
    void take(std::size_t number, const Dial& dial);
    void finish();

  private:
    using Line = std::pair<unsigned, unsigned>; // process and thread
    struct Open {
        std::string operation, arguments;
        long long since;
    };
    struct Thread {
        std::vector<Open> open;
        long long last = -1; // record's moment
        long long free = 0;  // from here on there is no slice yet
    };

    long long micros(Time time);
    void enter(const Line& line, Thread& thread, std::string_view operation, std::string_view arguments);
    void leave(const Line& line, Thread& thread, std::string_view operation, Scanner rest);
    void closeInnermost(const Line& line, Thread& thread, bool ended);
    void slice(const Line& line, const std::string& name, long long from, long long to, bool ended);
    void nameLine(const Line& line, const std::string& name);
    void event(const std::string& json);

    WrittenFile file;
    bool isFirst = true;
    std::optional<Time> origin;
    std::map<Line, Thread> threads;
};

} // namespace logs
