// Reading peers.ini. What is wrong in it is thrown as std::invalid_argument, in words for its writer.
#include "standin/ras/dial_course.h"
#include "standin/ras/peers.h"
#include "standin/ras/section_file.h"
#include "standin/ras/state_folder.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include <raserror.h>

#include <sstream>
#include <stdexcept>
#include <string_view>

namespace standin {
namespace {

using Ending = Behaviour::Ending;

constexpr unsigned largestTime = 24 * 3600 * 1000; // ms
constexpr unsigned largestCode = 99999;
constexpr unsigned largestCount = 1'000'000;
constexpr unsigned largestPortCount = 1000;

[[noreturn]] void complain(const std::string& what) {
    throw std::invalid_argument(what);
}

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

std::string trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
}

bool isNumber(const std::string& text, unsigned smallest, unsigned largest, unsigned long& number) {
    const char* const behind = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), behind, number);
    return error == std::errc() && end == behind && number >= smallest && number <= largest;
}

unsigned numberOf(const std::string& text, unsigned smallest, unsigned largest) {
    unsigned long number = 0;
    if (!isNumber(text, smallest, largest, number))
        complain(quoted(text) + " is not a number from " + std::to_string(smallest) + " to " +
                 std::to_string(largest));
    return number;
}

bool truthOf(const std::string& text) {
    if (text != "yes" && text != "no")
        complain(quoted(text) + " is neither yes nor no");
    return text == "yes";
}

Account accountOf(const std::string& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos)
        complain("an account is USER:PASSWORD");
    return {text.substr(0, colon), text.substr(colon + 1)};
}

std::string addressOf(const std::string& text) {
    if (text.size() > RAS_MaxIpAddress)
        complain(quoted(text) + " is too long for an address");
    return text == "none" ? std::string() : text;
}

// The forms that a behaviour may have. Words in capitals stand for what the person writes.
struct Form {
    const char* words;
    Behaviour behaviour;
};

const Form forms[] = {
    {"accepts", {}},
    {"refuses", {RASCS_AuthNotify, ERROR_AUTHENTICATION_FAILURE}},
    {"never-answers", {RASCS_ConnectDevice, ERROR_SUCCESS, Ending::never}},
    {"disconnects", {RASCS_Disconnected}},
    {"unreachable", {RASCS_ConnectDevice, ERROR_AUTOMATIC_VPN_FAILED}},
    {"unreachable CODE", {RASCS_ConnectDevice}},
    {"busy COUNT", {RASCS_OpenPort, ERROR_DIAL_ALREADY_IN_PROGRESS, Ending::refused}},
    {"busy COUNT notified", {RASCS_OpenPort, ERROR_DIAL_ALREADY_IN_PROGRESS}},
    {"no-port COUNT", {RASCS_OpenPort, ERROR_PORT_NOT_AVAILABLE}},
    {"no-port always", {RASCS_OpenPort, ERROR_PORT_NOT_AVAILABLE}},
    {"fails CODE at STATE", {}},
    {"fails CODE at STATE COUNT times", {}},
    {"denies", {RASCS_Connected, ERROR_REMOTE_DISCONNECTION, Ending::denied}},
    {"denies CODE", {RASCS_Connected, ERROR_SUCCESS, Ending::denied}},
    {"drops after TIME", {}},
    {"drops after TIME ms", {}},
};

bool takeNumber(const std::string& word, unsigned largest, auto& target) {
    unsigned long number = 0;
    if (!isNumber(word, 1, largest, number))
        return false;
    target = static_cast<std::remove_reference_t<decltype(target)>>(number);
    return true;
}

bool takeState(const std::string& word, RASCONNSTATE& state) {
    const auto* known = std::find_if(std::begin(usualStates), std::end(usualStates),
                                     [&](const DialState& each) { return word == each.name; });
    if (known == std::end(usualStates))
        return false;
    state = known->state;
    return true;
}

bool takeWord(const std::string& word, const std::string& expected, Behaviour& behaviour) {
    if (expected == "CODE")
        return takeNumber(word, largestCode, behaviour.error);
    if (expected == "COUNT")
        return takeNumber(word, largestCount, behaviour.times);
    if (expected == "TIME")
        return takeNumber(word, largestTime, behaviour.dropAfter);
    if (expected == "STATE")
        return takeState(word, behaviour.state);
    return word == expected;
}

bool fits(const std::string& text, const char* form, Behaviour& behaviour) {
    std::istringstream words(text), expected(form);
    std::string word, expectedWord;
    while (expected >> expectedWord)
        if (!(words >> word) || !takeWord(word, expectedWord, behaviour))
            return false;
    return !(words >> word);
}

