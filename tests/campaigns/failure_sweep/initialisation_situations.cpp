#include "situations.h"

#include <algorithm>

namespace {

constexpr DWORD wholeBind = 21;    // attempts of one call, 50 ms apart for 1000 ms
constexpr DWORD systemProcess = 4; // which holds the port for Windows' own server

const std::string kestrinsPath = "SYSTEM\\CurrentControlSet\\Services\\Kestrin";

// Without them init comes to the same, though not always to the same settings and files.
const std::set<std::string_view> dispensable = {"SHGetFolderPathA",
                                                "LoadLibraryA",
                                                "GetProcAddress",
                                                "MprAdminIsServiceRunning",
                                                "MprAdminServerConnect",
                                                "MprAdminServerSetInfo",
                                                "MprConfigServerConnect",
                                                "MprConfigServerSetInfo",
                                                "RegOpenKeyExA",
                                                "RegQueryInfoKeyA",
                                                "RegEnumKeyExA",
                                                "RegQueryValueExA",
                                                "RegSetValueExA",
                                                "FindFirstFileA",
                                                "FindNextFileA",
                                                "HeapAlloc",
                                                "OpenMutexA",
                                                "WaitForSingleObject",
                                                "RasEnumConnectionsA",
                                                "RasEnumEntriesA",
                                                "RasDeleteEntryA",
                                                "RasHangUpA",
                                                "RasGetConnectStatusA",
                                                "DeleteFileA",
                                                "FindResourceA",
                                                "CreateFileA",
                                                "WriteFile",
                                                "MoveFileExA",
                                                "ControlService",
                                                "QueryServiceStatus",
                                                "StopService",
                                                "DisableService",
                                                "GetPortOccupyProcessW",
                                                "setsockopt"};

bool logsSome(World& world, const std::string& text) {
    const Lines lines = world.log(2);
    return std::any_of(lines.begin(), lines.end(),
                       [&text](const std::string& line) { return line.find(text) != std::string::npos; });
}

// A service whose state could not be read counts as one that is not there.
void expectReady(World& world, const Ask& ask, const Disturbance& disturbance, Breaches& breaches) {
    for (const char* service : {"TapiSrv", "RasMan"})
        breaches.expect(world.isEnabled(service) || !world.computer.services.contains(service) ||
                            disturbance.hits("IsServiceEnabled"),
                        std::string("true: enabled is ") + service);
    if (!ask.onlyClient)
        breaches.expect(world.everBound(), "true: the port was proved free");
    if (ask.kestrin && !ask.onlyClient && !world.computer.is64 && world.computer.winXP)
        breaches.expect(world.isEnabled("Kestrin"), "true: enabled is Kestrin");
    if (ask.disableRemoteAccess)
        breaches.expect(!world.isEnabled("RemoteAccess") || disturbance.hits("DisableService"),
                        "true: disabled is RemoteAccess");
}

// Two failures have no message: that of the filter driver, and RemoteAccess not enabled again.
void expectMessage(World& world, Breaches& breaches) {
    breaches.expect(!world.outcome.message.empty() ||
                        logsSome(world, "tryinstallDriverAndLaunchOmbrel fail!!!") ||
                        logsSome(world, "Can't enable service RemoteAccess"),
                    "false: the user or the log is told why");
}

void expectDrivers(World& world, const Disturbance& disturbance, Breaches& breaches) {
    for (const std::string& file : {world.computer.kestrinFile(), world.computer.ombrelFile()}) {
        // Nobody asks whether an image was written to its end.
        if (!disturbance.hitsAny({"WriteFile", "LockResource", "SizeofResource"}))
            breaches.expect(!world.files.has(file) || world.files.isWhole(file),
                            "the driver's file is whole");
        if (!disturbance.hitsAny({"MoveFileExA", "DeleteFileA"}) && !world.outcome.threw)
            breaches.expect(!world.files.has(file + ".tmp"), "no staging copy is left");
    }
}

bool isNumber(World& world, const std::string& key, const char* value, DWORD number) {
    return world.computer.registry.keys.at(key)[value] == ScriptedRegistry::number(number);
}

// What an undisturbed init leaves in the registry and in the router.
void expectSettings(World& world, const Ask& ask, Breaches& breaches) {
    auto& keys = world.computer.registry.keys;
    if (world.computer.win6) {
        breaches.expect(scripted_router::router.ports.dwNumPptpPorts == 3, "the router has its ports");
        return;
    }
    const std::string miniport = std::string(ScriptedComputer::adapterClass) + "\\0001";
    breaches.expect(isNumber(world, miniport, "MaxWanEndpoints", 32) &&
                        isNumber(world, miniport, "WanEndpoints", 10),
                    "the miniport has its ports");
    breaches.expect(world.keepsConnections(), "connections are kept over a log-off");
    if (ask.kestrin && !world.computer.is64 && keys.contains(kestrinsPath))
        breaches.expect(isNumber(world, kestrinsPath, "Start", 0), "the redirect driver starts at boot");
}

void expectStaleEntriesGone(World& world, const Ask& ask, Breaches& breaches) {
    if (ask.onlyClient || world.files.peerFolders.empty() || world.computer.win6)
        return;
    breaches.expect(world.peersEntry(world.publicBook) == nullptr && world.peersEntry("") == nullptr &&
                        !world.ras.phoneBooks.contains(world.book()),
                    "the peers' entries are removed");
}

Operation init(const Ask& ask, bool expected = true) {
    return {.name = "init",
            .act =
                [ask](World& world) {
                    world.outcome.message = L"of an earlier call";
                    world.outcome.yes = VARNEL::init(privates::pptpsrvDialDownCallback, ask.kestrin,
                                                     ask.ombrel, ask.anyAddress, ask.onlyClient,
                                                     ask.disableRemoteAccess, world.outcome.message);
                },
            .promises =
                [=](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    const World::Outcome& outcome = world.outcome;
                    expectDrivers(world, disturbance, breaches);
                    if (disturbance.hitsOnly(dispensable))
                        breaches.expect(outcome.yes == expected, "init's own result");
                    if (!outcome.threw && !disturbance.hitsAny({"FindFirstFileA", "FindNextFileA"}))
                        breaches.expect(ask.onlyClient || world.told() == world.validPeers(),
                                        "the host is told of each known peer");
                    if (disturbance.hits("FindNextFileA", ERROR_NOT_ENOUGH_MEMORY))
                        breaches.expect(world.told().empty(), "a search that breaks off clears nothing");
                    if (disturbance.none()) {
                        expectStaleEntriesGone(world, ask, breaches);
                        expectSettings(world, ask, breaches);
                    }
                    if (outcome.threw)
                        return;
                    if (disturbance.hitsAny({"EnableService", "StopService", "RasEnumConnectionsA"}))
                        breaches.expect(!world.log(2).empty(), "the log tells of a failure");
                    if (outcome.yes) {
                        breaches.expect(outcome.message.empty(), "true: no message");
                        expectReady(world, ask, disturbance, breaches);
                    } else {
                        expectMessage(world, breaches);
                    }
                },
            .works =
                [=](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.yes && world.outcome.message.empty(),
                                    "the next init works");
                    expectReady(world, ask, {}, breaches);
                    expectDrivers(world, {}, breaches);
                    expectStaleEntriesGone(world, ask, breaches);
                    expectSettings(world, ask, breaches);
                }};
}

