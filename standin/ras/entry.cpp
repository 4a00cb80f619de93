#include "standin/ras/entry.h"

#include "standin/ras/records.h"

#include <windows.h>

#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>

#include <rpc.h>

namespace standin {
namespace {

// An authentication method: the option that asks for it and its bit in the key AuthRestrictions.
struct AuthenticationMethod {
    DWORD option;
    DWORD bit;
};

constexpr AuthenticationMethod authenticationMethods[] = {
    {RASEO_RequirePAP, 0x8},      {RASEO_RequireSPAP, 0x10}, {RASEO_RequireCHAP, 0x20},
    {RASEO_RequireMsCHAP, 0x40},  {RASEO_RequireEAP, 0x80},  {RASEO_Custom, 0x100},
    {RASEO_RequireMsCHAP2, 0x200}};

constexpr std::array encryptionValues{0, 256, 512,
                                      8}; // of the key DataEncryption, for ET_None to ET_Optional
constexpr DWORD allProtocols = RASNP_NetBEUI | RASNP_Ipx | RASNP_Ip;

GUID newGuid() {
    GUID guid{};
    UuidCreate(&guid);
    return guid;
}

std::string textOf(const GUID& guid) {
    std::string text;
    for (const unsigned char byte : std::bit_cast<std::array<unsigned char, sizeof guid>>(guid)) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

GUID guidOf(const std::string& text) {
    std::array<unsigned char, sizeof(GUID)> bytes{};
    if (text.size() == 2 * bytes.size())
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<unsigned char>(std::strtoul(text.substr(2 * i, 2).c_str(), nullptr, 16));
    return std::bit_cast<GUID>(bytes);
}

DWORD authenticationBits(DWORD options) {
    DWORD bits = 0;
    for (const AuthenticationMethod& method : authenticationMethods)
        if (options & method.option)
            bits |= method.bit;
    return bits;
}

int encryptionValue(DWORD type) {
    return type < encryptionValues.size() ? encryptionValues[type] : encryptionValues[ET_Optional];
}

} // namespace

Entry entryOf(const Section& section, const std::string& phonebook) {
    return {section.name, phonebook, section.value("PhoneNumber"), guidOf(section.value("Guid"))};
}

void describeEntry(Section& section, const RASENTRYA& record) {
    const auto setNumber = [&](const char* key, auto value) { section.set(key, std::to_string(value)); };
    const auto setOnce = [&](const char* key, const std::string& value) {
        if (!section.find(key))
            section.set(key, value);
    };
    setNumber("Encoding", 1);
    setNumber("Type", record.dwType);
    setOnce("DialParamsUID", std::to_string(newGuid().Data1));
    setOnce("Guid", textOf(newGuid()));
    setNumber("BaseProtocol", record.dwFramingProtocol);
    setNumber("VpnStrategy", record.dwVpnStrategy);
    setNumber("ExcludedProtocols", allProtocols & ~record.dwfNetProtocols);
    setNumber("DataEncryption", encryptionValue(record.dwEncryptionType));
    setNumber("IdleDisconnectSeconds",
              record.dwIdleDisconnectSeconds == RASIDS_Disabled ? 0 : record.dwIdleDisconnectSeconds);
    setNumber("AuthRestrictions", authenticationBits(record.dwfOptions));
    setNumber("IpPrioritizeRemote", record.dwfOptions & RASEO_RemoteDefaultGateway ? 1 : 0);
    setOnce("UserName", {});
    section.set("MEDIA", "rastapi");
    section.set("Port", "VPN4-0");
    section.set("Device", pptpDevice);
    section.set("DEVICE", fieldText(record.szDeviceType));
    section.set("PhoneNumber", fieldText(record.szLocalPhoneNumber));
}

} // namespace standin
