#include "outside/Helper.h"
#include "tests/outside/module_imports.h"

#include <shlobj.h>

namespace {

using namespace std::string_literals;

constexpr FallibleCall fallible[] = {{"GetFileVersionInfoSizeA"},
                                     {"GetFileVersionInfoA"},
                                     {"VerQueryValueA"},
                                     {"SHGetFolderPathA", 0x80004005}};
using Failing = FailingCalls<fallible>;

const HMODULE helper = GetModuleHandleW(L"Helper.dll");

std::string privatePath(const std::string& workingFolder, const char* id, const char* file) {
    SetEnvironmentVariableA("TAVIK_WORKING_FOLDER", workingFolder.c_str());
    return GetPrivateConfigPathName(id, file);
}

// What is made of a name that is taken: the peer id, the number and the whole.
std::string partsOf(const std::string& name) {
    std::string id, number, whole;
    const bool taken = CheckIdFormat(nullptr, name, &id, &number, &whole);
    return taken ? id + "|" + number + "|" + whole : "refused";
}

} // namespace

TEST_CASE("A name is a peer id, with or without a number; a private path takes the id alone") {
    for (const auto& id : {"n"s, "0"s, "node-7_x.y@z"s, "a-"s, "a_"s, "com"s, "com10"s, "nul7"s, "lpt"s,
                           "xcon"s, "com1x.y"s, std::string(128, 'a')}) {
        CHECK(partsOf(id) == id + "||" + id);
        CHECK(partsOf(id + " #0123456789") == id + "|0123456789|" + id + " #0123456789");
        CHECK(privatePath("C:\\work", id.c_str(), "a.pbk") == "C:\\work\\" + id + "\\a.pbk");
    }
    for (const std::string id : {"",   "-a",  "_a",   ".a",  "@a",  "a.",   "a@",       "a b",    "a ",
                                 " a", "a#",  "a\\b", "a/b", "a:b", "a\nb", "\xC3\xA9", "[a",     "{a",
                                 "`a", "con", "prn",  "aux", "NUL", "Com1", "lpt9.x",   "con.x.y"}) {
        CHECK(partsOf(id) == "refused");
        CHECK(partsOf(id + " #1") == "refused");
        CHECK(privatePath("C:\\work", id.c_str(), "a.pbk") == "");
    }
    for (const char* name : {"a #", "a #x", "a#1", "a # 1", "a #1 ", "a #1 #2", "a #12345678901", "a\\b #1"})
        CHECK(partsOf(name) == "refused");
    CHECK(partsOf("AZ7 #012") == "az7|012|az7 #012");
    CHECK(partsOf("a\0b"s) + partsOf(std::string(129, 'a')) == "refusedrefused");
    const std::set<std::string> known{"Node7", "other"};
    CHECK(CheckIdFormat(&known, "nODE7 #012", nullptr, nullptr, nullptr));
    CHECK_FALSE(CheckIdFormat(&known, "stranger #1", nullptr, nullptr, nullptr));
    std::string same = "NODE7 #3";
    CHECK(CheckIdFormat(nullptr, same, &same, nullptr, nullptr));
    CHECK(same == "node7");
}

