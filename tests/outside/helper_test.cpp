#include "outside/Helper.h"
#include "tests/outside/module_imports.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <regex>

#include <shlobj.h>

#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr FallibleCall fallibleCalls[] = {{"GetFileVersionInfoSizeA"},
                                          {"GetFileVersionInfoA"},
                                          {"VerQueryValueA"},
                                          {"SHGetFolderPathA", 0x80004005}};

HMODULE helper() {
    return GetModuleHandleW(L"Helper.dll");
}

void useWorkingFolder(const std::string& path) {
    SetEnvironmentVariableA("TAVIK_WORKING_FOLDER", path.c_str());
}

// What CheckIdFormat makes of a text.
struct Parts {
    explicit Parts(const std::string& text, const std::set<std::string>* ids = nullptr)
        : accepted(CheckIdFormat(ids, text, &id, &number, &whole)) {}
    bool operator==(const Parts&) const = default;
    std::string id = "untouched", number = id, whole = id;
    bool accepted;
};

std::string lowCase(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + 32);
    return text;
}

bool isEntryName(const std::string& text) {
    static const std::regex form("[a-z0-9]([-a-z0-9_.@]{0,126}[-a-z0-9_])?( #[0-9]{1,10})?");
    static const std::regex device("(con|prn|aux|nul|com[0-9]|lpt[0-9])([. ].*)?");
    return std::regex_match(lowCase(text), form) && !std::regex_match(lowCase(text), device);
}

// What a function of Windows makes of a text that is valid.
std::optional<std::wstring> windowsUtf16(const std::string& text) {
    std::wstring result(text.size() + 1, L'\0');
    const int size = static_cast<int>(text.size());
    const int length =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, result.data(), size);
    return length == 0 && size > 0 ? std::nullopt
                                   : std::optional(result.substr(0, static_cast<std::size_t>(length)));
}

std::optional<std::string> windowsUtf8(const std::wstring& text) {
    constexpr DWORD refuseHalfPairs = 0x80; // WC_ERR_INVALID_CHARS, which the headers keep for Windows 6
    std::string result(3 * text.size(), '\0');
    const int size = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, refuseHalfPairs, text.data(), size, result.data(),
                                           3 * size, nullptr, nullptr);
    return length == 0 && size > 0 ? std::nullopt
                                   : std::optional(result.substr(0, static_cast<std::size_t>(length)));
}

template<class STRING>
using Properties = std::vector<std::pair<const char*, std::function<bool(const STRING&)>>>;

const Properties<std::string> ofNarrowTexts = {
    {"UTF-8 is read as Windows reads it, or gets a replacement",
     [](const std::string& text) {
         const auto expected = windowsUtf16(text);
         const std::wstring read = utf82unicode(text);
         return expected ? read == *expected : read.find(L'\xFFFD') != std::wstring::npos;
     }},
    {"a name is accepted by its form, and its parts are the name",
     [](const std::string& text) {
         const Parts parts(text);
         return parts.accepted == isEntryName(text) &&
                (parts.accepted
                     ? parts.whole == lowCase(text) &&
                           parts.whole == parts.id + (parts.number.empty() ? "" : " #" + parts.number)
                     : parts.id + parts.number + parts.whole == "untoucheduntoucheduntouched");
     }},
    {"only an id has a private path",
     [](const std::string& text) {
         const std::string id = text.c_str();
         const bool expected = isEntryName(id) && id.find('#') == std::string::npos;
         return GetPrivateConfigPathName(id.c_str(), "a.pbk") ==
                (expected ? "C:\\work\\" + id + "\\a.pbk" : "");
     }},
    {"lower case changes A to Z alone",
     [](const std::string& text) {
         std::string low = text;
         Convert2LowCase(low);
         return low == lowCase(text);
     }},
};

