#include "situations.h"

#include <algorithm>

#include <raserror.h>

namespace {

constexpr DWORD address = 0x0A000001;

// Without them a dial comes to the same.
const std::set<std::string_view> dispensable = {
    "OpenMutexA",         "RasGetEntryDialParamsA", "RasGetProjectionInfoA",
    "RasGetErrorStringA", "RasDeleteEntryA",        "DeleteFileA"};

bool isWritten(const ScriptedRas::Entry* entry, const World& world) {
    return entry != nullptr && entry->userName == world.peer && entry->passwordRemoved &&
           std::string(entry->properties.szLocalPhoneNumber) == "10.0.0.1" &&
           entry->properties.dwVpnStrategy == VS_PptpOnly;
}

// A connection of which the service gave no handle counts when there is no other.
bool isConnectedOnce(const World& world) {
    return world.openDials() == 1 || (world.openDials() == 0 && world.peersConnections() != 0);
}

// A first connection whose status could not be read is left to the hang-up by id, which looks at the first
// three that the service lists.
bool isFirstOutOfSight(const World& world, const Disturbance& disturbance) {
    const auto& connections = world.ras.connections;
    const bool unreadable = disturbance.hits("RasGetConnectStatusA") ||
                            std::any_of(connections.begin(), connections.end(), [](const auto& connection) {
                                return connection.dialled && connection.dial.statusCode != 0;
                            });
    const bool unlisted = disturbance.hitsAny({"HeapAlloc", "RasEnumConnectionsA"}) ||
                          std::any_of(connections.begin(), connections.end(), [](const auto& connection) {
                              return connection.dialled && !connection.listed;
                          });
    return unreadable && (connections.size() > 3 || unlisted);
}

bool onlyPeerTold(World& world) {
    const Lines told = world.told();
    return std::all_of(told.begin(), told.end(),
                       [&world](const std::string& id) { return id == world.peer; });
}

// `scripted` has the codes that the situation's dials come to.
bool isExplained(DWORD code, const std::set<DWORD>& scripted, const Disturbance& disturbance) {
    if (code == ERROR_INVALID_PARAMETER || code == ERROR_DIAL_ALREADY_IN_PROGRESS ||
        scripted.contains(code) || (code == ERROR_INVALID_HANDLE && disturbance.hits("CreateEventA")) ||
        code == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY)
        return true;
    return std::any_of(disturbance.all().begin(), disturbance.all().end(),
                       [code](const Fault& fault) { return fault.code == code; });
}

// `expected` is what the situation's dial comes to.
Operation dialUp(const Wish& wish, DWORD expected = 0) {
    const auto bookOf = [wish](const World& world) {
        return wish.publicBook ? privates::publicPhoneBook : world.book();
    };
    return {.name = "dialUp",
            .act = [wish](World& world) { world.outcome.code = world.dial(wish); },
            .promises =
                [=](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    const World::Outcome& outcome = world.outcome;
                    const bool connected = !outcome.threw && outcome.code == 0;
                    const bool staysUp =
                        disturbance.hits("RasHangUpA") || isFirstOutOfSight(world, disturbance);
                    if (disturbance.hitsOnly(dispensable))
                        breaches.expect(outcome.code == expected, "the dial's own result");
                    if (connected) {
                        breaches.expect(isConnectedOnce(world) || staysUp, "0: one connection is up");
                        breaches.expect(isWritten(world.peersEntry(bookOf(world)), world),
                                        "0: the entry is written");
                    } else {
                        breaches.expect(world.openDials() == 0 || staysUp, "no connection is left behind");
                        breaches.expect(outcome.threw ||
                                            isExplained(outcome.code, world.scriptedCodes, disturbance),
                                        "the result " + std::to_string(outcome.code) + " tells what failed");
                    }
                    breaches.expect(!outcome.passwordLeft, "the password is wiped");
                    breaches.expect(onlyPeerTold(world), "the host is told of this peer alone");
                },
            .works =
                [=](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.code == 0 && world.openDials() == 1 &&
                                        world.peersConnections() != 0,
                                    "the next dial connects");
                    breaches.expect(isWritten(world.peersEntry(bookOf(world)), world),
                                    "the next dial writes the entry");
                }};
}

const Wish privately{.ip = address};
const Wish publicly{.publicBook = true, .ip = address};
const Wish encrypted{.encryption = true, .ip = address};

using Dials = std::deque<ScriptedRas::Dial>;

