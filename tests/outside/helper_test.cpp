#include "outside/Helper.h"
#include "tests/outside/module_imports.h"

#include <fmt/format.h>

#include <filesystem>
#include <random>
#include <regex>

#include <shlobj.h>

#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr FallibleCall fallible[] = {{"GetFileVersionInfoSizeA"},
                                     {"GetFileVersionInfoA"},
                                     {"VerQueryValueA"},
                                     {"SHGetFolderPathA", 0x80004005}};
using Failing = FailingCalls<fallible>;

const HMODULE helper = GetModuleHandleW(L"Helper.dll");

void useWorkingFolder(const std::string& path) {
    SetEnvironmentVariableA("TAVIK_WORKING_FOLDER", path.c_str());
}

std::string lowCase(std::string text) {
    for (char& c : text)
        c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return text;
}

bool isName(const std::string& text) {
    static const std::regex form("[a-z0-9]([-a-z0-9_.@]{0,126}[-a-z0-9_])?( #[0-9]{1,10})?");
    static const std::regex device("(con|prn|aux|nul|com[0-9]|lpt[0-9])([. ].*)?");
    return std::regex_match(lowCase(text), form) && !std::regex_match(lowCase(text), device);
}

// Whether all that takes or refuses ids and entry names does with this text what its form demands.
bool holdsFor(const std::string& text) {
    std::string low = text, id = "-", number = "-", whole = "-";
    Convert2LowCase(low);
    const bool accepted = CheckIdFormat(nullptr, text, &id, &number, &whole);
    const std::string parts = number.empty() ? id : id + " #" + number;
    const bool partsFit = accepted ? whole == low && parts == low : id + number + whole == "---";
    const std::string start = text.substr(0, text.find('\0'));
    const bool isId = isName(start) && start.find('#') == std::string::npos;
    const std::string path = isId ? "C:\\work\\" + start + "\\a.pbk" : "";
    return low == lowCase(text) && accepted == isName(text) && partsFit &&
           GetPrivateConfigPathName(start.c_str(), "a.pbk") == path;
}

} // namespace

TEST_CASE("Names made up of awkward pieces are taken and refused by their form") {
    useWorkingFolder("C:\\work");
    const char* const pieces[] = {"node7", "N",  "@",        " #",  "#",   " ",    "0",   "999999999",
                                  ".",     "-",  "_",        "con", "NUL", "com1", "lpt", "COM",
                                  "\\",    "\n", "\xC3\xA9", "a",   "Z",   "z",    "`",   "{",
                                  "[",     "/",  ":",        "prn", "aux"};
    std::mt19937 random(1);
    for (int i = 0; i < 20'000; ++i) {
        std::string text;
        for (auto left = random() % 6; left > 0; --left)
            text += random() % 8 == 0 ? std::string(1, static_cast<char>(random()))
                                      : pieces[random() % std::size(pieces)];
        CAPTURE(text);
        CHECK(holdsFor(text));
    }
    for (const std::size_t length : {1u, 127u, 128u, 129u})
        CHECK(holdsFor(std::string(length, 'a')));
    const std::set<std::string> known{"Node7", "other"};
    CHECK(CheckIdFormat(&known, "nODE7 #012", nullptr, nullptr, nullptr));
    CHECK_FALSE(CheckIdFormat(&known, "stranger #1", nullptr, nullptr, nullptr));
    std::string same = "NODE7 #3";
    CHECK(CheckIdFormat(nullptr, same, &same, nullptr, nullptr));
    CHECK(same == "node7");
}

TEST_CASE("Every character is written in UTF-8, read and made small as Windows does it") {
    std::wstring all;
    for (unsigned int c = 0; c < 0x110000; c += c < 0x10000 ? 1 : 0x101)
        if (c >= 0x10000)
            all += {static_cast<wchar_t>(0xD7C0 + (c >> 10)), static_cast<wchar_t>(0xDC00 + (c & 0x3FF))};
        else if (c < 0xD800 || c >= 0xE000)
            all += static_cast<wchar_t>(c);
    const int size = static_cast<int>(all.size());
    std::string expected(3 * all.size(), '\0');
    expected.resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_UTF8, 0, all.data(), size, expected.data(), 3 * size, nullptr, nullptr)));
    CHECK((unicode2utf8(all) == expected));
    CHECK((utf82unicode(expected) == all));
    while (all.size() < 3'000'000) // in more than one piece
        all += all;
    std::wstring low = all;
    Convert2LowCaseW(low);
    CharLowerBuffW(all.data(), static_cast<DWORD>(all.size()));
    CHECK((low == all));
}