const Properties<std::wstring> ofWideTexts = {
    {"UTF-16 is written as Windows writes it, or with a replacement",
     [](const std::wstring& text) {
         const auto expected = windowsUtf8(text);
         const std::string written = unicode2utf8(text);
         return expected ? written == *expected : written.find("\xEF\xBF\xBD") != std::string::npos;
     }},
    {"lower case is the system's",
     [](const std::wstring& text) {
         std::wstring low = text, expected = text;
         Convert2LowCaseW(low);
         CharLowerBuffW(expected.data(), static_cast<DWORD>(expected.size()));
         return low == expected;
     }},
};

// Of a text that breaks a property, what is left when all is taken away without which it still does.
template<class STRING>
void checkMadeUpTexts(const Properties<STRING>& properties, const std::vector<STRING>& pieces) {
    std::mt19937 random(1);
    for (int i = 0; i < 20'000; ++i) {
        STRING text;
        for (auto left = random() % 8; left > 0; --left)
            text += random() % 8 > 0 ? pieces[random() % pieces.size()]
                                     : STRING(random() % 8 > 0 ? 1 : 120,
                                              static_cast<typename STRING::value_type>(random()));
        for (const auto& [name, holds] : properties) {
            const bool broken = !holds(text);
            for (std::size_t at = 0; broken && at < text.size();) {
                const STRING shorter = STRING(text).erase(at, 1);
                if (holds(shorter))
                    ++at;
                else
                    text = shorter;
            }
            if (broken)
                FAIL(name << fmt::format(
                         ": not {:x}", fmt::join(std::vector<unsigned int>(text.begin(), text.end()), " ")));
        }
    }
}

} // namespace

TEST_CASE("What holds of every text holds of made-up ones") {
    useWorkingFolder("C:\\work");
    checkMadeUpTexts<std::string>(ofNarrowTexts, {"node7",
                                                  "N",
                                                  "@",
                                                  " #",
                                                  "#",
                                                  " ",
                                                  "0",
                                                  "999999999",
                                                  ".",
                                                  "-",
                                                  "_",
                                                  "con",
                                                  "NUL",
                                                  "com1",
                                                  "lpt",
                                                  "\\",
                                                  "\0"s,
                                                  "\n",
                                                  "Z\xC3\xA9",
                                                  "\xE2\x82",
                                                  "\xED\xA0\x80",
                                                  "\xF4\x90\x80\x80",
                                                  "\xC0\x80",
                                                  "\xF0\x9F\x99\x82",
                                                  "\xEF\xBF\xBE"});
    checkMadeUpTexts<std::wstring>(ofWideTexts, {L"Ab", L"\u0130", L"\u00DF", L"\u03A3", L"\u1E9E",
                                                 L"\U0001F642", L"\xD800", L"\xDC00", L"\xFFFE", L"\0"s});
    std::wstring huge(3'000'001, L'X');
    Convert2LowCaseW(huge);
    CHECK((huge == std::wstring(3'000'001, L'x')));
}

TEST_CASE("The edges of ids and entry names are where they should be") {
    const auto isId = [](const std::string& text) {
        return CheckIdFormat(nullptr, text, nullptr, nullptr, nullptr);
    };
    for (const auto& name : {"a"s, "Z"s, "0"s, "9"s, "a..b"s, "user@example.com"s, "x_"s, "x-"s, "com10"s,
                             "com1x"s, "NODE7 #2147483647"s, std::string(128, 'a')})
        CHECK((isId(name) && isEntryName(name)));
    for (const auto& name :
         {""s, "."s, ".."s, "-a"s, "a@"s, "a "s, "a`"s, "a{"s, "a["s, "a/"s, "a:"s, "nul.txt"s, "con #1"s,
          "node7 #"s, "node7#1"s, "node7 #1 #2"s, "node7 #12345678901"s, std::string(129, 'a')})
        CHECK_FALSE((isId(name) || isEntryName(name)));
    const std::set<std::string> known{"Node7", "other"};
    CHECK(Parts("nODE7 #012", &known).whole == "node7 #012");
    CHECK_FALSE(Parts("stranger #1", &known).accepted);
    std::string same = "NODE7 #3";
    CHECK(CheckIdFormat(nullptr, same, &same, nullptr, nullptr));
    CHECK(same == "node7");
}

