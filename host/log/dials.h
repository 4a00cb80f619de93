// The dials that a log tells of, put together out of its records.
#pragma once

#include "log/record.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace logs {

// What a dial is at. Those up to confirmation are how far it has come, in their order.
enum class Stage : std::uint8_t {
    entry,
    port,
    connection,
    authentication,
    link,
    confirmation,
    hangUp,
    pause
};

// Times are in milliseconds from the dial's begin.
struct Phase {
    Stage stage;
    std::uint8_t attempt; // of the service's dials, from 0; its entry and its hang-up belong to it
    bool ended;
    std::int32_t begin;
    std::int32_t end;
    std::uint32_t code; // with which it failed
};

// When these were first so, of the last attempt.
struct Stamps {
    std::optional<std::int32_t> portOpened, serverReached, authenticated, linkUp;
};

enum class Outcome : std::uint8_t {
    connected,
    failed,      // with a code
    unconfirmed, // no error, and no connection that anybody saw
    unfinished,  // the log does not tell of an end
};

// What the service went on to say after the library had stopped waiting.
struct LateReport {
    std::int32_t at;
    Stage stage;
    std::uint32_t code;
    bool connected;
};

struct Dial {
    unsigned process = 0, thread = 0;
    std::string peer; // empty while nothing names it
    std::string address;
    std::string linkAddress;
    std::vector<std::string> entries; // of each attempt; empty where the log does not name it
    Time began;
    std::int32_t took = 0;
    Outcome outcome = Outcome::unfinished;
    std::uint32_t code = 0;
    std::optional<Stage> endedIn; // nothing where the log does not tell
    bool traced = false;          // the log has its details, not failures alone
    bool timedOut = false;
    std::uint8_t tries = 0;
    bool redialled = false; // under a fresh name, at least once
    std::vector<Phase> phases;
    Stamps stamps;
    std::optional<LateReport> late;
    std::optional<std::int64_t> hungUp; // the connection that came of it

    Time ended() const { return began + std::chrono::milliseconds(took); }
};

// Takes the records of a log in their order.
class DialReader {
  public:
    // The peer that the record is about; empty when it is about none. Valid until the next call.
    const std::string& take(const Record& taken);

    // The dials, by their beginnings. Nothing may be taken afterwards.
    std::vector<Dial> finish();

  private:
    using ThreadKey = std::uint64_t;

    // A dial on the thread that makes it.
    struct Running {
        std::size_t dial;
        Time last;              // record of it
        bool wholeDial = false; // begun by dialUp, not by dialUp2 alone
        bool confirmed = false;
        bool attempting = false; // the service dials
        bool attemptFailed = false;
        bool attemptTimedOut = false;
        std::string nextEntry = {};
        unsigned ordinal = 0; // of the attempt in its process
        std::optional<unsigned> callback = {};
        std::chrono::milliseconds patience = {}; // for the next record, where nothing tells of the end
    };
    struct Thread {
        std::optional<Running> running;
        std::string operation; // that is no dial, and its peer
        std::string about;
    };
    struct Reported {
        ThreadKey thread;
        std::size_t dial;
    };
    struct Process {
        unsigned attempts = 0;
        unsigned offset = 0;            // from an attempt's ordinal to its callback id
        std::vector<ThreadKey> waiting; // with attempts whose callback id is not known yet
        std::map<unsigned, Reported> reported;
        unsigned unclaimedCode = 0; // of a failure that fits no attempt in the log
        Stage unclaimedStage = Stage::entry;
    };

    // What the records say.
    void entered(std::string_view operation, std::string_view arguments);
    void left(std::string_view operation);
    void notified(Scanner words);
    void told(std::string_view text);
    void toldOfDial(std::string_view text);

    // A dial on the record's thread.
    Running& begin(std::string_view peer, bool traced);
    Running& running();
    Dial& dial() { return dials[running().dial]; }
    void beginTraced(std::string_view arguments);
    void beginTry(std::string_view arguments);
    void beginAttempt();
    void endAttempt();
    void endTry(unsigned code);
    void end(Time at, bool endIsTold);
    void nameEntry(std::string_view place);
    void fail(Stage stage, unsigned code);
    void hungUp(const std::string& entry);

    // What the service reports of it, on threads of its own.
    const Reported* attemptOf(unsigned callback, bool isFirst);
    Running* attempting(const Reported& report, unsigned callback);
    void advance(Dial& of, std::string_view state, Stage stage) const;

    void beginPhase(Dial& of, Stage stage) const;
    std::int32_t sinceBegin(const Dial& of) const;

    std::vector<Dial> dials;
    std::unordered_map<ThreadKey, Thread> threads;
    std::unordered_map<unsigned, Process> processes;
    std::unordered_map<std::string, std::size_t> connections; // by entry
    std::string peer;
    const Record* record = nullptr; // the one that is taken, its thread and process
    ThreadKey key = 0;
    Thread* thread = nullptr;
    Process* process = nullptr;
};

} // namespace logs