TEST_CASE("What is no valid text is replaced piece by piece") {
    CHECK(utf82unicode("a\xC3(b\x80\xFF\xC0\x80") == L"a\uFFFD(b\uFFFD\uFFFD\uFFFD\uFFFD");
    CHECK(utf82unicode("\xF4\x90\x80\x80x\xED\xA0\x80\xE4\xB8") ==
          L"\uFFFD\uFFFD\uFFFD\uFFFDx\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
    CHECK(unicode2utf8(L"a\xD83D"s + L"b\xDE00") == "a\xEF\xBF\xBD"s + "b\xEF\xBF\xBD");
}

TEST_CASE("Numbers and addresses are written as the system reads them") {
    std::mt19937 random(1);
    for (int i = 0; i < 10'000; ++i) {
        const unsigned long number = static_cast<unsigned long>(random()) >> random() % 32;
        in_addr address{};
        address.s_addr = htonl(number);
        REQUIRE(ip2string(number) == inet_ntoa(address));
        REQUIRE(int2stru(number) == fmt::format("{}", number));
        REQUIRE(uin2string(number) == fmt::format("{}", number));
        REQUIRE(int2strd(static_cast<long>(number)) == fmt::format("{}", static_cast<long>(number)));
    }
}

TEST_CASE("The private path lies below the working folder, or is empty") {
    useWorkingFolder("");
    char common[MAX_PATH] = "";
    SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common);
    const std::string usual = common + "\\Tavik\\peers\\Node7\\pptp.pbk"s;
    Failing::inTurn([&usual] {
        const Failing failing(helper);
        const std::string path = GetPrivateConfigPathName("Node7", "pptp.pbk");
        CHECK(path == (Failing::failed.empty() ? usual : ""));
    });
    ModuleImports imports(helper);
    imports.on("IsDBCSLeadByte", [](BYTE first) -> BOOL { return first == 0x95; });
    const auto path = [](const std::string& folder, const char* id, const char* file) {
        useWorkingFolder(folder);
        return GetPrivateConfigPathName(id, file);
    };
    CHECK(path("C:\\", "node7", "pptp.pbk") == "C:\\node7\\pptp.pbk");
    CHECK(path("C:\\\x95\\", "node7", "a") == "C:\\\x95\\\\node7\\a"); // the second half of a character
    for (const char* file : {"", ".", "..", "a\\b", "a/b", "c:b", "nul", "nul .pbk", "clock$", "CONIN$",
                             "conout$.x", "a*", "a.", "a ", "a\n", "a\x1F"})
        CHECK(path("C:", "node7", file) == "");
    CHECK(path("C:", nullptr, "pptp.pbk") == "");
    CHECK(path("C:", "n", " \x7F") == "C:\\n\\ \x7F");
    CHECK(path(std::string(MAX_PATH - 5, 'x'), "n", "b").size() == MAX_PATH - 1);
    CHECK(path(std::string(MAX_PATH - 4, 'x'), "n", "b") == "");
    const char* const names[][2] = {
        {"C:\\drivers\\A.SYS", "A.SYS"}, {"A.SYS", "A.SYS"}, {"A\\", ""}, {"", ""}, {"\\a/b", "a/b"},
        {"C:\\\x95\\.sys", "\x95\\.sys"}};
    for (const auto& [whole, name] : names)
        CHECK(PathName2Name(whole) == name);
}

TEST_CASE("A file is one that exists and is no folder; its version is 0 without a sound record of it") {
    char path[MAX_PATH] = "";
    GetModuleFileNameA(helper, path, MAX_PATH);
    CHECK(IsFileExist(path));
    for (const char* other : {"C:\\windows", "C:\\missing", static_cast<const char*>(nullptr)})
        CHECK_FALSE(IsFileExist(other));
    Failing::inTurn([&path] {
        const Failing failing(helper);
        const unsigned long long version = GetFileVersion(path);
        CHECK(version == (Failing::failed.empty() ? PRODUCT_VERSION : 0));
    });
    CHECK(GetFileVersion("C:\\missing") == 0);
    CHECK(GetFileVersion("C:\\windows\\system.ini") == 0);
    const fs::path cut = fs::temp_directory_path() / "cut.dll";
    fs::copy_file(path, cut, fs::copy_options::overwrite_existing);
    fs::resize_file(cut, 4096); // the headers still tell of a record
    CHECK(GetFileVersion(cut.string()) == 0);
    fs::remove(cut);
    VS_FIXEDFILEINFO fixed{VS_FFI_SIGNATURE, 0, 0x10002, 0x30004, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    UINT size = sizeof fixed;
    ModuleImports imports(helper);
    imports.on("VerQueryValueA", [&](const void*, const char*, void** found, UINT* length) -> BOOL {
        *found = &fixed;
        *length = size;
        return TRUE;
    });
    CHECK(GetFileVersion(path) == 0x0001'0002'0003'0004);
    --size;
    CHECK(GetFileVersion(path) == 0);
    ++size;
    fixed.dwSignature = 0;
    CHECK(GetFileVersion(path) == 0);
}

TEST_CASE("Windows' generation, width and language") {
    ModuleImports imports(helper);
    DWORD major = 0, minor = 0;
    BYTE type = VER_NT_WORKSTATION;
    imports.on("RtlGetVersion", [&](RTL_OSVERSIONINFOEXW* version) -> LONG {
        if (version->dwOSVersionInfoSize == sizeof *version)
            *version = {sizeof *version, major, minor, 0, 0, {}, 0, 0, 0, type, 0};
        return 0;
    });
    std::string seen;
    for (type = VER_NT_WORKSTATION; type <= VER_NT_SERVER; ++type)
        for (major = 4; major <= 7; ++major)
            for (minor = 0; minor <= 3; ++minor)
                seen += IsWin2K() ? "2" : IsWinXP() ? "X" : IsWin6Plus() ? "6" : "-";
    CHECK(seen == "----2XX-66666666----2X--66666666----2X--66666666");
    WORD processor = 0;
    LANGID language = 0;
    imports.on("GetNativeSystemInfo", [&](SYSTEM_INFO* told) { told->wProcessorArchitecture = processor; });
    imports.on("GetSystemDefaultUILanguage", [&] { return language; });
    for (; processor < 20; ++processor)
        CHECK(GetIs64Os() == (processor == PROCESSOR_ARCHITECTURE_IA64 ||
                              processor == PROCESSOR_ARCHITECTURE_AMD64 || processor == 12)); // ARM
    for (; language < 0x1800; ++language)
        CHECK(IsChineseOs() == (language % 0x400 == LANG_CHINESE));
}
