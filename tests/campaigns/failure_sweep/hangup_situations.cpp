#include "situations.h"

#include <algorithm>

namespace {

constexpr DWORD strangersAddress = 0xAC100001; // 172.16.0.1

bool canListConnections(const Disturbance& disturbance) {
    return !disturbance.hitsAny({"HeapAlloc", "RasEnumConnectionsA"});
}

// The service may say of a connection that it is up that it does not know it.
bool isBelievedGone(const Disturbance& disturbance) {
    return disturbance.hits("RasHangUpA") && disturbance.hits("RasGetConnectStatusA", ERROR_INVALID_HANDLE);
}

bool isTold(World& world) {
    return world.told() == Lines{world.peer};
}

Operation dialDown(bool connected, const std::string& phoneBook = {}) {
    return {.name = "dialDown",
            .act = [](World& world) { world.outcome.yes = VARNEL::dialDown(world.peer); },
            .promises =
                [=](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    const World::Outcome& outcome = world.outcome;
                    if (disturbance.none())
                        breaches.expect(outcome.yes == connected, "true when a connection was hung up");
                    if (outcome.threw)
                        return;
                    if (outcome.yes)
                        breaches.expect(connected &&
                                            (world.peersConnections() == 0 || isBelievedGone(disturbance)),
                                        "true: hung up");
                    else if (connected)
                        breaches.expect(!canListConnections(disturbance) || disturbance.hits("RasHangUpA"),
                                        "false: it could not be found or hung up");
                    breaches.expect(isTold(world), "the host is told once");
                    if (connected && canListConnections(disturbance) &&
                        !disturbance.hits("RasDeleteEntryA") && !privates::isWin6Plus)
                        breaches.expect(world.peersEntry(phoneBook) == nullptr, "the entry is removed");
                    if (!disturbance.hits("DeleteFileA") && !privates::isWin6Plus)
                        breaches.expect(!world.ras.phoneBooks.contains(world.book()),
                                        "the peer's phonebook is removed");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.peersConnections() == 0, "the next hang-up hangs up");
                }};
}

Operation hangUpByHandle() {
    return {.name = "dialDown by handle",
            .act =
                [](World& world) {
                    world.outcome.yes = privates::hangUp(world.ras.connections.back().handle, world.peer);
                },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    const bool hungUp = world.ras.connections.back().hungUp;
                    if (world.outcome.threw || world.outcome.yes)
                        breaches.expect(hungUp || disturbance.hits("RasHangUpA"), "it is hung up");
                    if (disturbance.none())
                        breaches.expect(world.outcome.yes, "true when it was hung up");
                    breaches.expect(world.outcome.threw || isTold(world), "the host is told once");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.ras.connections.back().hungUp, "the next hang-up hangs up");
                }};
}

// Of all connections, or of those in the strangers' range; the peer's is in another one.
Operation hangUpMany(const std::string& name, const std::function<bool()>& hangUp, bool takesPeers) {
    return {.name = name,
            .act = [hangUp](World& world) { world.outcome.yes = hangUp(); },
            .promises =
                [takesPeers](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    if (!takesPeers)
                        breaches.expect(world.peersConnections() == 1, "the peer's connection stays up");
                    if (disturbance.none())
                        breaches.expect(world.outcome.yes && !world.strangersUntouched(), "they are hung up");
                    if (!world.outcome.threw && !world.outcome.yes)
                        breaches.expect(disturbance.hits("RasHangUpA"), "false: a hang-up failed");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.yes && !world.strangersUntouched(),
                                    "the next one hangs up");
                },
            .sparesStrangers = false};
}

Operation nameOfConnection(bool connected) {
    const auto expected = [connected](const World& world) {
        return connected ? world.entry() : std::string();
    };
    return {.name = "getCurrentEntryNameById",
            .act = [](World& world) { world.outcome.text = VARNEL::getCurrentEntryNameById(world.peer); },
            .promises =
                [expected](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    const std::string& name = world.outcome.text;
                    breaches.expect(name == expected(world) || (!disturbance.none() && name.empty()),
                                    "the entry that is connected, or none");
                },
            .works =
                [expected](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.text == expected(world), "the next query finds it");
                }};
}