TEST_CASE("What is no valid text is replaced piece by piece") {
    CHECK(utf82unicode("a\xC3(b\x80\xFF") == L"a\uFFFD(b\uFFFD\uFFFD");
    CHECK(utf82unicode("\xC0\x80\xED\xA0\x80\xE4\xB8") == L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
    CHECK(utf82unicode("\xF4\x90\x80\x80x") == L"\uFFFD\uFFFD\uFFFD\uFFFDx");
    CHECK(unicode2utf8(L"a\xD83D"s + L"b\xDE00") == "a\xEF\xBF\xBD"s + "b\xEF\xBF\xBD");
}

TEST_CASE("Numbers and addresses are written as the system reads them") {
    std::mt19937 random(1);
    for (int i = 0; i < 100'000; ++i) {
        const unsigned long number = static_cast<unsigned long>(random()) >> random() % 32;
        in_addr address{};
        address.s_addr = htonl(number);
        REQUIRE(ip2string(number) == inet_ntoa(address));
        REQUIRE(int2stru(number) == fmt::format("{}", number));
        REQUIRE(uin2string(static_cast<unsigned int>(number)) == fmt::format("{}", number));
        REQUIRE(int2strd(static_cast<long>(number)) == fmt::format("{}", static_cast<long>(number)));
    }
}

TEST_CASE("The private path lies below the working folder, or is empty") {
    useWorkingFolder("");
    char common[MAX_PATH] = "";
    SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common);
    FailingCalls<fallibleCalls>(helper()).inTurn([&common] {
        const bool failed = !FailingCalls<fallibleCalls>::failed.empty();
        CHECK(GetPrivateConfigPathName("Node7", "pptp.pbk") ==
              (failed ? "" : common + "\\Tavik\\peers\\Node7\\pptp.pbk"s));
    });
    useWorkingFolder("C:\\");
    CHECK(GetPrivateConfigPathName("node7", "pptp.pbk") == "C:\\node7\\pptp.pbk");
    for (const char* file : {"", ".", "..", "a\\b", "a/b", "c:b", "nul", "nul .pbk", "clock$", "CONIN$",
                             "conout$.x", "a*", "a.", "a ", "a\n", "a\x1F"})
        CHECK(GetPrivateConfigPathName("node7", file) == "");
    CHECK(GetPrivateConfigPathName(nullptr, "pptp.pbk") == "");
    CHECK(GetPrivateConfigPathName("node7", nullptr) == "");
    useWorkingFolder("C:\\" + std::string(MAX_PATH - 1 - std::size("C:\\\\node7\\b") + 1, 'x'));
    CHECK(GetPrivateConfigPathName("node7", "b").size() == MAX_PATH - 1);
    CHECK(GetPrivateConfigPathName("node7", "bb") == "");
}

TEST_CASE("A file exists, a folder or nothing does not count") {
    const fs::path folder = fs::temp_directory_path() / "helper_test";
    fs::create_directories(folder);
    const std::string file = (folder / "file").string();
    std::ofstream(file) << "x";
    CHECK(IsFileExist(file.c_str()));
    CHECK_FALSE(IsFileExist(folder.string().c_str()));
    CHECK_FALSE(IsFileExist((file + "2").c_str()));
    CHECK_FALSE(IsFileExist(nullptr));
    fs::remove_all(folder);
}

TEST_CASE("The last component of a path, also where the second byte of a character is that of a backslash") {
    ModuleImports imports(helper());
    imports.on("IsDBCSLeadByte", [](BYTE byte) -> BOOL { return byte == 0x95; });
    for (const auto& [path, name] : {std::pair{"C:\\drivers\\A.SYS", "A.SYS"},
                                     {"A.SYS", "A.SYS"},
                                     {"C:\\drivers\\", ""},
                                     {"", ""},
                                     {"\\a/b", "a/b"},
                                     {"C:\\\x95\\.sys", "\x95\\.sys"},
                                     {"C:\\\x95", "\x95"}})
        CHECK(PathName2Name(path) == name);
    useWorkingFolder("C:\\\x95\\");
    CHECK(GetPrivateConfigPathName("node7", "a") == "C:\\\x95\\\\node7\\a");
}