std::function<void(World&)> with(bool win6, const Dials& dials) {
    return [=](World& world) {
        world.setWin6(win6);
        world.ras.dials = dials;
        for (const ScriptedRas::Dial& dial : dials)
            world.scriptedCodes.insert({dial.code, dial.statusError,
                                        dial.notifications.empty() ? 0 : dial.notifications.back().error});
    };
}

Situations usual() {
    return {
        {dialUp(privately), "Windows XP", with(false, {connects()})},
        {dialUp(publicly), "Windows XP, phonebook of all users", with(false, {connects()})},
        {dialUp(encrypted), "Windows 7, entry and five other connections there",
         [](World& world) {
             world.setWin6(true);
             world.addStrangers(5);
             world.addEntry(world.book(), world.entry());
         }},
        {dialUp(privately, ERROR_AUTHENTICATION_FAILURE), "Windows XP, wrong password",
         with(false, {fails(ERROR_AUTHENTICATION_FAILURE)})},
        {dialUp(privately, ERROR_PORT_NOT_AVAILABLE), "Windows 7, port refused twice",
         with(true, {refused(ERROR_PORT_NOT_AVAILABLE), refused(ERROR_PORT_NOT_AVAILABLE)})},
        {dialUp(publicly), "Windows XP, phonebook of all users, entry busy, then connects",
         with(false, {refused(ERROR_DIAL_ALREADY_IN_PROGRESS), connects()})},
        {dialUp(privately), "Windows XP, entry busy, then connects",
         with(false, {refused(ERROR_DIAL_ALREADY_IN_PROGRESS), connects()})},
        {dialUp(privately), "Windows 7, connects but reports an error, then connects",
         with(true, {connectsButReports(ERROR_DISCONNECTION), connects()})},
        {dialUp(publicly), "Windows XP, status cannot be read, then connects",
         with(false, {connectsUnreadably(ERROR_INVALID_PORT_HANDLE), connects()})},
        {dialUp(privately, ERROR_FROM_DEVICE),
         "Windows 7, entry busy, then the device fails, again and again",
         with(true, {refused(ERROR_DIAL_ALREADY_IN_PROGRESS), fails(ERROR_FROM_DEVICE),
                     refused(ERROR_DIAL_ALREADY_IN_PROGRESS), fails(ERROR_FROM_DEVICE)})},
        {dialUp(publicly), "Windows XP, entry busy, fresh name taken once",
         [](World& world) {
             world.setWin6(false);
             world.ras.dials = {refused(ERROR_DIAL_ALREADY_IN_PROGRESS), connects()};
             world.addEntry(world.publicBook, world.entry(0));
             world.addEntry(world.publicBook, world.entry(1));
         }},
    };
}

Situations unusual() {
    return {
        {dialUp(privately, ERROR_PORT_NOT_AVAILABLE), "Windows 7, port refused twice, with a handle",
         with(true,
              {refusedWithHandle(ERROR_PORT_NOT_AVAILABLE), refusedWithHandle(ERROR_PORT_NOT_AVAILABLE)})},
        {dialUp(publicly), "Windows XP, connected before the dial returns",
         with(false, {{.notifications = {{0, RASCS_OpenPort}, {0, RASCS_Connected}}}})},
        {dialUp(publicly), "Windows 7, no handle at first",
         with(true, {connectsWithoutHandle(), connects()})},
        {dialUp(privately), "Windows 7, the end is never reported", with(true, {neverEnds()})},
        {dialUp(privately), "Windows 7, status cannot be read behind five others",
         [](World& world) {
             with(true, {connectsUnreadably(ERROR_INVALID_PORT_HANDLE), connects()})(world);
             world.addStrangers(5);
         }},
        {dialUp(publicly, ERROR_AUTHENTICATION_FAILURE), "Windows XP, wrong password, slow hang-up",
         [](World& world) {
             with(false, {fails(ERROR_AUTHENTICATION_FAILURE)})(world);
             world.ras.lingers = 50;
         }},
        {dialUp(publicly), "Windows XP, phonebook of all users unknown",
         [](World& world) {
             with(false, {connects()})(world);
             privates::publicPhoneBook.clear();
         }},
        {dialUp(publicly), "Windows XP, connected already, and busy",
         [](World& world) {
             with(false, {refused(ERROR_DIAL_ALREADY_IN_PROGRESS), connects()})(world);
             world.connectPeer(world.publicBook);
         }},
    };
}

} // namespace

Situations dialingSituations() {
    Situations all = usual();
    for (Situation& situation : unusual())
        all.push_back(std::move(situation));
    return all;
}