Operation status() {
    return {
        .name = "getEntryStatus",
        .act = [](World& world) { world.outcome.yes = privates::getEntryStatus(world.peer); },
        .promises =
            [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                breaches.expect(world.outcome.yes || !disturbance.none(), "the peer is connected");
            },
        .works = [](World& world,
                    Breaches& breaches) { breaches.expect(world.outcome.yes, "the next query finds it"); }};
}

Operation cleanUp() {
    return {.name = "clean",
            .act = [](World&) { VARNEL::clean(); },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    breaches.expect(world.told().empty() && privates::pptpsrvDialDownCallback == nullptr,
                                    "the host is told nothing more");
                    if (world.outcome.threw || disturbance.hitsAny({"FindFirstFileA", "FindNextFileA"}))
                        return;
                    if (!disturbance.hits("RasHangUpA") && canListConnections(disturbance))
                        breaches.expect(world.peersConnections() == 0, "the peer is hung up");
                    if (!disturbance.hitsAny({"HeapAlloc", "RasEnumEntriesA", "RasDeleteEntryA"}))
                        breaches.expect(world.peersEntry(world.publicBook) == nullptr &&
                                            world.peersEntry("") == nullptr,
                                        "the peer's entries are removed");
                    if (!disturbance.hits("DeleteFileA"))
                        breaches.expect(!world.ras.phoneBooks.contains(world.book()),
                                        "the peer's phonebook is removed");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.peersConnections() == 0, "the next one hangs the peer up");
                    breaches.expect(world.peersEntry(world.publicBook) == nullptr &&
                                        !world.ras.phoneBooks.contains(world.book()),
                                    "the next one removes the peer's entries");
                }};
}

// The peer's connection is the one behind `strangers`.
std::function<void(World&)> connected(bool win6, int strangers, bool publicly) {
    return [=](World& world) {
        world.setWin6(win6);
        world.addStrangers(strangers);
        world.connectPeer(publicly ? world.publicBook : world.book());
    };
}

std::function<void(World&)> connectedAmongFive(bool win6) {
    return [=](World& world) {
        connected(win6, 2, true)(world);
        world.addStrangers(2);
    };
}

void staleEntries(World& world) {
    connected(false, 1, true)(world);
    world.addEntry(world.book(), world.entry(1));
    world.addEntry("", world.entry(2));
    world.files.peerFolders = {"no peer.", world.peer};
}

} // namespace

Situations hangUpSituations() {
    const auto alone = [](World& world) { world.setWin6(false); };
    const auto all = [] { return privates::dialDownAllPptp(); };
    const auto sameRange = [] { return privates::dialDownSameIp(strangersAddress); };
    return {
        {dialDown(true), "Windows XP, private phonebook", connected(false, 0, false)},
        {dialDown(true, World::publicBook), "Windows XP, one of five", connectedAmongFive(false)},
        {dialDown(true), "Windows 7, behind two others", connected(true, 2, false)},
        {dialDown(false), "Windows XP, no connection", alone},
        {hangUpByHandle(), "Windows XP", connected(false, 1, true)},
        {hangUpMany("dialDownAllPptp", all, true), "two others and the peer", connected(false, 2, true)},
        {hangUpMany("dialDownSameIp", sameRange, false), "two others and the peer",
         connected(false, 2, true)},
        {nameOfConnection(false), "no connection", alone},
        {nameOfConnection(true), "one of five", connectedAmongFive(true)},
        {status(), "one of five", connectedAmongFive(false)},
        {cleanUp(), "Windows XP, entries everywhere", staleEntries},
        {cleanUp(), "Windows 7, no peers", [](World& world) { world.setWin6(true); }},
    };
}
