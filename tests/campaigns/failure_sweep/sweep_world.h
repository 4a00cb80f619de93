// What one run of the failure sweep happens in: the library in a computer, a remote-access service, a router
// and networks that are all in memory, with strangers in them that no operation may touch.
#pragma once

#include "scripted_files.h"
#include "tests/kit/scripted_networks.h"
#include "tests/kit/scripted_router.h"
#include "tests/kit/varnel_test.h"

#include <set>

class World : public VarnelTest {
  public:
    World();

    using VarnelTest::book;
    using VarnelTest::clock;
    using VarnelTest::entry;
    using VarnelTest::forgetLog;
    using VarnelTest::log;
    using VarnelTest::peer;
    using VarnelTest::publicBook;
    using VarnelTest::ras;
    using VarnelTest::told;

    ScriptedComputer computer{ScriptedComputer::Folders::None};
    ScriptedFiles files{computer, ras};

    // The host's function, which clean forgets.
    const privates::HostsFunction host = privates::pptpsrvDialDownCallback;

    // What the operation came to.
    struct Outcome {
        bool threw = false;
        DWORD code = 0;
        bool yes = false;
        std::string text;
        std::vector<DWORD> numbers;
        std::wstring message;
        bool passwordLeft = false;
    };
    Outcome outcome;
    std::set<DWORD> scriptedCodes; // that the situation's own dials come to

    // The generation of Windows, before it is asked for.
    void setWin6(bool win6);
    // Connections of strangers, listed before those that come later.
    void addStrangers(int count);
    // An active connection of the peer, and its entry, in a phonebook.
    HRASCONN connectPeer(const std::string& phoneBook);
    void addEntry(const std::string& phoneBook, const std::string& name);

    DWORD dial(const Wish& wish);

    bool isPeers(const std::string& entryName) const;
    // The handles that the service gave the library and that are still connected.
    std::size_t openDials() const;
    // How many active connections carry an entry of the peer.
    std::size_t peersConnections() const;
    bool strangersUntouched() const;
    bool strangersEntriesUntouched();
    const ScriptedRas::Entry* peersEntry(const std::string& phoneBook) const;
    // The peers that have a folder.
    Lines validPeers() const;
    // Whether the host's connections are to outlive a log-off.
    bool keepsConnections() const;
    bool everBound() const { return bound; }
    bool isEnabled(const std::string& service) const;

    // As of any test; of the router and the network list too.
    void settle();
    // Whether the situation scripts nothing that stands in a call's way; ends what does.
    bool isCalm() const;
    void calm();

  private:
    std::set<HRASCONN> strangers;
    bool bound = false;
};
