#include "standin/ras/entry_lines.h"
#include "standin/ras/fixed_text.h"
#include "standin/ras/phonebook_entry.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>

namespace standin {
namespace {

GUID guidOf(const std::string& text) {
    GUID guid{};
    auto* bytes = reinterpret_cast<unsigned char*>(&guid);
    if (text.size() == 2 * sizeof guid)
        for (std::size_t i = 0; i < sizeof guid; ++i)
            bytes[i] = static_cast<unsigned char>(std::strtoul(text.substr(2 * i, 2).c_str(), nullptr, 16));
    return guid;
}

DWORD optionsOfMethods(DWORD methods) {
    DWORD options = 0;
    for (const AuthenticationMethod& method : authenticationMethods)
        if (methods & method.bit)
            options |= method.option;
    if (methods & customAuthentication)
        return options | RASEO_Custom;
    if ((methods & clearTextMethods) == 0)
        options |= RASEO_RequireEncryptedPw;
    return methods & ~microsoftMethods ? options : options | RASEO_RequireMsEncryptedPw;
}

// Reads a section with the defaults of a new entry.
class EntryReader {
  public:
    explicit EntryReader(const Section& section) : lines(section) {}

    std::string text(Group group, const char* key) const {
        if (auto value = lines.value(group, key))
            return *value;
        const auto* known =
            std::find_if(std::begin(entryKeys), std::end(entryKeys), [&](const EntryKey& each) {
                return each.group == group && std::string_view(each.name) == key;
            });
        return known == std::end(entryKeys) ? "" : known->initial;
    }

    DWORD number(const char* key, Group group = Group::main) const {
        return static_cast<DWORD>(std::strtoul(text(group, key).c_str(), nullptr, 10));
    }

    RASIPADDR address(const char* key) const {
        const std::string dotted = text(Group::main, key);
        std::array<BYTE, 4> bytes{};
        const char* rest = dotted.c_str();
        for (BYTE& byte : bytes) {
            char* end = nullptr;
            byte = static_cast<BYTE>(std::strtoul(rest, &end, 10));
            rest = *end == '.' ? end + 1 : end;
        }
        return {bytes[0], bytes[1], bytes[2], bytes[3]};
    }

  private:
    EntryLines lines;
};

DWORD encryptionType(DWORD value) {
    const auto* key = std::find_if(std::begin(encryptionKeys), std::end(encryptionKeys),
                                   [value](const EncryptionKey& each) { return each.value == value; });
    return key == std::end(encryptionKeys) ? ET_Optional : key->type;
}

DWORD readOptions(const EntryReader& reader, const RASENTRYA& entry) {
    DWORD options = optionsOfMethods(reader.number("AuthRestrictions"));
    if (entry.dwEncryptionType == ET_Require || entry.dwEncryptionType == ET_RequireMax)
        options |= RASEO_RequireDataEncryption;
    for (const OptionKey& key : optionKeys)
        if (reader.text(key.group, key.name) == key.set)
            options |= key.option;
    return options;
}

void readAddresses(const EntryReader& reader, RASENTRYA& entry) {
    entry.ipaddr = reader.address("IpAddress");
    entry.ipaddrDns = reader.address("IpDnsAddress");
    entry.ipaddrDnsAlt = reader.address("IpDns2Address");
    entry.ipaddrWins = reader.address("IpWinsAddress");
    entry.ipaddrWinsAlt = reader.address("IpWins2Address");
    entry.dwFrameSize = reader.number("IpFrameSize");
}

void readMultilink(const EntryReader& reader, RASENTRYA& entry) {
    entry.dwDialMode = reader.number("DialMode");
    entry.dwDialExtraPercent = reader.number("DialPercent");
    entry.dwDialExtraSampleSeconds = reader.number("DialSeconds");
    entry.dwHangUpExtraPercent = reader.number("HangUpPercent");
    entry.dwHangUpExtraSampleSeconds = reader.number("HangUpSeconds");
}

void readDevice(const EntryReader& reader, RASENTRYA& entry) {
    fillField(entry.szDeviceType, reader.text(Group::device, "DEVICE"));
    fillField(entry.szDeviceName, reader.text(Group::media, "Device"));
    fillField(entry.szLocalPhoneNumber, reader.text(Group::device, "PhoneNumber"));
    fillField(entry.szAreaCode, reader.text(Group::device, "AreaCode"));
    entry.dwCountryCode = reader.number("CountryCode", Group::device);
    entry.dwCountryID = reader.number("CountryID", Group::device);
}

} // namespace

EntryFacts factsOf(const Section& section, const std::string& phonebook) {
    const EntryLines lines(section);
    EntryFacts facts;
    facts.name = section.name;
    facts.phonebook = phonebook;
    facts.number = lines.value(Group::device, "PhoneNumber").value_or("");
    facts.deviceName = lines.value(Group::media, "Device").value_or(pptpDevice);
    facts.credentialsId = lines.value(Group::main, "DialParamsUID").value_or("");
    facts.guid = guidOf(lines.value(Group::main, "Guid").value_or(""));
    return facts;
}

RASENTRYA entryOf(const Section& section) {
    RASENTRYA entry{};
    const EntryReader reader(section);
    entry.dwType = reader.number("Type");
    entry.dwVpnStrategy = reader.number("VpnStrategy");
    entry.dwEncryptionType = encryptionType(reader.number("DataEncryption"));
    entry.dwFramingProtocol = reader.number("BaseProtocol");
    entry.dwfNetProtocols = allProtocols & ~reader.number("ExcludedProtocols");
    entry.dwIdleDisconnectSeconds = reader.number("IdleDisconnectSeconds");
    const bool idleGiven = (reader.number("OverridePref") & idleTimePreference) != 0;
    if (!idleGiven)
        entry.dwIdleDisconnectSeconds = RASIDS_UseGlobalValue;
    else if (entry.dwIdleDisconnectSeconds == 0)
        entry.dwIdleDisconnectSeconds = RASIDS_Disabled;
    const std::string key = reader.text(Group::main, "CustomAuthKey");
    entry.dwCustomAuthKey = key == "-1" ? 0 : static_cast<DWORD>(std::strtoul(key.c_str(), nullptr, 10));
    fillField(entry.szCustomDialDll, reader.text(Group::main, "CustomDialDll"));
    entry.guidId = guidOf(reader.text(Group::main, "Guid"));
    entry.dwfOptions = readOptions(reader, entry);
    readAddresses(reader, entry);
    readMultilink(reader, entry);
    readDevice(reader, entry);
    return entry;
}

} // namespace standin
