#include "outside/Helper.h"
#include "tests/kit/import_table.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include <shlobj.h>

#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

class WorkingFolder {
  public:
    explicit WorkingFolder(const std::string& path) {
        SetEnvironmentVariableA("TAVIK_WORKING_FOLDER", path.c_str());
    }
    ~WorkingFolder() { SetEnvironmentVariableA("TAVIK_WORKING_FOLDER", nullptr); }
};

std::string commonFolder() {
    char path[MAX_PATH] = "";
    REQUIRE(SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path) == S_OK);
    return path;
}

bool isId(const std::string& text) {
    return CheckIdFormat(nullptr, text, nullptr, nullptr, nullptr);
}

std::wstring registryText(const wchar_t* key, const wchar_t* value) {
    wchar_t text[64] = L"";
    DWORD size = sizeof text;
    HKEY opened = nullptr;
    REQUIRE(RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &opened) == ERROR_SUCCESS);
    CHECK(RegQueryValueExW(opened, value, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size) ==
          ERROR_SUCCESS);
    RegCloseKey(opened);
    return text;
}

RTL_OSVERSIONINFOEXW windows;

LONG NTAPI tellSystem(RTL_OSVERSIONINFOW* version) {
    if (version->dwOSVersionInfoSize != sizeof windows)
        return -1;
    windows.dwOSVersionInfoSize = sizeof windows;
    *reinterpret_cast<RTL_OSVERSIONINFOEXW*>(version) = windows;
    return 0;
}

LANGID language;

std::string besideThisProgram(const char* file) {
    char path[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    return (fs::path(path).parent_path() / file).string();
}

} // namespace

TEST_CASE("Peer ids and the entry names made from them are accepted") {
    const std::vector<std::string> names{"node7",     "Node7",
                                         "7",         "user@example.com",
                                         "a-b_c.d@e", "x_",
                                         "x-",        "a..b",
                                         "com",       "com10",
                                         "conx",      "con1",
                                         "com1x",     "node7 #0",
                                         "node7 #12", "NODE7 #2147483647",
                                         "nul-1 #3",  std::string(127, 'a') + "b #0"};
    for (const auto& name : names) {
        CAPTURE(name);
        CHECK(isId(name));
    }
}

TEST_CASE("Everything else is refused as a peer id") {
    const std::vector<std::string> misplaced{"",   " ",  ".",  "..",  "...",
                                             "-a", "_a", ".a", "@a",  "a.",
                                             "a@", "a ", " a", "a b", std::string(129, 'a')};
    const std::vector<std::string> paths{
        "a\\b", "a/b", "..\\a", "a\\..\\..\\b", "c:", "c:a", "a*", "a?", "a|b", "a~1"};
    const std::vector<std::string> characters{"a\"b",  "a%b",  "a$",    "a\tb",    "a\nb",
                                              "a\x7F", "a\0"s, "a\0b"s, "caf\xE9", "\xC3\xA9t\xC3\xA9"};
    const std::vector<std::string> devices{"con",     "CON",     "Prn",    "aux",    "NUL",
                                           "nul.txt", "con.a.b", "COM0",   "com1",   "Com9.log",
                                           "lpt1",    "LPT9",    "conin$", "CLOCK$", "con #1"};
    const std::vector<std::string> numbers{"node7#1",     "node7 #",     "node7 # 1",
                                           "node7 #-1",   "node7 #+1",   "node7 #1 ",
                                           "node7  #1",   "node7 #1a",   "node7 #12345678901",
                                           "node7 #1 #2", "node7 #1\0"s, " #1",
                                           "#1",          "a. #1",       "node7 1"};
    for (const auto& names : {misplaced, paths, characters, devices, numbers})
        for (const auto& name : names) {
            CAPTURE(name);
            CHECK_FALSE(isId(name));
        }
}

TEST_CASE("CheckIdFormat gives the parts of a name, and only on success") {
    const std::set<std::string> known{"Node7", "other"};
    std::string id = "-", number = "-", whole = "-";
    CHECK(CheckIdFormat(&known, "nODE7 #012", &id, &number, &whole));
    CHECK(id == "node7");
    CHECK(number == "012");
    CHECK(whole == "node7 #012");
    CHECK(CheckIdFormat(&known, "Other", &id, &number, nullptr));
    CHECK(id == "other");
    CHECK(number.empty());

    CHECK_FALSE(CheckIdFormat(&known, "stranger #1", &id, &number, &whole));
    CHECK_FALSE(CheckIdFormat(nullptr, "other #x", &id, &number, &whole));
    CHECK(id == "other");
    CHECK(whole == "node7 #012");

    std::string same = "NODE7 #3";
    CHECK(CheckIdFormat(nullptr, same, &same, &number, nullptr));
    CHECK(same == "node7");
    CHECK(number == "3");
}

