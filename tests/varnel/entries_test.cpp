// The peers' entries in phonebooks: how they are named, written, found and removed.
#include "tests/kit/varnel_test.h"

#include <cstring>
#include <optional>

#include <raserror.h>

class Entries : public VarnelTest {
  protected:
    std::pair<std::string, std::string> create(bool encryption = false, bool inPublic = false) {
        VARNEL::INFO info{peer, 0x0A0B0C0D};
        return privates::createEntry(&info, inPublic, encryption);
    }
    Lines names(const std::string& phoneBook) {
        Lines found;
        for (const RASENTRYNAMEA& entry : privates::getAllEntries(phoneBook))
            found.emplace_back(entry.szEntryName);
        return found;
    }
};

TEST_CASE_METHOD(VarnelTest, "a name belongs to a peer when it is the id, or the id and a suffix") {
    struct {
        const char *name, *id;
        bool belongs;
    } const cases[] = {
        {"p1", "p1", true},      {"P1", "p1", true},   {"p1", "P1", true},      {"p1 #4", "P1", true},
        {"P1 #4", "p1", true},   {"p1 #", "p1", true}, {"p1 #x y", "p1", true}, {"p1#4", "p1", false},
        {"p1 4", "p1", false},   {"p1 ", "p1", false}, {"p10", "p1", false},    {"p12 #0", "p1", false},
        {"xp1 #0", "p1", false}, {"p", "p1", false},   {"", "p1", false},       {"", "", true},
        {" #0", "", true},       {"p1 #0", "", false}, {"p1 #1", "p1 #1", true}};
    for (const auto& c : cases) {
        INFO("'" << c.name << "' of '" << c.id << "'");
        CHECK(privates::matchId(c.name, c.id) == c.belongs);
    }
}

TEST_CASE_METHOD(VarnelTest, "a peer's suffix number stays until it is advanced, whatever the letter case") {
    std::string upper = peer;
    for (char& c : upper)
        c = static_cast<char>(std::toupper(c));
    CHECK(privates::getEntryNameWithSuffix(peer, false) == entry(0));
    CHECK(privates::getEntryNameWithSuffix(upper, false) == entry(0));
    CHECK(privates::getEntryNameWithSuffix(upper, true) == entry(1));
    CHECK(privates::getEntryNameWithSuffix(peer, false) == entry(1));
    CHECK(privates::getEntryNameWithSuffix(peer, true) == entry(2));
    CHECK(privates::getEntryNameWithSuffix(peer + "b", true).ends_with("b #1"));
}

TEST_CASE_METHOD(Entries, "an entry is a PPTP connection and nothing else, byte for byte") {
    const bool encryption = GENERATE(false, true);
    CHECK(create(encryption) == std::pair(book(), entry()));
    RASENTRYA expected = {};
    expected.dwSize = 2088;
    expected.dwfOptions = encryption ? 0x20001C00 : 0x08100000;
    std::strcpy(expected.szLocalPhoneNumber, "10.11.12.13");
    expected.dwfNetProtocols = 4;
    expected.dwFramingProtocol = 1;
    std::strcpy(expected.szDeviceType, "vpn");
    expected.dwIdleDisconnectSeconds = 0xFFFFFFFF;
    expected.dwType = 2;
    expected.dwEncryptionType = encryption ? 1 : 3;
    expected.dwVpnStrategy = 1;
    const ScriptedRas::Entry& written = ras.phoneBooks[book()].at(0);
    CHECK(std::memcmp(&written.properties, &expected, 2088) == 0);
    CHECK(written.userName == peer);
    CHECK(written.passwordRemoved);
    CHECK(log() == Lines{"3 RasSetEntryDialParams SUCCESS " + book() + ":" + entry()});
}

TEST_CASE_METHOD(Entries,
                 "the dial parameters stored with an entry name it and its user, and are zero otherwise") {
    RASDIALPARAMSA stored = {};
    before<"RasSetEntryDialParamsA">(
        [&stored](LPCSTR, LPRASDIALPARAMSA params, WINBOOL) { std::memcpy(&stored, params, sizeof stored); });
    create();
    RASDIALPARAMSA expected = {};
    expected.dwSize = 1064;
    std::strcpy(expected.szEntryName, entry().c_str());
    std::strcpy(expected.szUserName, peer.c_str());
    CHECK(std::memcmp(&stored, &expected, sizeof stored) == 0);
}

