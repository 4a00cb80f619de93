#include "standin/ras/file_store.h"
#include "standin/ras/peers.h"
#include "standin/ras/peers_text.h"
#include "standin/ras/section_file.h"
#include "standin/ras/state_folder.h"

#include <cstdio>
#include <mutex>

#include <raserror.h>

#include <set>
#include <stdexcept>

namespace standin {
namespace {

constexpr unsigned largestPortCount = 1000;
constexpr char defaultClientAddress[] = "192.168.100.2";
constexpr char defaultServerAddress[] = "192.168.100.1";

Account accountOf(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos)
        complain("an account is USER:PASSWORD");
    return {std::string(text.substr(0, colon)), std::string(text.substr(colon + 1))};
}

std::string addressOf(std::string_view text) {
    if (text.size() > RAS_MaxIpAddress)
        complain(quoted(text) + " is too long for an address");
    return std::string(text == "none" ? std::string_view() : text);
}

void readServiceKey(Service& service, std::string_view key, std::string_view value) {
    if (key == "running")
        service.isRunning = truthOf(value);
    else if (key == "ports")
        service.ports = numberOf(value, 0, largestPortCount);
    else if (key == "latency")
        service.latency = numberOf(value, 0, largestTime);
    else if (key == "hang-up-linger")
        service.hangUpLinger = numberOf(value, 0, largestTime);
    else if (key == "broken-link-linger")
        service.brokenLinkLinger = numberOf(value, 0, largestTime);
    else if (key == "unreachable")
        service.unreachableCode = numberOf(value, 1, largestCode);
    else if (key == "list-dialing")
        service.listsDialing = truthOf(value);
    else if (key == "failed-dial-holds-port")
        service.failedDialHoldsPort = truthOf(value);
    else if (key == "notify-hang-up")
        service.notifiesHangUp = truthOf(value);
    else
        complain("unknown key " + quoted(key));
}

void readPeerKey(Peer& peer, std::string_view key, std::string_view value) {
    if (key == "account")
        peer.accounts.push_back(accountOf(value));
    else if (key == "latency")
        peer.latency = numberOf(value, 0, largestTime);
    else if (key == "address")
        peer.clientAddress = addressOf(value);
    else if (key == "server-address")
        peer.serverAddress = addressOf(value);
    else if (key == "behaviour")
        peer.behaviour = behaviourOf(value);
    else
        complain("unknown key " + quoted(key));
}

bool isRemark(const Line& line) {
    const std::string_view text = trimmed(line.text);
    return text.empty() || text.front() == ';' || text.front() == '#';
}

// Reads the sections of a file, keeping the line at which it is, for complaints.
class PeersReader {
  public:
    PeersReader(const std::string& filePath, const SectionFile& sectionFile)
        : path(filePath), file(sectionFile) {}

    Peers read() {
        try {
            readSections();
        } catch (const std::invalid_argument& complaint) {
            Peers wrong;
            wrong.error = path + ":" + std::to_string(line) + ": " + complaint.what();
            return wrong;
        }
        return std::move(peers);
    }

  private:
    void readSections() {
        for (const Line& each : file.preamble)
            readLine(each, [](std::string_view, std::string_view) { complain("a key outside any section"); });
        // The service comes first, because peers take their defaults from it.
        for (const Section& section : file.sections)
            if (isService(section))
                readSection(section,
                            [this](auto key, auto value) { readServiceKey(peers.service, key, value); });
        for (const Section& section : file.sections)
            if (!isService(section))
                readPeer(section);
    }

    static bool isService(const Section& section) { return section.name == "service"; }

    void readPeer(const Section& section) {
        line = section.number;
        if (trimmed(section.name).empty())
            complain("a section without an address");
        Peer peer;
        peer.address = trimmed(section.name);
        peer.latency = peers.service.latency;
        peer.clientAddress = defaultClientAddress;
        peer.serverAddress = defaultServerAddress;
        readSection(section, [&](auto key, auto value) { readPeerKey(peer, key, value); });
        peers.peers.push_back(std::move(peer));
    }

    template<class ReadKey>
    void readSection(const Section& section, ReadKey readKey) {
        line = section.number;
        if (!sections.insert(section.name).second)
            complain("the section [" + section.name + "] stands here a second time");
        std::set<std::string, std::less<>> keys;
        for (const Line& each : section.lines)
            readLine(each, [&](std::string_view key, std::string_view value) {
                if (key != "account" && !keys.insert(std::string(key)).second)
                    complain("the key " + quoted(key) + " stands here a second time");
                readKey(key, value);
            });
    }

    template<class ReadKey>
    void readLine(const Line& each, ReadKey readKey) {
        line = each.number;
        if (isRemark(each))
            return;
        if (each.text.find('=') == std::string::npos)
            complain("neither a section, a key nor a remark");
        readKey(trimmed(each.key()), trimmed(each.value()));
    }

    const std::string& path;
    const SectionFile& file;
    unsigned line = 0;
    std::set<std::string> sections;
    Peers peers;
};

Peers readPeers(const std::string& path) {
    std::string text;
    const DWORD error = readFile(path, text);
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return {};
    if (error == ERROR_SUCCESS)
        return PeersReader(path, parseSections(text)).read();
    Peers unreadable;
    unreadable.error = path + ": cannot be read, error " + std::to_string(error);
    return unreadable;
}

// A file just written is read several times; what is wrong in it is said once.
void reportChange(const std::string& error) {
    static std::mutex lock;
    static std::string reported;
    const std::lock_guard guard(lock);
    if (error != reported && !error.empty())
        std::fprintf(stderr, "%s\n", error.c_str());
    reported = error;
}

} // namespace

std::shared_ptr<const Peers> currentPeers() {
    static FileCache<Peers> cache;
    auto peers = cache.get(peersPath(), readPeers);
    reportChange(peers->error);
    return peers;
}

} // namespace standin
