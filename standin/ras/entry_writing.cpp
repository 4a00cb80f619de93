#include "standin/ras/entry_lines.h"
#include "standin/ras/fixed_text.h"
#include "standin/ras/phonebook_entry.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include <rpc.h>

#include <tuple>

namespace standin {
namespace {

constexpr DWORD defaultFrameSize = 1006; // bytes

// The values that an entry gives to keys.
class EntryValues {
  public:
    explicit EntryValues(const RASENTRYA& entry);

    const std::string* find(Group group, std::string_view key) const {
        const auto value = std::find_if(values.begin(), values.end(), [&](const auto& each) {
            return std::get<0>(each) == group && std::get<1>(each) == key;
        });
        return value == values.end() ? nullptr : &std::get<2>(*value);
    }

  private:
    void add(Group group, const char* key, std::string value) {
        values.emplace_back(group, key, std::move(value));
    }
    void add(const char* key, DWORD value) { add(Group::main, key, std::to_string(value)); }
    void addAddresses(const RASENTRYA& entry);
    void addMultilink(const RASENTRYA& entry);
    void addDevice(const RASENTRYA& entry);

    std::vector<std::tuple<Group, std::string_view, std::string>> values;
};

std::string dotted(const RASIPADDR& address) {
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address.a, address.b, address.c, address.d);
    return text;
}

std::string hex(const GUID& guid) {
    std::string text;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&guid);
    for (std::size_t i = 0; i < sizeof guid; ++i) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02X", bytes[i]);
        text += pair;
    }
    return text;
}

GUID newGuid() {
    GUID guid{};
    UuidCreate(&guid);
    return guid;
}

DWORD methodsOf(DWORD options) {
    DWORD methods = options & RASEO_Custom ? customAuthentication : 0;
    for (const AuthenticationMethod& method : authenticationMethods)
        if (options & method.option)
            methods |= method.bit;
    if (methods != 0)
        return methods;
    if (options & RASEO_RequireMsEncryptedPw)
        return microsoftMethods;
    return options & RASEO_RequireEncryptedPw ? encryptedMethods : encryptedMethods | clearTextMethods;
}

EntryValues::EntryValues(const RASENTRYA& entry) {
    for (const OptionKey& key : optionKeys)
        add(key.group, key.name, entry.dwfOptions & key.option ? key.set : key.clear);
    for (const EncryptionKey& key : encryptionKeys)
        if (key.type == entry.dwEncryptionType)
            add("DataEncryption", key.value);
    add("AuthRestrictions", methodsOf(entry.dwfOptions));
    add("TypicalAuth", entry.dwfOptions & RASEO_RequireEncryptedPw ? 2 : 1);
    add("Type", entry.dwType);
    add("VpnStrategy", entry.dwVpnStrategy);
    add("BaseProtocol", entry.dwFramingProtocol);
    add("ExcludedProtocols", allProtocols & ~entry.dwfNetProtocols);
    add("IdleDisconnectSeconds",
        entry.dwIdleDisconnectSeconds == RASIDS_Disabled ? 0 : entry.dwIdleDisconnectSeconds);
    add("OverridePref", entry.dwIdleDisconnectSeconds == RASIDS_UseGlobalValue
                            ? allPreferences & ~idleTimePreference
                            : allPreferences);
    add(Group::main, "CustomAuthKey",
        entry.dwCustomAuthKey == 0 ? "-1" : std::to_string(entry.dwCustomAuthKey));
    add(Group::main, "CustomDialDll", fieldText(entry.szCustomDialDll));
    if (std::memcmp(&entry.guidId, &GUID_NULL, sizeof(GUID)) != 0)
        add(Group::main, "Guid", hex(entry.guidId));
    addAddresses(entry);
    addMultilink(entry);
    addDevice(entry);
}

void EntryValues::addAddresses(const RASENTRYA& entry) {
    add(Group::main, "IpAddress", dotted(entry.ipaddr));
    add(Group::main, "IpDnsAddress", dotted(entry.ipaddrDns));
    add(Group::main, "IpDns2Address", dotted(entry.ipaddrDnsAlt));
    add(Group::main, "IpWinsAddress", dotted(entry.ipaddrWins));
    add(Group::main, "IpWins2Address", dotted(entry.ipaddrWinsAlt));
    add("IpFrameSize", entry.dwFrameSize == 0 ? defaultFrameSize : entry.dwFrameSize);
}

void EntryValues::addMultilink(const RASENTRYA& entry) {
    add("DialMode", entry.dwDialMode);
    if (entry.dwDialMode == 0)
        return;
    add("DialPercent", entry.dwDialExtraPercent);
    add("DialSeconds", entry.dwDialExtraSampleSeconds);
    add("HangUpPercent", entry.dwHangUpExtraPercent);
    add("HangUpSeconds", entry.dwHangUpExtraSampleSeconds);
}

void EntryValues::addDevice(const RASENTRYA& entry) {
    std::string name = fieldText(entry.szDeviceName);
    if (name.empty())
        name = entry.dwVpnStrategy == VS_L2tpOnly || entry.dwVpnStrategy == VS_L2tpFirst ? l2tpDevice
                                                                                         : pptpDevice;
    add(Group::main, "PreferredDevice", name);
    add(Group::media, "Device", std::move(name));
    add(Group::device, "DEVICE", fieldText(entry.szDeviceType));
    add(Group::device, "PhoneNumber", fieldText(entry.szLocalPhoneNumber));
    add(Group::device, "AreaCode", fieldText(entry.szAreaCode));
    add(Group::device, "CountryCode", std::to_string(entry.dwCountryCode));
    add(Group::device, "CountryID", std::to_string(entry.dwCountryID));
}

} // namespace

void describeEntry(Section& section, const RASENTRYA& entry) {
    const EntryValues given(entry);
    EntryLines old(section);
    std::vector<Line> lines;
    const auto* key = std::begin(entryKeys);
    for (Group group : {Group::main, Group::netComponents, Group::media, Group::device}) {
        for (; key != std::end(entryKeys) && key->group == group; ++key) {
            const std::optional<std::string> kept = old.take(group, key->name);
            const std::string* value = given.find(group, key->name);
            lines.push_back({std::string(key->name) + "=" + (value ? *value : kept.value_or(key->initial))});
        }
        const std::vector<Line> unknown = old.rest(group);
        lines.insert(lines.end(), unknown.begin(), unknown.end());
        lines.push_back({});
    }
    section.lines = std::move(lines);
    if (section.value("DialParamsUID").empty())
        section.set("DialParamsUID", newCredentialsId());
    if (section.value("Guid").empty())
        section.set("Guid", hex(newGuid()));
}

std::string newCredentialsId() {
    return std::to_string((newGuid().Data1 & 0x7FFFFFFF) | 1);
}

void giveCredentialsId(Section& section, const std::string& id) {
    // At the front: behind the heading of a group it would be a key of that group.
    section.erase("DialParamsUID");
    section.lines.insert(section.lines.begin(), Line{"DialParamsUID=" + id});
}

} // namespace standin
