// Phonebook files and their entries.
#include "tests/standin/ras_kit.h"

#include <catch2/catch.hpp>

#include <cstring>

#include <shlobj.h>

#include <thread>

using namespace standin_test;

namespace {

struct Entries {
    DWORD result;
    DWORD bytes;
    std::vector<RASENTRYNAMEA> names;
};

Entries entriesOf(const char* phonebook) {
    std::vector<RASENTRYNAMEA> names(64);
    names[0].dwSize = entryNameSize;
    DWORD bytes = static_cast<DWORD>(names.size()) * entryNameSize, count = 0;
    const DWORD result = RasEnumEntriesA(nullptr, phonebook, names.data(), &bytes, &count);
    names.resize(count);
    return {result, bytes, names};
}

std::vector<std::string> namesIn(const std::string& phonebook) {
    std::vector<std::string> texts;
    for (const RASENTRYNAMEA& name : entriesOf(phonebook.c_str()).names)
        texts.push_back(name.szEntryName);
    return texts;
}

RASENTRYA readBack(const Computer& computer, const std::string& name, DWORD expected = ERROR_SUCCESS) {
    RASENTRYA entry;
    std::memset(&entry, 'x', sizeof entry);
    entry.dwSize = sizeof entry;
    DWORD bytes = sizeof entry;
    REQUIRE(RasGetEntryPropertiesA(computer.phonebook().c_str(), name.c_str(), &entry, &bytes, nullptr,
                                   nullptr) == expected);
    return entry;
}

DWORD write(const std::string& phonebook, const std::string& name, RASENTRYA entry = pptpEntry("10.1.1.1"),
            DWORD bytes = entrySize) {
    return RasSetEntryPropertiesA(phonebook.c_str(), name.c_str(), &entry, bytes, nullptr, 0);
}

// The text with the values that differ from entry to entry made the same.
std::string masked(std::string text) {
    for (const std::string key : {"DialParamsUID=", "Guid="}) {
        const std::size_t start = text.find(key) + key.size();
        text.replace(start, text.find('\r', start) - start, "*");
    }
    return text;
}

const std::string wholeEntry =
    "[node7 "
    "#0]\r\nEncoding=1\r\nType=2\r\nAutoLogon=0\r\nUseRasCredentials=1\r\nDialParamsUID=*\r\nGuid=*\r\n"
    "BaseProtocol=1\r\nVpnStrategy=1\r\nExcludedProtocols=3\r\nLcpExtensions=1\r\nDataEncryption=256\r\n"
    "SwCompression=0\r\nNegotiateMultilinkAlways=0\r\nSkipNwcWarning=0\r\nSkipDownLevelDialog=0\r\n"
    "SkipDoubleDialDialog=0\r\nDialMode=0\r\nDialPercent=75\r\nDialSeconds=120\r\nHangUpPercent=10\r\n"
    "HangUpSeconds=120\r\nOverridePref=15\r\nRedialAttempts=3\r\nRedialSeconds=60\r\nIdleDisconnectSeconds="
    "0\r\n"
    "RedialOnLinkFailure=0\r\nCallbackMode=0\r\nCustomDialDll=\r\nCustomDialFunc=\r\nCustomRasDialDll=\r\n"
    "AuthenticateServer=0\r\nShareMsFilePrint=1\r\nBindMsNetClient=1\r\nSharedPhoneNumbers=0\r\n"
    "GlobalDeviceSettings=0\r\nPrerequisiteEntry=\r\nPrerequisitePbk=\r\nPreferredPort=VPN4-0\r\n"
    "PreferredDevice=WAN Miniport (PPTP)\r\nPreferredBps=0\r\nPreferredHwFlow=1\r\nPreferredProtocol=1\r\n"
    "PreferredCompression=1\r\nPreferredSpeaker=1\r\nPreferredMdmProtocol=0\r\nPreviewUserPw=0\r\n"
    "PreviewDomain=0\r\nPreviewPhoneNumber=0\r\nShowDialingProgress=0\r\nShowMonitorIconInTaskBar=1\r\n"
    "CustomAuthKey=-1\r\nAuthRestrictions=512\r\nTypicalAuth=2\r\nIpPrioritizeRemote=0\r\n"
    "IpHeaderCompression=0\r\nIpAddress=0.0.0.0\r\nIpDnsAddress=0.0.0.0\r\nIpDns2Address=0.0.0.0\r\n"
    "IpWinsAddress=0.0.0.0\r\nIpWins2Address=0.0.0.0\r\nIpAssign=1\r\nIpNameAssign=1\r\nIpFrameSize=1006\r\n"
    "IpDnsFlags=0\r\nIpNBTFlags=1\r\nTcpWindowSize=0\r\nUseFlags=0\r\nIpSecFlags=0\r\nIpDnsSuffix=\r\n\r\n"
    "NETCOMPONENTS=\r\nms_server=1\r\nms_msclient=1\r\n\r\n"
    "MEDIA=rastapi\r\nPort=VPN4-0\r\nDevice=WAN Miniport (PPTP)\r\n\r\n"
    "DEVICE=vpn\r\nPhoneNumber=10.1.1.1\r\nAreaCode=\r\nCountryCode=0\r\nCountryID=0\r\nUseDialingRules=0\r\n"
    "Comment=\r\nLastSelectedPhone=0\r\nPromoteAlternates=0\r\nTryNextAlternateOnFail=1\r\n\r\n";

constexpr char handWritten[] =
    "; a remark\n[by hand]\nMEDIA=rastapi\nPort=VPN4-0\nDevice=WAN Miniport (PPTP)\n\n"
    "DEVICE=vpn\nPhoneNumber=10.1.1.1";

} // namespace

