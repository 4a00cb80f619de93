#include "sweep_world.h"

#include "tests/kit/complaints.h"

#include <algorithm>

namespace {

// Where the password stood on the stack of the last dial.
const volatile char* passwordField;

bool isStrangers(const std::string& entryName) {
    return entryName.starts_with("stranger");
}

// Read before anything overwrites the stack of the call that has just returned.
[[gnu::noinline]] bool passwordStands(const char* password, std::size_t length) {
    if (passwordField == nullptr)
        return false;
    std::size_t equal = 0;
    while (equal < length && passwordField[equal] == password[equal])
        ++equal;
    return equal == length;
}

} // namespace

World::World() {
    clock.useOneThread();
    network_list::install();
    scripted_router::router = {};
    privates::s1723 = INVALID_SOCKET;
    privates::getPathName();
    addEntry(publicBook, "stranger #0");
    addEntry("", "stranger by default");
    on<"GetProcAddress">([](HMODULE, LPCSTR name) { return scripted_router::find(name); });
    on<"EnableService">([this](const char* name, unsigned long) {
        const auto found = computer.services.find(name);
        if (found == computer.services.end() || !found->second.canBeEnabled)
            return false;
        found->second.enabled = true;
        return true;
    });
    on<"bind">([this, taken = current<"bind">()](SOCKET s, const sockaddr* address, int size) {
        if (s == INVALID_SOCKET) {
            SetLastError(WSAENOTSOCK);
            return SOCKET_ERROR;
        }
        const int result = taken(s, address, size);
        bound = bound || result == 0;
        return result;
    });
    before<"RasDialA">([](LPRASDIALEXTENSIONS, LPCSTR, LPRASDIALPARAMSA params, const auto&...) {
        passwordField = params->szPassword;
    });
}

void World::settle() {
    VarnelTest::settle();
    if (std::exchange(scripted_router::router.connections, 0) != 0)
        complain("a connection to the router never closed");
    if (network_list::script.objects != 0 || network_list::script.texts != 0)
        complain("an object or a text of the network list never released");
    network_list::script.objects = 0;
    network_list::script.texts = 0;
}

void World::setWin6(bool win6) {
    computer.win6 = win6;
    computer.winXP = !win6;
    privates::isWin6Plus = win6;
}

void World::addStrangers(int count) {
    for (int i = 1; i <= count; ++i)
        strangers.insert(ras.connect("stranger #" + std::to_string(i), publicBook, "172.16.0.1"));
}

HRASCONN World::connectPeer(const std::string& phoneBook) {
    addEntry(phoneBook, entry());
    return ras.connect(entry(), phoneBook);
}

void World::addEntry(const std::string& phoneBook, const std::string& name) {
    ras.phoneBooks[phoneBook].push_back({.name = name, .userName = "stranger"});
}

DWORD World::dial(const Wish& wish) {
    struct Look {
        const std::string& password;
        bool& left;
        ~Look() { left = passwordStands(password.data(), password.size()); }
    } const look{wish.password, outcome.passwordLeft};
    passwordField = nullptr;
    return VARNEL::dialUp(peer, wish.password, wish.publicBook, wish.encryption, wish.ip);
}

std::size_t World::openDials() const {
    return static_cast<std::size_t>(
        std::count_if(ras.connections.begin(), ras.connections.end(),
                      [](const auto& connection) { return connection.dialled && !connection.hungUp; }));
}

bool World::isPeers(const std::string& entryName) const {
    return entryName.starts_with(entry().substr(0, entry().find('#')));
}

std::size_t World::peersConnections() const {
    return static_cast<std::size_t>(
        std::count_if(ras.connections.begin(), ras.connections.end(), [this](const auto& connection) {
            return connection.listed && isPeers(connection.entryName);
        }));
}

bool World::strangersUntouched() const {
    return std::none_of(ras.connections.begin(), ras.connections.end(), [this](const auto& connection) {
        return strangers.contains(connection.handle) && connection.hungUp;
    });
}

bool World::strangersEntriesUntouched() {
    for (const char* const place : {publicBook, ""})
        if (std::count_if(ras.phoneBooks[place].begin(), ras.phoneBooks[place].end(), [](const auto& entry) {
                return isStrangers(entry.name) && entry.userName == "stranger";
            }) != 1)
            return false;
    return true;
}

const ScriptedRas::Entry* World::peersEntry(const std::string& phoneBook) const {
    const auto found = ras.phoneBooks.find(phoneBook);
    if (found == ras.phoneBooks.end())
        return nullptr;
    const auto entry = std::find_if(found->second.begin(), found->second.end(),
                                    [this](const auto& e) { return isPeers(e.name); });
    return entry == found->second.end() ? nullptr : &*entry;
}

Lines World::validPeers() const {
    Lines peers = files.peerFolders;
    std::erase_if(peers, [](const std::string& name) { return name.ends_with('.'); });
    return peers;
}

bool World::keepsConnections() const {
    const ScriptedRegistry::Key& values = computer.registry.keys.at(ScriptedComputer::winLogon);
    const auto found = values.find("KeepRasConnections");
    return found != values.end() && found->second.data.starts_with(std::string("1", sizeof "1"));
}

bool World::isEnabled(const std::string& service) const {
    const auto found = computer.services.find(service);
    return found != computer.services.end() && found->second.enabled;
}

bool World::isCalm() const {
    return ras.dials.empty() && ras.codes.empty() && computer.portTakenFor == 0 && computer.stopError == 0 &&
           computer.states == decltype(computer.states){SERVICE_STOPPED} &&
           std::ranges::all_of(computer.services, [](const auto& service) {
               return service.second.canBeEnabled && service.second.refusesToStop == 0;
           });
}

void World::calm() {
    ras.dials.clear();
    ras.codes.clear();
    std::erase_if(ras.connections, [](const auto& connection) {
        return connection.dialled || !connection.dial.notifications.empty();
    });
    computer.portTakenFor = 0;
    computer.stopError = 0;
    computer.states = {SERVICE_STOPPED};
    for (auto& [name, service] : computer.services) {
        service.canBeEnabled = true;
        service.refusesToStop = 0;
    }
    outcome = {};
    bound = false;
    forgetLog();
}