TEST_CASE("The private path lies in the peer's folder below the working folder, or is empty") {
    CHECK(GetWorkingPath() == commonFolder() + "\\Tavik\\peers");
    CHECK(GetPrivateConfigPathName("Node7", "pptp.pbk") ==
          commonFolder() + "\\Tavik\\peers\\Node7\\pptp.pbk");

    const WorkingFolder chosen("C:\\work");
    CHECK(GetWorkingPath() == "C:\\work");
    CHECK(GetPrivateConfigPathName("node7", "pptp.pbk") == "C:\\work\\node7\\pptp.pbk");
    for (const char* id : {"", ".", "..", "..\\node7", "node7\\x", "c:", "con", "node7 #1", "node7."})
        CHECK(GetPrivateConfigPathName(id, "pptp.pbk").empty());
    for (const char* file :
         {"", ".", "..", "a\\b", "a/b", "c:b", "nul", "nul .pbk", "a*", "a.", "a ", "a\nb"})
        CHECK(GetPrivateConfigPathName("node7", file).empty());
    CHECK(GetPrivateConfigPathName(nullptr, "pptp.pbk").empty());
    CHECK(GetPrivateConfigPathName("node7", nullptr).empty());

    const WorkingFolder root("C:\\");
    CHECK(GetPrivateConfigPathName("node7", "pptp.pbk") == "C:\\node7\\pptp.pbk");

    const WorkingFolder longest("C:\\" +
                                std::string(MAX_PATH - 1 - std::strlen("C:\\\\node7\\pptp.pbk"), 'x'));
    CHECK(GetPrivateConfigPathName("node7", "pptp.pbk").size() == MAX_PATH - 1);
    CHECK(GetPrivateConfigPathName("node77", "pptp.pbk").empty());
}

TEST_CASE("A file exists, a folder or nothing does not count") {
    const fs::path folder = fs::temp_directory_path() / "helper_test";
    fs::create_directories(folder);
    const auto file = (folder / "file").string();
    std::ofstream(file) << "x";
    CHECK(IsFileExist(file.c_str()));
    CHECK_FALSE(IsFileExist(folder.string().c_str()));
    CHECK_FALSE(IsFileExist((file + "2").c_str()));
    CHECK_FALSE(IsFileExist((folder / "*").string().c_str()));
    CHECK_FALSE(IsFileExist(""));
    CHECK_FALSE(IsFileExist(nullptr));
    fs::remove_all(folder);
}

TEST_CASE("The last component of a path") {
    CHECK(PathName2Name("C:\\Windows\\system32\\drivers\\KESTRIN.SYS") == "KESTRIN.SYS");
    CHECK(PathName2Name("KESTRIN.SYS") == "KESTRIN.SYS");
    CHECK(PathName2Name("C:\\drivers\\").empty());
    CHECK(PathName2Name("").empty());
    CHECK(PathName2Name("a/b") == "a/b");
    // In Chinese and Japanese code pages the second byte of a character may be that of a backslash.
    const bool pairs = IsDBCSLeadByte(0x95) != FALSE;
    CHECK(PathName2Name("C:\\\x95\x5C.sys") == (pairs ? "\x95\x5C.sys" : ".sys"));
}

TEST_CASE("Addresses and numbers as text") {
    CHECK(ip2string(0x7F000001) == "127.0.0.1");
    CHECK(ip2string(0xFFFEFD00) == "255.254.253.0");
    CHECK(ip2string(0) == "0.0.0.0");
    CHECK(int2stru(0xFFFFFFFF) == "4294967295");
    CHECK(uin2string(0xFFFFFFFF) == "4294967295");
    CHECK(int2strd(-2147483647 - 1) == "-2147483648");
    CHECK(int2strd(0) == "0");
}

TEST_CASE("Lower case: letters A to Z of a narrow text, all letters of a wide one") {
    std::string narrow = "AZaz@[`{019I\xC4\xD6"s + '\0' + "Z";
    Convert2LowCase(narrow);
    CHECK(narrow == "azaz@[`{019i\xC4\xD6"s + '\0' + "z");

    std::wstring wide = L"AZ[I \u00C4\u00D6\u0410\u042F\u0391\u4E2D"s + L'\0' + L"Z";
    Convert2LowCaseW(wide);
    CHECK(wide == L"az[i \u00E4\u00F6\u0430\u044F\u03B1\u4E2D"s + L'\0' + L"z");

    std::wstring huge(3'000'001, L'X');
    Convert2LowCaseW(huge);
    CHECK(huge == std::wstring(3'000'001, L'x'));
}