TEST_CASE_METHOD(Entries, "an entry that is there is written again under its name") {
    ras.phoneBooks[book()] = {{"other #0"}, {entry(3)}, {entry(7)}};
    CHECK(create() == std::pair(book(), entry(3)));
    CHECK(names(book()) == Lines{"other #0", entry(3), entry(7)});
}

TEST_CASE_METHOD(Entries, "an entry that cannot be written is logged with the service's code") {
    std::string expected;
    SECTION("the entry") {
        whenRasAnswers("RasSetEntryPropertiesA", {621});
        expected = "2 RasSetEntryProperties fail " + book() + ":" + entry() + " error 621";
    }
    SECTION("its user name; the entry stays") {
        whenRasAnswers("RasSetEntryDialParamsA", {ERROR_ACCESS_DENIED});
        expected = "2 RasSetEntryDialParams fail " + book() + ":" + entry() + " error 5";
    }
    CHECK(create() == std::pair(std::string(), std::string()));
    CHECK(log() == Lines{expected});
    CHECK(calls({"RasDelete"}) == Lines{});
}

TEST_CASE_METHOD(Entries, "no entry is made of an incomplete description") {
    using namespace std::string_literals;
    const auto refused = std::pair(""s, ""s);
    CHECK(privates::createEntry(nullptr, false, false) == refused);
    VARNEL::INFO info = GENERATE(values<VARNEL::INFO>({{"", 1}, {"..", 1}, {".", 1}, {"Node", 0}}));
    CHECK(privates::createEntry(&info, false, false) == refused);
    CHECK(calls() == Lines{});
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(Entries,
                 "without a public phonebook or a private folder the default phonebook takes the entry") {
    const bool inPublic = GENERATE(false, true);
    privates::publicPhoneBook.clear();
    if (!inPublic)
        on<"GetPrivateConfigPathName">([](const char*, const char*) { return std::string(); });
    CHECK(create(false, inPublic) == std::pair(std::string(), entry()));
    CHECK(calls({"RasSet"}) == Lines{"RasSetEntryPropertiesA(null, " + entry() + ", 2088, 0)",
                                     "RasSetEntryDialParamsA(null, " + entry() + ", 1)"});
}

TEST_CASE_METHOD(Entries, "entries are listed in as many bytes as the service asks for") {
    std::vector<SIZE_T> sizes;
    before<"HeapAlloc">([&sizes](HANDLE, DWORD flags, SIZE_T size) { sizes.push_back(size + flags); });
    ras.phoneBooks[book()] = {{"a #0"}, {"b #0"}, {"c #0"}};
    CHECK(names(book()) == Lines{"a #0", "b #0", "c #0"});
    CHECK(sizes == std::vector<SIZE_T>{532, 3 * 532});
    CHECK(names("C:\\no such book") == Lines{});
    CHECK(calls({"RasEnum"}) == Lines(2, "RasEnumEntriesA(null, " + book() + ")"));
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(Entries, "a listing that does not come about is logged and empty") {
    ras.phoneBooks[book()] = {{"a #0"}};
    std::string code;
    unsigned int attempts = 1;
    SECTION("because it never fits") {
        on<"RasEnumEntriesA">([](LPCSTR, LPCSTR, LPRASENTRYNAMEA, LPDWORD size, LPDWORD count) {
            *size += 532;
            *count = 9;
            return DWORD{ERROR_BUFFER_TOO_SMALL};
        });
        code = "603";
        attempts = 5;
    }
    SECTION("because the service asks for no room at all") {
        on<"RasEnumEntriesA">([](LPCSTR, LPCSTR, LPRASENTRYNAMEA, LPDWORD size, LPDWORD) {
            *size = 0;
            return DWORD{ERROR_BUFFER_TOO_SMALL};
        });
        code = "603";
        attempts = 5;
    }
    SECTION("because the service fails") {
        whenRasAnswers("RasEnumEntriesA", {621});
        code = "621";
    }
    SECTION("for want of memory") {
        Faults::plan(Fault{"HeapAlloc", 1, false});
        code = "8";
        attempts = 0;
    }
    CHECK(names(book()) == Lines{});
    CHECK(log() == Lines{"2 RasEnumEntries failed: error " + code});
    CHECK(timesCalled<"RasEnumEntriesA">() == attempts);
}

// A service that lies must not make the library read beyond what it was given: the kit would complain.
TEST_CASE_METHOD(Entries, "names without an end and a count too great are read as far as they go") {
    ras.phoneBooks[""] = {{std::string(300, 'n')}};
    const auto enumerate = current<"RasEnumEntriesA">();
    on<"RasEnumEntriesA">(
        [=](LPCSTR reserved, LPCSTR path, LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count) {
            const DWORD code = enumerate(reserved, path, first, size, count);
            std::memset(first->szPhonebookPath, 'p', sizeof first->szPhonebookPath);
            *count = 1'000;
            return code;
        });
    CHECK(privates::getAllEntries("").size() == 1);
    const std::string name(256, 'n');
    CHECK(privates::getCurrentEntryName("", name) == name);
    privates::removeEntries({name});
    CHECK(calls({"RasDelete"}) == Lines{"RasDeleteEntryA(" + std::string(260, 'p') + ", " + name + ")"});
}

TEST_CASE_METHOD(Entries, "a peer's current entry is the first that is listed") {
    ras.phoneBooks[book()] = {{"x" + entry()}, {entry(2)}, {entry(9)}};
    CHECK(privates::getCurrentEntryName(book(), peer) == entry(2));
    CHECK(privates::getCurrentEntryName(book(), "nobody") == "");
}

TEST_CASE_METHOD(Entries, "an entry is removed before Windows 6, under a trace") {
    ras.phoneBooks[book()] = {{entry()}};
    CHECK_FALSE(privates::removeEntry(book(), ""));
    privates::isWin6Plus = true;
    CHECK(privates::removeEntry(book(), entry()));
    privates::removeEntries({peer});
    CHECK(calls() == Lines{});
    CHECK(trace() == Lines{});

    privates::isWin6Plus = false;
    CHECK(privates::removeEntry(book(), entry()));
    CHECK_FALSE(privates::removeEntry(book(), entry()));
    CHECK(log() == Lines{"2 RasDeleteEntry fail " + book() + ":" + entry() + " error 623"});
    CHECK(trace().front() == "3 ==>>VARNEL::removeEntry(" + book() + ":" + entry() + ")\n");
    CHECK_FALSE(privates::removeEntry("", entry()));
    CHECK(calls().back() == "RasDeleteEntryA(null, " + entry() + ")");
}

TEST_CASE_METHOD(Entries, "the entries of many peers are removed where they are listed, each once") {
    ras.phoneBooks["C:\\all\\rasphone.pbk"] = {{"p1 #0"}, {"stranger"}, {"P2 #3"}, {"p1 #1"}};
    ras.phoneBooks["C:\\my\\rasphone.pbk"] = {{"p2"}, {"p22 #0"}};
    whenRasAnswers("RasDeleteEntryA", {ERROR_ACCESS_DENIED});
    privates::removeEntries({"P1", "p2", "p1"});
    CHECK(calls() == Lines{"RasEnumEntriesA(null, null)", "RasEnumEntriesA(null, null)",
                           "RasDeleteEntryA(C:\\all\\rasphone.pbk, p1 #0)",
                           "RasDeleteEntryA(C:\\all\\rasphone.pbk, P2 #3)",
                           "RasDeleteEntryA(C:\\all\\rasphone.pbk, p1 #1)",
                           "RasDeleteEntryA(C:\\my\\rasphone.pbk, p2)"});
    privates::removeEntries({});
    CHECK(timesCalled<"RasEnumEntriesA">() == 2);
}
