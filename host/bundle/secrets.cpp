#include "bundle/secrets.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <sstream>

namespace {

// Not among them: user names, domains, comments, custom data of an authentication, scripts, keys that nobody
// here has heard of.
constexpr std::string_view phonebookKeys[] = {"Encoding",
                                              "Type",
                                              "BaseProtocol",
                                              "VpnStrategy",
                                              "ExcludedProtocols",
                                              "LcpExtensions",
                                              "DataEncryption",
                                              "SwCompression",
                                              "DialMode",
                                              "RedialAttempts",
                                              "RedialSeconds",
                                              "RedialOnLinkFailure",
                                              "IdleDisconnectSeconds",
                                              "PreferredPort",
                                              "PreferredDevice",
                                              "CustomAuthKey",
                                              "AuthRestrictions",
                                              "TypicalAuth",
                                              "IpPrioritizeRemote",
                                              "IpHeaderCompression",
                                              "IpAddress",
                                              "IpDnsAddress",
                                              "IpDns2Address",
                                              "IpAssign",
                                              "IpNameAssign",
                                              "IpFrameSize",
                                              "TcpWindowSize",
                                              "IpSecFlags",
                                              "MEDIA",
                                              "Port",
                                              "Device",
                                              "DEVICE",
                                              "PhoneNumber",
                                              "UseFlags"};

constexpr std::string_view logKeys[] = {"level", "file", "size", "files"};

std::string known(const std::string& text, std::span<const std::string_view> keys, std::size_t& leftOut) {
    std::istringstream lines(text);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with('\r'))
            line.pop_back();
        const std::size_t mark = line.find('=');
        const bool isSection = line.starts_with('[') && line.ends_with(']');
        const bool isKnown = mark != line.npos && std::ranges::find(keys, line.substr(0, mark)) != keys.end();
        if (line.empty() || isSection || isKnown)
            kept += line + "\r\n";
        else if (mark == line.npos || mark + 1 < line.size())
            ++leftOut;
    }
    return kept;
}

} // namespace

std::string phonebookWithoutSecrets(const std::string& text, std::size_t& leftOut) {
    return known(text, phonebookKeys, leftOut);
}

std::string logSettingsWithoutSecrets(const std::string& text, std::size_t& leftOut) {
    return known(text, logKeys, leftOut);
}

bool isLibrarys(const logs::Record& record) {
    return record.line.substr(0, record.line.size() - record.text.size()).find(" .\\Varnel(") !=
           std::string_view::npos;
}
