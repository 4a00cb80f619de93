#include "situations.h"

#include <algorithm>

#include <netlistmgr.h>

namespace {

constexpr DWORD wantedMax = 32;
constexpr DWORD wantedPorts = 10;

DWORD storedNumber(World& world, const char* name) {
    const auto& value =
        world.computer.registry.keys.at(std::string(ScriptedComputer::adapterClass) + "\\0001").at(name);
    DWORD number = 0;
    std::memcpy(&number, value.data.data(), sizeof number);
    return number;
}

bool storedPortsAre(World& world, DWORD max, DWORD wan) {
    return storedNumber(world, "MaxWanEndpoints") == max && storedNumber(world, "WanEndpoints") == wan;
}

Operation setStoredPorts() {
    return {.name = "setPptpPorts",
            .act =
                [](World& world) {
                    world.outcome.yes = privates::setPptpPorts(false, wantedMax, wantedPorts, 5);
                },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    if (disturbance.none())
                        breaches.expect(world.outcome.yes, "the ports are set");
                    if (world.outcome.yes)
                        breaches.expect(storedPortsAre(world, wantedMax, wantedPorts),
                                        "true: they are stored");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.yes && storedPortsAre(world, wantedMax, wantedPorts),
                                    "the next one sets them");
                }};
}

Operation readPorts() {
    return {.name = "getCurrentPptpPorts",
            .act =
                [](World& world) {
                    std::vector<DWORD> numbers(3);
                    world.outcome.yes = privates::getCurrentPptpPorts(&numbers[0], &numbers[1], &numbers[2]);
                    world.outcome.numbers = numbers;
                },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    if (disturbance.none() || world.outcome.yes)
                        breaches.expect(world.outcome.numbers == std::vector<DWORD>{32, 10, 5}, "as stored");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.numbers == std::vector<DWORD>{32, 10, 5},
                                    "the next one reads them");
                }};
}

// Through the router when `router`, else in the registry. True even when only the router's functions were
// there.
Operation settlePorts(bool router) {
    const auto settled = [router](World& world) {
        return router ? scripted_router::router.ports.dwNumPptpPorts == 3
                      : storedPortsAre(world, wantedMax, wantedPorts);
    };
    return {.name = "chgWanEndPoints",
            .act = [](World& world) { world.outcome.yes = privates::chgWanEndPoints(); },
            .promises =
                [=](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    if (disturbance.none())
                        breaches.expect(world.outcome.yes && settled(world), "the ports are set");
                    if (!router)
                        breaches.expect(scripted_router::router.calls.empty(), "the router is left alone");
                },
            .works =
                [=](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.yes && settled(world), "the next one sets them");
                }};
}

Operation keepConnections() {
    return {.name = "addKeepRasConnections",
            .act = [](World&) { privates::addKeepRasConnections(); },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    breaches.expect(world.keepsConnections() || world.outcome.threw ||
                                        !world.log(2).empty() || disturbance.hits("RegQueryValueExA"),
                                    "connections are kept, or the log tells why not");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.keepsConnections(), "the next one keeps them");
                }};
}

constexpr char wantedNetwork[] = "net";

std::size_t publicNetworks() {
    const auto& nets = network_list::script.nets;
    return static_cast<std::size_t>(std::count_if(nets.begin(), nets.end(), [](const auto& net) {
        return net.category == NLM_NETWORK_CATEGORY_PUBLIC;
    }));
}

Operation makePrivate() {
    return {.name = "setLocation",
            .act = [](World& world) { world.outcome.yes = privates::setLocation(wantedNetwork); },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    breaches.expect(network_list::script.nets[1].category == NLM_NETWORK_CATEGORY_PUBLIC,
                                    "another network stays public");
                    if (disturbance.none())
                        breaches.expect(world.outcome.yes && publicNetworks() == 1,
                                        "the networks are private");
                    breaches.expect(network_list::script.nets[2].category == NLM_NETWORK_CATEGORY_PRIVATE,
                                    "a private network stays private");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.yes && publicNetworks() == 1,
                                    "the next one makes them private");
                }};
}

std::function<void(World&)> fewPorts(bool win6, bool routerRuns) {
    return [=](World& world) {
        world.setWin6(win6);
        world.computer.setMiniport("0001", "ms_pptpminiport", 1, 1);
        scripted_router::router.running = routerRuns;
    };
}

void networks(World& world) {
    world.setWin6(true);
    network_list::script.nets = {{L"A Net"}, {L"other"}, {L"net", NLM_NETWORK_CATEGORY_PRIVATE}, {L"Net 2"}};
}

} // namespace

Situations networkSituations() {
    return {
        {setStoredPorts(), "few ports", fewPorts(false, false)},
        {readPorts(), "both miniports", [](World&) {}},
        {settlePorts(false), "Windows XP", fewPorts(false, false)},
        {settlePorts(true), "Windows 7, router running", fewPorts(true, true)},
        {settlePorts(true), "Windows 7, router not running", fewPorts(true, false)},
        {keepConnections(), "value there, and 0",
         [](World& world) {
             world.computer.registry.keys[ScriptedComputer::winLogon]["KeepRasConnections"] =
                 ScriptedRegistry::text("0");
         }},
        {makePrivate(), "Windows 7, four networks", networks},
        {settlePorts(false), "Windows XP, wanted counts there", [](World&) {}},
    };
}