TEST_CASE("Every character survives the way from UTF-16 to UTF-8 and back, as the system encodes it") {
    std::wstring all;
    for (wchar_t c = 0; c < 0xD800; ++c)
        all += c;
    for (unsigned int c = 0xE000; c < 0x10000; ++c)
        all += static_cast<wchar_t>(c);
    for (unsigned int c = 0x10000; c < 0x110000; c += 0x101) {
        all += static_cast<wchar_t>(0xD7C0 + (c >> 10));
        all += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
    }
    const int units = static_cast<int>(all.size());
    std::string expected(4 * all.size(), '\0');
    expected.resize(
        static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, all.data(), units, expected.data(),
                                                     static_cast<int>(expected.size()), nullptr, nullptr)));
    CHECK((unicode2utf8(all) == expected));
    CHECK((utf82unicode(expected) == all));
}

TEST_CASE("What is no valid text is replaced, and nothing beside it is lost") {
    const std::vector<std::pair<std::string, std::wstring>> toWide{
        {"a\xC3(b", L"a\uFFFD(b"},                         // a lead byte without its rest
        {"\x80\xFF", L"\uFFFD\uFFFD"},                     // no lead bytes
        {"\xC0\x80", L"\uFFFD\uFFFD"},                     // zero in two bytes
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},           // half of a pair
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}, // beyond the last character
        {"x\xE4\xB8", L"x\uFFFD\uFFFD"},                   // cut off
        {"a\0b"s, L"a\0b"s},
    };
    for (const auto& [text, expected] : toWide)
        CHECK(utf82unicode(text) == expected);
    const std::wstring high = L"\xD83D", low = L"\xDE00";
    CHECK(unicode2utf8(L"a" + high + L"b") == "a\xEF\xBF\xBD"s + "b");
    CHECK(unicode2utf8(low + high) == "\xEF\xBF\xBD\xEF\xBF\xBD");
    CHECK(unicode2utf8(high) == "\xEF\xBF\xBD");
    CHECK(unicode2utf8(L"").empty());
}

TEST_CASE("The version of a file") {
    constexpr auto product = static_cast<unsigned long long>(PRODUCT_VERSION_MAJOR) << 48 |
                             static_cast<unsigned long long>(PRODUCT_VERSION_MINOR) << 32;
    const auto version = GetFileVersion(besideThisProgram("Log.dll"));
    CHECK(version >> 32 == product >> 32);
    CHECK(version == GetFileVersion(besideThisProgram("Helper.dll")));
    CHECK(GetFileVersion(besideThisProgram("helper_test.exe")) == 0);
    CHECK(GetFileVersion(besideThisProgram("missing.dll")) == 0);
    CHECK(GetFileVersion("") == 0);
}

TEST_CASE("The Windows generation is the one that the registry tells") {
    const std::wstring version =
        registryText(L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"CurrentVersion");
    CHECK(IsWin2K() == (version == L"5.0"));
    CHECK(IsWin6Plus() == (std::stoi(version) >= 6));
    CHECK(GetIs64Os());
}

TEST_CASE("Each Windows generation is told from the others") {
    struct Row {
        DWORD major, minor;
        BYTE type;
        bool win2K, winXP, win6Plus;
    };
    const auto row = GENERATE(values<Row>({
        {5, 0, VER_NT_WORKSTATION, true, false, false},
        {5, 1, VER_NT_WORKSTATION, false, true, false},
        {5, 2, VER_NT_WORKSTATION, false, true, false}, // the 64-bit XP
        {5, 2, VER_NT_SERVER, false, false, false},
        {5, 2, VER_NT_DOMAIN_CONTROLLER, false, false, false},
        {6, 0, VER_NT_WORKSTATION, false, false, true},
        {6, 1, VER_NT_SERVER, false, false, true},
        {10, 0, VER_NT_WORKSTATION, false, false, true},
    }));
    windows.dwMajorVersion = row.major;
    windows.dwMinorVersion = row.minor;
    windows.wProductType = row.type;
    ImportTable imports(GetModuleHandleW(L"Helper.dll"));
    REQUIRE(imports.replace("RtlGetVersion", reinterpret_cast<void*>(tellSystem)));
    CAPTURE(row.major, row.minor);
    CHECK(IsWin2K() == row.win2K);
    CHECK(IsWinXP() == row.winXP);
    CHECK(IsWin6Plus() == row.win6Plus);
}

TEST_CASE("Chinese of any region is Chinese") {
    ImportTable imports(GetModuleHandleW(L"Helper.dll"));
    REQUIRE(imports.replace("GetSystemDefaultUILanguage", reinterpret_cast<void*>(+[] { return language; })));
    for (const auto chinese : std::initializer_list<LANGID>{0x0804, 0x0404, 0x0C04, 0x1004, 0x1404}) {
        language = chinese;
        CHECK(IsChineseOs());
    }
    for (const auto other : std::initializer_list<LANGID>{0x0409, 0x0411, 0x0412, 0x0407, 0x0000}) {
        language = other;
        CHECK_FALSE(IsChineseOs());
    }
}