// Goes on after an exception, as a host does.
template<class STEP>
auto attempt(World& world, STEP step) -> decltype(step()) {
    try {
        return step();
    } catch (const std::bad_alloc&) {
        world.outcome.threw = true;
        return {};
    }
}

// From the host's start to its end.
Operation wholeLife() {
    return {
        .name = "init, dialUp, getCurrentEntryNameById, dialDown, clean",
        .act =
            [start = init({.kestrin = true})](World& world) {
                World::Outcome& outcome = world.outcome;
                privates::pptpsrvDialDownCallback = world.host;
                const bool ready = attempt(world, [&] { return start.act(world), outcome.yes; });
                const bool connected = attempt(world, [&] { return world.dial({}) == 0; });
                outcome.text = attempt(world, [&] { return VARNEL::getCurrentEntryNameById(world.peer); });
                const bool hungUp = attempt(world, [&] { return VARNEL::dialDown(world.peer); });
                attempt(world, [] { return VARNEL::clean(), true; });
                outcome.yes = ready && connected && world.isPeers(outcome.text) && hungUp;
            },
        .promises =
            [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                const World::Outcome& outcome = world.outcome;
                breaches.expect(outcome.text.empty() || world.isPeers(outcome.text), "no entry is invented");
                if (disturbance.none())
                    breaches.expect(outcome.yes, "all of it works");
                if (!outcome.threw &&
                    !disturbance.hitsAny({"HeapAlloc", "RasEnumConnectionsA", "RasHangUpA"}))
                    breaches.expect(world.openDials() == 0, "no connection is left in the end");
                breaches.expect(!outcome.passwordLeft, "the password is wiped");
                breaches.expect(privates::pptpsrvDialDownCallback == nullptr,
                                "the host is told nothing more");
            },
        .works =
            [](World& world, Breaches& breaches) {
                breaches.expect(world.outcome.yes && world.openDials() == 0, "the next life works");
            }};
}

Operation initThatHangsAllUp() {
    Operation operation = init({});
    operation.sparesStrangers = false;
    return operation;
}

void haveKestrin(World& world, const char* installed, bool service, bool enabled) {
    if (installed != nullptr)
        world.files.contents[world.computer.kestrinFile()] = installed;
    if (!service)
        return;
    world.computer.services["Kestrin"].enabled = enabled;
    world.computer.registry.keys[kestrinsPath] = {
        {"ImagePath", ScriptedRegistry::text("system32\\drivers\\other.sys")},
        {"Start", ScriptedRegistry::number(4)}};
}