TEST_CASE("an entry is written as the system writes it") {
    const Computer computer;
    computer.addEntry("node7 #0");
    CHECK(masked(readText(computer.phonebook())) == wholeEntry);
}

TEST_CASE("an entry is read back as it was written") {
    const auto [options, encryption] = GENERATE(table<DWORD, DWORD>(
        {{0x20001C00, ET_Require},
         {RASEO_Custom | RASEO_RequireCHAP, ET_Optional},
         {RASEO_SpecificIpAddr | RASEO_RemoteDefaultGateway | RASEO_Custom | RASEO_RequirePAP, ET_None}}));
    const Computer computer;
    RASENTRYA entry = pptpEntry("vpn.example.net");
    entry.dwfOptions = options;
    entry.dwEncryptionType = encryption;
    entry.ipaddr = {10, 20, 30, 255};
    REQUIRE(write(computer.phonebook(), "a", entry) == 0);

    const RASENTRYA read = readBack(computer, "a");
    CHECK(read.dwSize == sizeof read);
    CHECK(read.dwfOptions == options);
    CHECK(read.dwEncryptionType == encryption);
    CHECK(std::string(read.szLocalPhoneNumber) == "vpn.example.net");
    CHECK(std::string(read.szDeviceType) == "vpn");
    CHECK(std::string(read.szDeviceName) == "WAN Miniport (PPTP)");
    CHECK(read.dwfNetProtocols == RASNP_Ip);
    CHECK(read.dwType == RASET_Vpn);
    CHECK(read.dwVpnStrategy == VS_PptpOnly);
    CHECK(read.dwIdleDisconnectSeconds == RASIDS_Disabled);
    CHECK(std::memcmp(&read.ipaddr, &entry.ipaddr, sizeof entry.ipaddr) == 0);
    CHECK(read.dwfOptions2 == 0);
    CHECK(read.dwRedialPause == 0);
}

TEST_CASE("rewriting an entry keeps what it does not say, and all other entries") {
    const Computer computer;
    computer.addEntry("a");
    std::string text = readText(computer.phonebook());
    text.replace(text.find("RedialAttempts=3"), 16, "RedialAttempts=9");
    text.insert(text.find("\r\nMEDIA="), "UnheardOf=1\r\n");
    const std::string other =
        "[other]\r\nNonsense\r\n\r\n\r\nDEVICE=vpn\r\nPhoneNumber=1\r\nPhoneNumber=2\r\n";
    writeText(computer.phonebook(), "remark\r\n" + text + other);

    computer.addEntry("A", "10.2.2.2");
    text.replace(text.find("10.1.1.1"), 8, "10.2.2.2");
    CHECK(readText(computer.phonebook()) == "remark\r\n\r\n" + text + other);
}

