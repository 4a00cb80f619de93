// The table of the computer's connections, shared by its processes.
//
// Nothing runs behind it: what time changes (a hang-up's end, a link that breaks) and the end of a dialling
// process count whenever a record is looked at. Any thread may use it; each operation holds a named mutex.
#pragma once

#include "standin/ras/connection_record.h"
#include "standin/ras/entry.h"
#include "standin/ras/handles.h"

#include <windows.h>

#include <memory>
#include <optional>

#include <ras.h>

#include <set>
#include <string>
#include <vector>

namespace standin {

// What became of the wish to dial an entry.
struct Reservation {
    enum class Kind {
        reserved, // a new connection, being dialled
        joined,   // the entry is connected: one reference more
        busy,     // the entry is being dialled, or its hang-up is not over
        full,
    };

    Kind kind;
    HRASCONN handle = nullptr;
    bool hasPort = false; // whether one of the computer's ports was free for it
    Handle hungUp = {};   // an event that a hang-up sets
};

class ConnectionTable {
  public:
    // The table of the state folder, opened once per process and folder; null when that is impossible.
    static std::shared_ptr<ConnectionTable> current();

    // Until it stands, a reserved connection is there as long as its event is kept.
    Reservation reserve(const Entry& entry, unsigned ports);
    void release(HRASCONN handle);

    // How often `address` was dialled under this behaviour, this dial included.
    unsigned countDial(const std::string& address, const std::string& behaviour);

    // The steps of a dial. False when it was hung up meanwhile; the dial is over then.
    bool enter(HRASCONN handle, RASCONNSTATE state);
    bool project(HRASCONN handle, const std::string& clientAddress, const std::string& serverAddress);
    // The link breaks by itself `dropAfter` ms later, unless that is 0; its handle is known for
    // `brokenLinkLinger` ms more.
    bool connect(HRASCONN handle, unsigned dropAfter, unsigned brokenLinkLinger);
    bool fail(HRASCONN handle, RASCONNSTATE state, DWORD error, bool keepsPort);

    // Drops a reference; with the last one the connection goes down, and its handle is known for `linger` ms
    // more. 6 for an unknown handle, 668 for one that is going down.
    DWORD hangUp(HRASCONN handle, unsigned linger);

    std::optional<ConnectionRecord> find(HRASCONN handle);
    // The connections that stand, in the order in which they came to; then, if wanted, those being dialled.
    std::vector<ConnectionRecord> list(bool includesDialing);

  private:
    struct ViewCloser {
        void operator()(ConnectionFile* view) const { UnmapViewOfFile(view); }
    };

    explicit ConnectionTable(const std::string& folder);

    // To be called under the mutex before anything else: the uptime, in a table that is in order.
    std::int64_t begin();
    // The record as it is now; null when it is free.
    ConnectionRecord* settled(std::size_t index, std::int64_t now);
    ConnectionRecord* settled(HRASCONN handle, std::int64_t now);
    // Lets `change` work on a record that is being dialled; false when it is none any more.
    template<class Change>
    bool step(HRASCONN handle, RASCONNSTATE state, Change change);
    bool hasDialer(std::uint64_t number) const;
    std::string hangUpEventName(std::uint64_t number) const;

    std::string name; // of the table's kernel objects
    Handle mutex;
    std::unique_ptr<ConnectionFile, ViewCloser> file;
    std::set<std::uint64_t> ownDials; // of this process, not hung up by it
};

} // namespace standin
