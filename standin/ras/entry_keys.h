// The keys of a phonebook section in the order in which the system writes them, with the values of a new PPTP
// entry.
#pragma once

#include <windows.h>
#include <ras.h>

namespace standin {

enum class Group { main, netComponents, media, device };

struct EntryKey {
    Group group;
    const char* name;
    const char* initial;
};

// The first key of a group other than the main one is its heading.
inline constexpr EntryKey entryKeys[] = {
    {Group::main, "Encoding", "1"},
    {Group::main, "Type", "2"},
    {Group::main, "AutoLogon", "0"},
    {Group::main, "UseRasCredentials", "1"},
    {Group::main, "DialParamsUID", ""},
    {Group::main, "Guid", ""},
    {Group::main, "BaseProtocol", "1"},
    {Group::main, "VpnStrategy", "1"},
    {Group::main, "ExcludedProtocols", "0"},
    {Group::main, "LcpExtensions", "1"},
    {Group::main, "DataEncryption", "256"},
    {Group::main, "SwCompression", "1"},
    {Group::main, "NegotiateMultilinkAlways", "0"},
    {Group::main, "SkipNwcWarning", "0"},
    {Group::main, "SkipDownLevelDialog", "0"},
    {Group::main, "SkipDoubleDialDialog", "0"},
    {Group::main, "DialMode", "0"},
    {Group::main, "DialPercent", "75"},
    {Group::main, "DialSeconds", "120"},
    {Group::main, "HangUpPercent", "10"},
    {Group::main, "HangUpSeconds", "120"},
    {Group::main, "OverridePref", "15"},
    {Group::main, "RedialAttempts", "3"},
    {Group::main, "RedialSeconds", "60"},
    {Group::main, "IdleDisconnectSeconds", "0"},
    {Group::main, "RedialOnLinkFailure", "0"},
    {Group::main, "CallbackMode", "0"},
    {Group::main, "CustomDialDll", ""},
    {Group::main, "CustomDialFunc", ""},
    {Group::main, "CustomRasDialDll", ""},
    {Group::main, "AuthenticateServer", "0"},
    {Group::main, "ShareMsFilePrint", "1"},
    {Group::main, "BindMsNetClient", "1"},
    {Group::main, "SharedPhoneNumbers", "0"},
    {Group::main, "GlobalDeviceSettings", "0"},
    {Group::main, "PrerequisiteEntry", ""},
    {Group::main, "PrerequisitePbk", ""},
    {Group::main, "PreferredPort", "VPN4-0"},
    {Group::main, "PreferredDevice", "WAN Miniport (PPTP)"},
    {Group::main, "PreferredBps", "0"},
    {Group::main, "PreferredHwFlow", "1"},
    {Group::main, "PreferredProtocol", "1"},
    {Group::main, "PreferredCompression", "1"},
    {Group::main, "PreferredSpeaker", "1"},
    {Group::main, "PreferredMdmProtocol", "0"},
    {Group::main, "PreviewUserPw", "1"},
    {Group::main, "PreviewDomain", "0"},
    {Group::main, "PreviewPhoneNumber", "0"},
    {Group::main, "ShowDialingProgress", "1"},
    {Group::main, "ShowMonitorIconInTaskBar", "1"},
    {Group::main, "CustomAuthKey", "-1"},
    {Group::main, "AuthRestrictions", "512"},
    {Group::main, "TypicalAuth", "2"},
    {Group::main, "IpPrioritizeRemote", "1"},
    {Group::main, "IpHeaderCompression", "0"},
    {Group::main, "IpAddress", "0.0.0.0"},
    {Group::main, "IpDnsAddress", "0.0.0.0"},
    {Group::main, "IpDns2Address", "0.0.0.0"},
    {Group::main, "IpWinsAddress", "0.0.0.0"},
    {Group::main, "IpWins2Address", "0.0.0.0"},
    {Group::main, "IpAssign", "1"},
    {Group::main, "IpNameAssign", "1"},
    {Group::main, "IpFrameSize", "1006"},
    {Group::main, "IpDnsFlags", "0"},
    {Group::main, "IpNBTFlags", "1"},
    {Group::main, "TcpWindowSize", "0"},
    {Group::main, "UseFlags", "0"},
    {Group::main, "IpSecFlags", "0"},
    {Group::main, "IpDnsSuffix", ""},
    {Group::netComponents, "NETCOMPONENTS", ""},
    {Group::netComponents, "ms_server", "1"},
    {Group::netComponents, "ms_msclient", "1"},
    {Group::media, "MEDIA", "rastapi"},
    {Group::media, "Port", "VPN4-0"},
    {Group::media, "Device", "WAN Miniport (PPTP)"},
    {Group::device, "DEVICE", "vpn"},
    {Group::device, "PhoneNumber", ""},
    {Group::device, "AreaCode", ""},
    {Group::device, "CountryCode", "1"},
    {Group::device, "CountryID", "1"},
    {Group::device, "UseDialingRules", "0"},
    {Group::device, "Comment", ""},
    {Group::device, "LastSelectedPhone", "0"},
    {Group::device, "PromoteAlternates", "0"},
    {Group::device, "TryNextAlternateOnFail", "1"},
};

// An option of an entry that is a key of its own: `set` when the option is on, `clear` when it is off.
struct OptionKey {
    DWORD option;
    Group group;
    const char* name;
    const char* set;
    const char* clear;
};

inline constexpr OptionKey optionKeys[] = {
    {RASEO_UseLogonCredentials, Group::main, "AutoLogon", "1", "0"},
    {RASEO_DisableLcpExtensions, Group::main, "LcpExtensions", "0", "1"},
    {RASEO_SwCompression, Group::main, "SwCompression", "1", "0"},
    {RASEO_SecureLocalFiles, Group::main, "ShareMsFilePrint", "0", "1"},
    {RASEO_SharedPhoneNumbers, Group::main, "SharedPhoneNumbers", "1", "0"},
    {RASEO_PreviewUserPw, Group::main, "PreviewUserPw", "1", "0"},
    {RASEO_PreviewDomain, Group::main, "PreviewDomain", "1", "0"},
    {RASEO_PreviewPhoneNumber, Group::main, "PreviewPhoneNumber", "1", "0"},
    {RASEO_ShowDialingProgress, Group::main, "ShowDialingProgress", "1", "0"},
    {RASEO_RemoteDefaultGateway, Group::main, "IpPrioritizeRemote", "1", "0"},
    {RASEO_IpHeaderCompression, Group::main, "IpHeaderCompression", "1", "0"},
    {RASEO_SpecificIpAddr, Group::main, "IpAssign", "2", "1"},
    {RASEO_SpecificNameServers, Group::main, "IpNameAssign", "2", "1"},
    {RASEO_UseCountryAndAreaCodes, Group::device, "UseDialingRules", "1", "0"},
    {RASEO_PromoteAlternates, Group::device, "PromoteAlternates", "1", "0"},
};

// An authentication method that an entry allows: its option and its bit in the key AuthRestrictions.
struct AuthenticationMethod {
    DWORD option;
    DWORD bit;
};

inline constexpr DWORD customAuthentication = 0x100; // the methods were picked one by one
inline constexpr AuthenticationMethod authenticationMethods[] = {
    {RASEO_RequirePAP, 0x8},     {RASEO_RequireSPAP, 0x10}, {RASEO_RequireCHAP, 0x20},
    {RASEO_RequireMsCHAP, 0x40}, {RASEO_RequireEAP, 0x80},  {RASEO_RequireMsCHAP2, 0x200},
};

inline constexpr DWORD clearTextMethods = 0x18;  // PAP and SPAP
inline constexpr DWORD microsoftMethods = 0x240; // both generations of MS-CHAP
inline constexpr DWORD encryptedMethods = microsoftMethods | 0x20;

inline constexpr DWORD allProtocols =
    RASNP_NetBEUI | RASNP_Ipx | RASNP_Ip;        // of which ExcludedProtocols names some
inline constexpr DWORD allPreferences = 15;      // the key OverridePref
inline constexpr DWORD idleTimePreference = 0x4; // its bit for IdleDisconnectSeconds

// The values of the key DataEncryption.
struct EncryptionKey {
    DWORD type;
    DWORD value;
};

inline constexpr EncryptionKey encryptionKeys[] = {
    {ET_None, 0}, {ET_Optional, 8}, {ET_Require, 256}, {ET_RequireMax, 512}};

} // namespace standin