TEST_CASE("a rewritten entry that says the same leaves the file alone") {
    const Computer computer;
    computer.addEntry("a");
    SetFileAttributesA(computer.phonebook().c_str(), FILE_ATTRIBUTE_READONLY);
    CHECK(write(computer.phonebook(), "a") == 0);
    CHECK(write(computer.phonebook(), "a", pptpEntry("10.2.2.2")) == ERROR_ACCESS_DENIED);
    SetFileAttributesA(computer.phonebook().c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_CASE("a section written by hand is an entry") {
    const Computer computer("[10.1.1.1]\n");
    writeText(computer.phonebook(), handWritten);
    CHECK(namesIn(computer.phonebook()) == std::vector<std::string>{"by hand"});
    const RASENTRYA entry = readBack(computer, "by hand");
    CHECK(std::string(entry.szLocalPhoneNumber) == "10.1.1.1");
    CHECK(entry.dwType == RASET_Vpn);
    Dial dial(computer, "by hand");
    CHECK(dial.waitForEnd().back() == std::pair(RASCS_Connected, DWORD{0}));

    RASDIALPARAMSA params = dialParams("by hand", "stored");
    CHECK(RasSetEntryDialParamsA(computer.phonebook().c_str(), &params, TRUE) == 0);
    params = dialParams("by hand", "");
    BOOL hasPassword = TRUE;
    CHECK(RasGetEntryDialParamsA(computer.phonebook().c_str(), &params, &hasPassword) == 0);
    CHECK(std::string(params.szUserName) == "stored");
    CHECK(std::string(readBack(computer, "by hand").szLocalPhoneNumber) == "10.1.1.1");
}

TEST_CASE("what an entry lacks is refused") {
    const Computer computer;
    const std::string path = computer.phonebook();
    const auto refused = [&](DWORD code, auto change) {
        RASENTRYA entry = pptpEntry("10.1.1.1");
        change(entry);
        CHECK(write(path, "a", entry) == code);
    };
    refused(ERROR_INVALID_PARAMETER, [](RASENTRYA& entry) { entry.szDeviceType[0] = 0; });
    refused(ERROR_INVALID_PARAMETER, [](RASENTRYA& entry) { entry.szLocalPhoneNumber[0] = 0; });
    refused(ERROR_INVALID_PARAMETER, [](RASENTRYA& entry) { entry.dwFramingProtocol = 0; });
    refused(ERROR_INVALID_PARAMETER,
            [](RASENTRYA& entry) { std::strcpy(entry.szLocalPhoneNumber, "1\r\n[b]"); });
    refused(ERROR_DEVICETYPE_DOES_NOT_EXIST,
            [](RASENTRYA& entry) { std::strcpy(entry.szDeviceType, "modem"); });
    refused(ERROR_INVALID_SIZE, [](RASENTRYA& entry) { entry.dwSize = entrySize + 4; });
    CHECK(write(path, "a", pptpEntry("10.1.1.1"), entrySize - 1) == ERROR_BUFFER_INVALID);
    CHECK(RasSetEntryPropertiesA(path.c_str(), "a", nullptr, 0, nullptr, 0) == ERROR_BUFFER_INVALID);
    CHECK(RasSetEntryPropertiesA(path.c_str(), nullptr, nullptr, 0, nullptr, 0) == ERROR_INVALID_PARAMETER);
    CHECK(write(computer.path("no folder\\test.pbk"), "a") == ERROR_CANNOT_OPEN_PHONEBOOK);
    CHECK(GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES);
}

TEST_CASE("fields that are full and not terminated are read to their end") {
    const Computer computer("[" + std::string(128, '9') + "]\n");
    RASENTRYA entry = pptpEntry("");
    std::memset(entry.szLocalPhoneNumber, '9', sizeof entry.szLocalPhoneNumber);
    entry.dwAlternateOffset = 0x39393939;
    REQUIRE(write(computer.phonebook(), "a", entry) == 0);
    CHECK(std::string(readBack(computer, "a").szLocalPhoneNumber) == std::string(128, '9'));

    RASDIALPARAMSA params = dialParams("a");
    std::memset(params.szPhoneNumber, '9', sizeof params.szPhoneNumber);
    std::memset(params.szPassword, 'p', sizeof params.szPassword);
    Dial dial(computer, params);
    dial.waitForEnd();
    CHECK(statusOf(dial.handle).number == std::string(128, '9'));
}

TEST_CASE("entries of a phonebook are listed in its order, in the size of the caller's generation") {
    const Computer computer;
    const std::string path = computer.phonebook();
    for (const char* name : {"b", "a", "c"})
        computer.addEntry(name);
    CHECK(namesIn(path) == std::vector<std::string>{"b", "a", "c"});
    const Entries all = entriesOf(path.c_str());
    CHECK(all.bytes == 3 * entryNameSize);
    CHECK(std::string(all.names[2].szPhonebookPath) == path);
    CHECK(all.names[2].dwFlags == REN_User);

    std::vector<char> room(3 * 264 + 1, 'x');
    auto* names = reinterpret_cast<RASENTRYNAMEA*>(room.data());
    names->dwSize = 264;
    DWORD bytes = 3 * 264, count = 0;
    CHECK(RasEnumEntriesA(nullptr, path.c_str(), names, &bytes, &count) == 0);
    CHECK(std::string(room.data() + 2 * 264 + 4) == "c");
    CHECK(room.back() == 'x');
    bytes = 3 * 264 - 1;
    CHECK(RasEnumEntriesA(nullptr, path.c_str(), names, &bytes, &count) == ERROR_BUFFER_TOO_SMALL);
    CHECK(bytes == 3 * 264);
    CHECK(count == 3);
    names->dwSize = 265;
    CHECK(RasEnumEntriesA(nullptr, path.c_str(), names, &bytes, &count) == ERROR_INVALID_SIZE);
    CHECK(RasEnumEntriesA(nullptr, path.c_str(), nullptr, &bytes, &count) == ERROR_BUFFER_TOO_SMALL);
    CHECK(bytes == 3 * entryNameSize);
    CHECK(RasEnumEntriesA("x", path.c_str(), nullptr, &bytes, &count) == ERROR_INVALID_PARAMETER);
    CHECK(RasEnumEntriesA(nullptr, path.c_str(), nullptr, nullptr, &count) == ERROR_INVALID_PARAMETER);
}

TEST_CASE("a phonebook that is not there has no entries; a folder is no phonebook") {
    const Computer computer;
    const std::string absent = computer.phonebook();
    const std::string folder = computer.path(".");
    CHECK(entriesOf(absent.c_str()).result == 0);
    CHECK(entriesOf(absent.c_str()).names.empty());
    CHECK(entriesOf(folder.c_str()).result == ERROR_CANNOT_OPEN_PHONEBOOK);
    for (const std::string& path : {absent, folder}) {
        RASDIALPARAMSA params = dialParams("a");
        BOOL hasPassword = FALSE;
        CHECK(RasRenameEntryA(path.c_str(), "a", "b") == ERROR_CANNOT_OPEN_PHONEBOOK);
        CHECK(RasDeleteEntryA(path.c_str(), "a") == ERROR_CANNOT_OPEN_PHONEBOOK);
        CHECK(RasValidateEntryNameA(path.c_str(), "a") == ERROR_CANNOT_OPEN_PHONEBOOK);
        CHECK(RasSetEntryDialParamsA(path.c_str(), &params, TRUE) == ERROR_CANNOT_OPEN_PHONEBOOK);
        CHECK(RasGetEntryDialParamsA(path.c_str(), &params, &hasPassword) == ERROR_CANNOT_OPEN_PHONEBOOK);
    }
    CHECK(write(folder, "a") == ERROR_CANNOT_OPEN_PHONEBOOK);
}

TEST_CASE("names are checked for new entries") {
    const Computer computer;
    computer.addEntry("taken");
    const auto [name, code] = GENERATE(table<std::string, DWORD>({
        {"free", 0},
        {"node7 #0", 0},
        {"[a] b]", 0},
        {std::string(256, 'n'), 0},
        {"TAKEN", ERROR_ALREADY_EXISTS},
        {"", ERROR_INVALID_NAME},
        {"   ", ERROR_INVALID_NAME},
        {"###", ERROR_INVALID_NAME},
        {".hidden", ERROR_INVALID_NAME},
        {"a\\b", ERROR_INVALID_NAME},
        {"a:b", ERROR_INVALID_NAME},
        {"a;b", ERROR_INVALID_NAME},
        {"a\nb", ERROR_INVALID_NAME},
        {std::string(257, 'n'), ERROR_INVALID_NAME},
    }));
    INFO(name);
    CHECK(RasValidateEntryNameA(computer.phonebook().c_str(), name.c_str()) == code);
    CHECK(write(computer.phonebook(), name) == (code == ERROR_ALREADY_EXISTS ? 0 : code));
    if (code == 0)
        CHECK(namesIn(computer.phonebook()) == std::vector<std::string>{"taken", name});
}

TEST_CASE("an entry is renamed") {
    const Computer computer;
    computer.addEntry("a");
    computer.addEntry("b");
    const std::string path = computer.phonebook();
    CHECK(RasRenameEntryA(path.c_str(), "a", "B") == ERROR_ALREADY_EXISTS);
    CHECK(RasRenameEntryA(path.c_str(), "x", "y") == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY);
    CHECK(RasRenameEntryA(path.c_str(), "a", ".c") == ERROR_INVALID_NAME);
    CHECK(RasRenameEntryA(path.c_str(), "a", std::string(257, 'n').c_str()) == ERROR_INVALID_NAME);
    CHECK(RasRenameEntryA(path.c_str(), "a", nullptr) == ERROR_INVALID_PARAMETER);
    CHECK(namesIn(path) == std::vector<std::string>{"a", "b"});
    CHECK(RasRenameEntryA(path.c_str(), "A", "c:d") == 0);
    CHECK(RasRenameEntryA(path.c_str(), "b", "B") == 0);
    CHECK(namesIn(path) == std::vector<std::string>{"c:d", "B"});
}

TEST_CASE("an entry is deleted, but not while it is connected") {
    const Computer computer("[10.1.1.1]\n");
    computer.addEntry("a");
    computer.addEntry("b");
    const std::string phonebook = computer.phonebook();
    {
        Dial dial(computer, "a");
        dial.waitForEnd();
        CHECK(RasDeleteEntryA(phonebook.c_str(), "A") == ERROR_CANNOT_DELETE);
    }
    CHECK(RasDeleteEntryA(phonebook.c_str(), "A") == 0);
    CHECK(RasDeleteEntryA(phonebook.c_str(), "a") == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY);
    CHECK(namesIn(phonebook) == std::vector<std::string>{"b"});
}

TEST_CASE("without a path, entries live in the phonebook of all users") {
    const Computer computer;
    const std::string name = "standin ras test " + std::to_string(GetCurrentProcessId());
    RASENTRYA entry = pptpEntry("10.1.1.1");
    REQUIRE(RasSetEntryPropertiesA(nullptr, name.c_str(), &entry, entrySize, nullptr, 0) == 0);
    char folder[MAX_PATH];
    SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
    const std::string path = std::string(folder) + "\\Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk";

    const Entries all = entriesOf(nullptr);
    CHECK(all.result == 0);
    const auto found = std::find_if(all.names.begin(), all.names.end(),
                                    [&](const RASENTRYNAMEA& each) { return each.szEntryName == name; });
    REQUIRE(found != all.names.end());
    CHECK(std::string(found->szPhonebookPath) == path);
    CHECK(found->dwFlags == REN_AllUsers);
    CHECK(RasDeleteEntryA(path.c_str(), name.c_str()) == 0);
    CHECK(RasDeleteEntryA(nullptr, name.c_str()) == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY);
}

TEST_CASE("work on phonebooks waits for the system's phonebook mutex") {
    const Computer computer;
    computer.addEntry("a");
    const HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, "RasPbFile");
    REQUIRE(mutex);
    REQUIRE(WaitForSingleObject(mutex, patience) == WAIT_OBJECT_0);
    const HANDLE listed = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::thread listing([&] {
        entriesOf(computer.phonebook().c_str());
        SetEvent(listed);
    });
    CHECK(WaitForSingleObject(listed, 30) == WAIT_TIMEOUT);
    ReleaseMutex(mutex);
    CHECK(WaitForSingleObject(listed, patience) == WAIT_OBJECT_0);
    listing.join();
    CloseHandle(listed);
    CloseHandle(mutex);
}
