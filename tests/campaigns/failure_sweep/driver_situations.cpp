#include "situations.h"

namespace {

constexpr char service[] = "Kestrin";
constexpr char image[] = "#106";

bool hasService(const World& world) {
    return world.computer.services.contains(service);
}

Operation remove(bool stops) {
    return {.name = "removeDriver",
            .act = [](World& world) { world.outcome.yes = privates::removeDriver(service); },
            .promises =
                [stops](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    if (disturbance.none())
                        breaches.expect(world.outcome.yes == stops, "true when it could be removed");
                    if (world.outcome.yes && !disturbance.hits("OpenServiceA", ERROR_SERVICE_DOES_NOT_EXIST))
                        breaches.expect(!hasService(world), "true: the service is gone");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.yes && !hasService(world), "the next one removes it");
                }};
}

Operation install() {
    return {.name = "installDriver",
            .act =
                [](World& world) {
                    world.outcome.yes = privates::installDriver(service, world.computer.kestrinFile().c_str(),
                                                                SERVICE_BOOT_START);
                },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    if (disturbance.none() || world.outcome.yes)
                        breaches.expect(world.outcome.yes && hasService(world), "the service is there");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(hasService(world), "it is there after the next one");
                }};
}

Operation copyImage() {
    return {.name = "copyDriverFromResource",
            .act =
                [](World& world) {
                    world.outcome.yes = privates::copyDriverFromResource(image, world.computer.kestrinFile());
                },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    const std::string file = world.computer.kestrinFile();
                    if (world.outcome.yes)
                        breaches.expect(world.files.has(file), "true: the file is there");
                    // Nobody asks whether an image was written to its end.
                    if (world.outcome.yes &&
                        !disturbance.hitsAny({"WriteFile", "LockResource", "SizeofResource"}))
                        breaches.expect(world.files.isWhole(file), "true: the file is whole");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.yes && world.files.isWhole(world.computer.kestrinFile()),
                                    "the next one writes it");
                }};
}

Operation uninstallRedirect() {
    return {.name = "uninstallDriverAndDeleteKestrin",
            .act = [](World&) { privates::uninstallDriverAndDeleteKestrin(); },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    if (disturbance.none())
                        breaches.expect(!hasService(world) && !world.files.has(world.computer.kestrinFile()),
                                        "service and file are gone");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(!hasService(world) && !world.files.has(world.computer.kestrinFile()),
                                    "the next one removes both");
                }};
}

Operation uninstallFilter() {
    return {.name = "uninstallDriverAndDeleteSOmbrel",
            .act = [](World&) { privates::uninstallDriverAndDeleteSOmbrel(); },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    breaches.expect(!world.files.has(world.computer.ombrelFile()) ||
                                        disturbance.hits("DeleteFileA"),
                                    "the file is gone");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(!world.files.has(world.computer.ombrelFile()), "the next one removes it");
                }};
}

Operation portTest() {
    return {.name = "bind1723 and close1723",
            .act =
                [](World& world) {
                    struct Close {
                        ~Close() { privates::close1723(); }
                    } const close;
                    world.outcome.yes = privates::bind1723(1'000, false);
                },
            .promises =
                [](World& world, const Disturbance& disturbance, Breaches& breaches) {
                    breaches.expect(world.outcome.yes == world.everBound() || world.outcome.threw,
                                    "true when the port was free");
                    if (disturbance.none())
                        breaches.expect(world.outcome.yes, "the port is free in the end");
                },
            .works =
                [](World& world, Breaches& breaches) {
                    breaches.expect(world.outcome.yes, "the next one finds it free");
                }};
}

void installed(World& world) {
    world.files.contents[world.computer.kestrinFile()] = ScriptedFiles::same;
    world.files.contents[world.computer.ombrelFile()] = ScriptedFiles::same;
    world.computer.services[service];
}

} // namespace

Situations driverSituations() {
    return {
        {remove(true), "running, slow to stop",
         [](World& world) {
             installed(world);
             world.computer.states = {SERVICE_STOP_PENDING, SERVICE_STOP_PENDING, SERVICE_STOPPED};
         }},
        {remove(false), "does not stop",
         [](World& world) {
             installed(world);
             world.computer.states = {SERVICE_STOP_PENDING};
         }},
        {install(), "not there yet", [](World&) {}},
        {copyImage(), "over an older one",
         [](World& world) { world.files.contents[world.computer.kestrinFile()] = ScriptedFiles::older; }},
        {uninstallRedirect(), "running", installed},
        {uninstallFilter(), "there", installed},
        {portTest(), "port taken for a while", [](World& world) { world.computer.portTakenFor = 3; }},
    };
}