TEST_CASE("Texts are made UTF-16, UTF-8 and small; numbers and addresses are written") {
    const std::string narrow = "a\0\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF"s;
    const std::wstring wide = L"a\0\x7F\x80\x7FF\x800\xD7FF\xE000\xDBFF\xDFFF"s;
    CHECK(utf82unicode(narrow) == wide);
    CHECK(unicode2utf8(wide) == narrow);
    CHECK(utf82unicode("a\xC3(b\x80\xFF\xC0\x80") == L"a\uFFFD(b\uFFFD\uFFFD\uFFFD\uFFFD");
    CHECK(utf82unicode("\xF4\x90\x80\x80x\xE4\xB8") == L"\uFFFD\uFFFD\uFFFD\uFFFDx\uFFFD\uFFFD");
    CHECK(unicode2utf8(L"a\xD83D"s + L"b\xDE00") == "a\xEF\xBF\xBD"s + "b\xEF\xBF\xBD");
    std::string letters = "AIZ@[\xC9";
    Convert2LowCase(letters);
    CHECK(letters == "aiz@[\xC9");
    std::wstring wideLetters = L"AIZ@[\u03A3\u0416\uFF21" + std::wstring(3'000'000, L'\u00C9');
    Convert2LowCaseW(wideLetters);
    CHECK((wideLetters == L"aiz@[\u03C3\u0436\uFF41" + std::wstring(3'000'000, L'\u00E9')));
    CHECK(ip2string(0x7F000001) + " " + ip2string(0xFFFE0A63) == "127.0.0.1 255.254.10.99");
    CHECK(int2stru(4'294'967'295) + " " + uin2string(4'294'967'295) == "4294967295 4294967295");
    CHECK(int2strd(-2'147'483'647) + " " + int2strd(0) == "-2147483647 0");
}

TEST_CASE("The private path lies below the working folder, or is empty") {
    char common[MAX_PATH] = "";
    SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common);
    Failing::inTurn([usual = common + "\\Tavik\\peers\\Node7\\pptp.pbk"s] {
        const Failing failing(helper);
        const std::string path = privatePath("", "Node7", "pptp.pbk");
        CHECK(path == (Failing::failed.empty() ? usual : ""));
    });
    ModuleImports imports(helper);
    imports.on("IsDBCSLeadByte", [](BYTE first) -> BOOL { return first == 0x95; });
    CHECK(privatePath("C:\\", "node7", "pptp.pbk") == "C:\\node7\\pptp.pbk");
    CHECK(privatePath("C:\\\x95\\", "n", "a") == "C:\\\x95\\\\n\\a"); // the second half of a character
    for (const char* file : {"", ".", "..", "a\\b", "a/b", "c:b", "nul", "nul .pbk", "clock$", "CONIN$",
                             "conout$.x", "a*", "a.", "a ", "a\n", "a\x1F"})
        CHECK(privatePath("C:", "node7", file) == "");
    CHECK(privatePath("C:", nullptr, "pptp.pbk") == "");
    CHECK(privatePath("C:", "n", " \x7F") == "C:\\n\\ \x7F");
    CHECK(privatePath(std::string(MAX_PATH - 5, 'x'), "n", "b").size() == MAX_PATH - 1);
    CHECK(privatePath(std::string(MAX_PATH - 4, 'x'), "n", "b") == "");
    CHECK(PathName2Name("C:\\drivers\\A.SYS") == "A.SYS");
    CHECK(PathName2Name("A\\") == "");
    CHECK(PathName2Name("C:\\\x95\\.sys") == "\x95\\.sys");
}

TEST_CASE("A file is one that exists and is no folder; its version is 0 when it cannot be read") {
    char path[MAX_PATH] = "";
    GetModuleFileNameA(helper, path, MAX_PATH);
    CHECK(IsFileExist(path));
    CHECK_FALSE((IsFileExist("C:\\windows") || IsFileExist("C:\\missing") || IsFileExist(nullptr)));
    Failing::inTurn([&path] {
        const Failing failing(helper);
        const unsigned long long version = GetFileVersion(path);
        CHECK(version == (Failing::failed.empty() ? PRODUCT_VERSION : 0));
    });
}

TEST_CASE("Windows' generation, width and language") {
    RTL_OSVERSIONINFOEXW windows{};
    WORD processor = 0, language = 0;
    ModuleImports imports(helper);
    imports.on("RtlGetVersion", [&](RTL_OSVERSIONINFOEXW* version) -> LONG {
        *version = windows;
        return 0;
    });
    imports.on("GetNativeSystemInfo", [&](SYSTEM_INFO* told) { told->wProcessorArchitecture = processor; });
    imports.on("GetSystemDefaultUILanguage", [&] { return language; });
    std::string seen;
    for (windows.wProductType = VER_NT_WORKSTATION; windows.wProductType <= VER_NT_SERVER;
         ++windows.wProductType)
        for (const DWORD version : {40u, 50u, 51u, 52u, 53u, 60u, 61u, 100u}) {
            windows.dwMajorVersion = version / 10;
            windows.dwMinorVersion = version % 10;
            seen += IsWin2K() ? "2" : IsWinXP() ? "X" : IsWin6Plus() ? "6" : "-";
        }
    CHECK(seen == "-2XX-666-2X--666-2X--666");
    for (; processor < 14; ++processor)
        seen += GetIs64Os() ? "6" : "-";
    CHECK(seen.substr(24) == "------6--6--6-"); // Itanium, x64 and ARM
    for (; language < 0x1800; ++language)
        CHECK(IsChineseOs() == (language % 0x400 == LANG_CHINESE));
}