void haveStalePeer(World& world) {
    world.addStrangers(1);
    world.connectPeer(world.publicBook);
    world.addEntry(world.book(), world.entry(1));
    world.addEntry("", world.entry(2));
    world.files.peerFolders = {"no peer.", world.peer, "Other"};
}

void haveServicesDisabled(World& world) {
    world.computer.services["TapiSrv"].enabled = false;
    world.computer.services["RasMan"].enabled = false;
}

std::function<void(World&)> portHeld(DWORD by, DWORD attempts) {
    return [=](World& world) {
        world.computer.portTakenFor = attempts;
        world.computer.portHolder = by;
        world.computer.portHolderName = L"holder.exe";
        world.addStrangers(3);
    };
}

std::function<void(World&)> windows7(bool is64, bool routerRuns) {
    return [=](World& world) {
        world.setWin6(true);
        world.computer.is64 = is64;
        world.computer.setMiniport("0001", "ms_pptpminiport", 1, 1);
        scripted_router::router.running = routerRuns;
    };
}

const std::vector<std::string> kestrinsKey = {"RegOpenKeyExA"};

Situations plain() {
    return {
        {init({}), "Windows XP, a server", [](World&) {}},
        {init({}), "Windows XP, an earlier run's entries", &haveStalePeer},
        {init({}), "Windows XP, services disabled", &haveServicesDisabled},
        {init({}, false), "Windows XP, TapiSrv cannot be enabled",
         [](World& world) {
             world.computer.services["TapiSrv"] = {.enabled = false, .canBeEnabled = false};
         }},
        {init({.onlyClient = true}), "Windows XP, only dials", &haveServicesDisabled},
        {init({.ombrel = true, .onlyClient = true}), "Windows XP, only dials, filter driver", [](World&) {}},
        {init({.anyAddress = true, .disableRemoteAccess = true}), "Windows XP, RemoteAccess disabled",
         [](World&) {}},
        {init({}), "Windows XP, RemoteAccess slow to stop",
         [](World& world) { world.computer.services["RemoteAccess"].refusesToStop = 2; }},
        {initThatHangsAllUp(), "Windows XP, port held by the system", portHeld(systemProcess, wholeBind)},
        {init({}, false), "Windows XP, port held by a program", portHeld(1234, 2 * wholeBind)},
        {init({}, false), "Windows 7, Chinese, port held by nobody known",
         [](World& world) {
             windows7(false, true)(world);
             portHeld(0, 2 * wholeBind)(world);
             world.computer.chinese = true;
         }},
        {init({}), "Windows XP, few ports and no lasting connections",
         [](World& world) {
             world.computer.setMiniport("0001", "ms_pptpminiport", 1, 1);
             world.computer.registry.keys[ScriptedComputer::winLogon].clear();
         }},
        {init({.kestrin = true, .ombrel = true}), "Windows 7, 64 bits, router running", windows7(true, true)},
        {init({}), "Windows 7, 32 bits, router not running", windows7(false, false)},
    };
}

Situations withDriver() {
    const Ask ask{.kestrin = true};
    const auto have = [](const char* installed, bool service, bool enabled) {
        return [=](World& world) { haveKestrin(world, installed, service, enabled); };
    };
    return {
        {init({.kestrin = true, .ombrel = true}), "Windows XP, no drivers yet", have(nullptr, false, false),
         kestrinsKey},
        {init(ask), "Windows XP, older redirect driver", have(ScriptedFiles::older, true, true), kestrinsKey},
        {init(ask), "Windows XP, redirect driver runs", have(ScriptedFiles::same, true, true), kestrinsKey},
        {init(ask), "Windows XP, redirect driver disabled", have(ScriptedFiles::newer, true, false),
         kestrinsKey},
        {init(ask), "Windows XP, redirect driver without its service",
         have(ScriptedFiles::same, false, false), kestrinsKey},
        {init(ask, false), "Windows XP, redirect driver cannot be enabled",
         [](World& world) {
             haveKestrin(world, ScriptedFiles::same, true, false);
             world.computer.services["Kestrin"].canBeEnabled = false;
         },
         kestrinsKey},
        {init(ask), "Windows Server 2003, redirect driver cannot be enabled",
         [](World& world) {
             haveKestrin(world, ScriptedFiles::same, true, false);
             world.computer.services["Kestrin"].canBeEnabled = false;
             world.computer.winXP = false;
         },
         kestrinsKey},
        {init({.ombrel = true}), "Windows XP, 64 bits, older filter driver disabled",
         [](World& world) {
             world.computer.is64 = true;
             world.files.contents[world.computer.ombrelFile()] = ScriptedFiles::older;
             world.computer.services["Ombrel"].enabled = false;
         }},
        {wholeLife(), "Windows XP", have(ScriptedFiles::older, true, true), kestrinsKey},
    };
}

} // namespace

Situations initialisationSituations() {
    Situations all = plain();
    for (Situation& situation : withDriver())
        all.push_back(std::move(situation));
    return all;
}