TEST_CASE("The version of a file, 0 of one without or a damaged one") {
    const auto fileVersion = [](const wchar_t* module) {
        char path[MAX_PATH] = "";
        GetModuleFileNameA(GetModuleHandleW(module), path, MAX_PATH);
        return GetFileVersion(path);
    };
    constexpr unsigned long long version = static_cast<unsigned long long>(PRODUCT_VERSION_MAJOR) << 48 |
                                           static_cast<unsigned long long>(PRODUCT_VERSION_MINOR) << 32;
    FailingCalls<fallibleCalls>(helper()).inTurn([&] {
        const unsigned long long read = fileVersion(L"Helper.dll");
        CHECK((FailingCalls<fallibleCalls>::failed.empty() ? read >> 32 == version >> 32 : read == 0));
    });
    CHECK(fileVersion(nullptr) == 0);
    CHECK(GetFileVersion("C:\\missing.dll") == 0);
    VS_FIXEDFILEINFO fixed{
        .dwSignature = VS_FFI_SIGNATURE, .dwFileVersionMS = 0x10002, .dwFileVersionLS = 0x30004};
    UINT size = sizeof fixed;
    ModuleImports imports(helper());
    imports.on("VerQueryValueA", [&](const void*, const char*, void** found, UINT* length) -> BOOL {
        *found = &fixed;
        *length = size;
        return TRUE;
    });
    CHECK(fileVersion(L"Helper.dll") == 0x0001'0002'0003'0004);
    --size;
    CHECK(fileVersion(L"Helper.dll") == 0);
    ++size;
    fixed.dwSignature = 0;
    CHECK(fileVersion(L"Helper.dll") == 0);
}

TEST_CASE("Each Windows generation is told from the others") {
    enum Generation { none, win2K, winXP, win6Plus };
    const auto [major, minor, type, generation] =
        GENERATE(table<DWORD, DWORD, BYTE, Generation>({{5, 0, VER_NT_WORKSTATION, win2K},
                                                        {5, 1, VER_NT_WORKSTATION, winXP},
                                                        {5, 2, VER_NT_WORKSTATION, winXP},
                                                        {5, 2, VER_NT_SERVER, none},
                                                        {5, 2, VER_NT_DOMAIN_CONTROLLER, none},
                                                        {6, 0, VER_NT_WORKSTATION, win6Plus},
                                                        {6, 1, VER_NT_SERVER, win6Plus},
                                                        {10, 0, VER_NT_WORKSTATION, win6Plus}}));
    ModuleImports imports(helper());
    imports.on("RtlGetVersion", [&](RTL_OSVERSIONINFOEXW* version) -> LONG {
        if (version->dwOSVersionInfoSize != sizeof *version)
            return -1;
        version->dwMajorVersion = major;
        version->dwMinorVersion = minor;
        version->wProductType = type;
        return 0;
    });
    CHECK(IsWin2K() == (generation == win2K));
    CHECK(IsWinXP() == (generation == winXP));
    CHECK(IsWin6Plus() == (generation == win6Plus));
}

TEST_CASE("Windows is 64-bit by its processor, and Chinese by the language of any region") {
    ModuleImports imports(helper());
    WORD processor = 0;
    imports.on("GetNativeSystemInfo",
               [&](SYSTEM_INFO* system) { system->wProcessorArchitecture = processor; });
    std::vector<WORD> found;
    for (processor = 0; processor < 20; ++processor)
        if (GetIs64Os())
            found.push_back(processor);
    CHECK(found == std::vector<WORD>{PROCESSOR_ARCHITECTURE_IA64, PROCESSOR_ARCHITECTURE_AMD64, 12});
    LANGID language = 0;
    imports.on("GetSystemDefaultUILanguage", [&] { return language; });
    for (language = 0x0400; language < 0x1800; ++language)
        CHECK(IsChineseOs() == (language % 0x400 == LANG_CHINESE));
}