Behaviour behaviourOf(const std::string& text) {
    for (const Form& form : forms) {
        Behaviour behaviour = form.behaviour;
        behaviour.text = text;
        if (fits(text, form.words, behaviour))
            return behaviour;
    }
    complain("unknown behaviour " + quoted(text));
}

// A key of a section, and what its value does to the described thing.
template<class Described>
struct Key {
    const char* name;
    void (*read)(Described&, const std::string& value);
};

constexpr Key<Service> serviceKeys[] = {
    {"running", [](Service& service, auto& value) { service.isRunning = truthOf(value); }},
    {"ports", [](Service& service, auto& value) { service.ports = numberOf(value, 0, largestPortCount); }},
    {"latency", [](Service& service, auto& value) { service.latency = numberOf(value, 0, largestTime); }},
    {"hang-up-linger",
     [](Service& service, auto& value) { service.hangUpLinger = numberOf(value, 0, largestTime); }},
    {"broken-link-linger",
     [](Service& service, auto& value) { service.brokenLinkLinger = numberOf(value, 0, largestTime); }},
    {"unreachable",
     [](Service& service, auto& value) { service.unreachableCode = numberOf(value, 1, largestCode); }},
    {"list-dialing", [](Service& service, auto& value) { service.listsDialing = truthOf(value); }},
    {"failed-dial-holds-port",
     [](Service& service, auto& value) { service.failedDialHoldsPort = truthOf(value); }},
    {"notify-hang-up", [](Service& service, auto& value) { service.notifiesHangUp = truthOf(value); }},
};

constexpr Key<Peer> peerKeys[] = {
    {"account", [](Peer& peer, auto& value) { peer.accounts.push_back(accountOf(value)); }},
    {"latency", [](Peer& peer, auto& value) { peer.latency = numberOf(value, 0, largestTime); }},
    {"address", [](Peer& peer, auto& value) { peer.clientAddress = addressOf(value); }},
    {"server-address", [](Peer& peer, auto& value) { peer.serverAddress = addressOf(value); }},
    {"behaviour", [](Peer& peer, auto& value) { peer.behaviour = behaviourOf(value); }},
};

bool isRemark(const Line& line) {
    const std::string text = trimmed(line.text);
    return text.starts_with(';') || text.starts_with('#');
}

// Reads the sections of a file. `line` is where it is, for complaints.
class PeersReader {
  public:
    PeersReader(const SectionFile& sections, unsigned& lineRead) : file(sections), line(lineRead) {}

    Peers read() {
        // The service comes first, because peers take their defaults from it.
        for (const Section& section : file.sections)
            if (section.name == "service")
                readSection(section, serviceKeys, peers.service);
        for (const Section& section : file.sections)
            if (section.name != "service")
                readPeer(section);
        return std::move(peers);
    }

  private:
    void readPeer(const Section& section) {
        Peer peer{trimmed(section.name), {}, peers.service.latency, "192.168.100.2", "192.168.100.1", {}};
        line = section.number;
        if (peers.find(peer.address))
            complain("the section [" + section.name + "] stands here a second time");
        readSection(section, peerKeys, peer);
        if (!peer.address.empty())
            peers.peers.push_back(peer);
    }

    template<class Described, std::size_t count>
    void readSection(const Section& section, const Key<Described> (&keys)[count], Described& described) {
        for (const Line& each : section.lines) {
            line = each.number;
            if (isRemark(each))
                continue;
            const std::string name = trimmed(each.key());
            if (section.name.empty() || name.empty())
                complain("neither a section, a key in one, nor a remark");
            const auto* key = std::find_if(std::begin(keys), std::end(keys),
                                           [&](const Key<Described>& known) { return name == known.name; });
            if (key == std::end(keys))
                complain("unknown key " + quoted(name));
            if (name != "account" && section.find(each.key()) != &each)
                complain("the key " + quoted(name) + " stands here a second time");
            key->read(described, trimmed(each.value()));
        }
    }

    const SectionFile& file;
    unsigned& line;
    Peers peers;
};

} // namespace

Peers currentPeers() {
    const std::string path = peersPath();
    SectionFile file;
    const DWORD error = readSections(path, file);
    Peers wrong;
    wrong.isFileThere = !isMissing(error);
    if (!wrong.isFileThere)
        return wrong;
    unsigned line = 0;
    try {
        if (error != ERROR_SUCCESS)
            complain("cannot be read, error " + std::to_string(error));
        return PeersReader(file, line).read();
    } catch (const std::invalid_argument& complaint) {
        wrong.mistake = path + (line ? ":" + std::to_string(line) : "") + ": " + complaint.what();
    }
    tellOnce(wrong.mistake);
    return wrong;
}

} // namespace standin
