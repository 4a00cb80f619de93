// The pure text functions, held to what must be true of every text: round trips, bounds, agreement with
// Windows.
#include "outside/Helper.h"
#include "tests/campaigns/campaign.h"
#include "tests/campaigns/lies.h"
#include "tests/campaigns/properties.h"
#include "tests/kit/private_members.h"

#include <catch2/catch.hpp>

#include <filesystem>
#include <fstream>
#include <optional>

using namespace std::string_literals;

namespace {

constexpr DWORD refuseLoneSurrogates = 0x80; // WC_ERR_INVALID_CHARS, which the headers keep for Windows 6

std::optional<std::wstring> windowsUtf16(const std::string& text) {
    std::wstring result(text.size() + 1, L'\0');
    const int length =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                            result.data(), static_cast<int>(result.size()));
    if (length == 0 && !text.empty())
        return std::nullopt;
    return result.substr(0, static_cast<std::size_t>(length));
}

std::optional<std::string> windowsUtf8(const std::wstring& text) {
    std::string result(3 * text.size() + 1, '\0');
    const int length =
        WideCharToMultiByte(CP_UTF8, refuseLoneSurrogates, text.data(), static_cast<int>(text.size()),
                            result.data(), static_cast<int>(result.size()), nullptr, nullptr);
    if (length == 0 && !text.empty())
        return std::nullopt;
    return result.substr(0, static_cast<std::size_t>(length));
}

std::string lowCase(std::string text) {
    Convert2LowCase(text);
    return text;
}

std::wstring lowCase(std::wstring text) {
    Convert2LowCaseW(text);
    return text;
}

// What CheckIdFormat makes of a text.
struct Parts {
    explicit Parts(const std::string& text) : accepted(CheckIdFormat(nullptr, text, &id, &number, &whole)) {}
    std::string id = "untouched", number = "untouched", whole = "untouched";
    const bool accepted;
};

bool isPeerId(const std::string& text) {
    const Parts parts(text);
    return parts.accepted && parts.number.empty();
}

// What of a text is ASCII, in its order.
template<class STRING>
std::string asciiOf(const STRING& text) {
    std::string ascii;
    for (const auto unit : text)
        if (unit >= 0 && unit < 0x80)
            ascii += static_cast<char>(unit);
    return ascii;
}

std::string privatePath(const std::string& id) {
    return GetPrivateConfigPathName(id.c_str(), "pptp.pbk");
}

const std::vector<Property<std::string>> ofNarrowTexts = {
    {"UTF-8 is read as Windows reads it, or gets a replacement",
     [](const std::string& text) {
         const std::optional<std::wstring> expected = windowsUtf16(text);
         const std::wstring read = utf82unicode(text);
         return expected ? read == *expected : read.find(L'\xFFFD') != std::wstring::npos;
     }},
    {"what was read as UTF-8 is no longer, and the same when written and read again",
     [](const std::string& text) {
         const std::wstring read = utf82unicode(text);
         return read.size() <= text.size() && utf82unicode(unicode2utf8(read)) == read &&
                (!windowsUtf16(text) || unicode2utf8(read) == text);
     }},
    {"no plain character is lost beside what is not valid",
     [](const std::string& text) { return asciiOf(utf82unicode(text)) == asciiOf(text); }},
    {"lower case changes A to Z alone, and once",
     [](const std::string& text) {
         const std::string low = lowCase(text);
         for (std::size_t i = 0; i < text.size(); ++i)
             if (low.at(i) != (text[i] >= 'A' && text[i] <= 'Z' ? text[i] + 32 : text[i]))
                 return false;
         return low.size() == text.size() && lowCase(low) == low;
     }},
    {"the parts of a name make the name",
     [](const std::string& text) {
         const Parts parts(text);
         if (!parts.accepted)
             return parts.id + parts.number + parts.whole == "untoucheduntoucheduntouched";
         const std::string tail = parts.number.empty() ? "" : " #" + parts.number;
         return parts.whole == lowCase(text) && parts.id + tail == parts.whole && !parts.id.empty() &&
                parts.id.size() <= 128 && parts.number.size() <= 10 && isPeerId(parts.id) &&
                Parts(parts.whole).accepted && privates::matchId(text, parts.id);
     }},
    {"only a peer's id has a private path, and that lies in its folder",
     [](const std::string& text) {
         const std::string seen = text.substr(0, text.find('\0'));
         const std::string path = privatePath(text);
         return isPeerId(seen) ? path == GetWorkingPath() + "\\" + seen + "\\pptp.pbk" : path.empty();
     }},
    {"a peer's entry name is a name of that peer and of no other",
     [](const std::string& text) {
         if (!isPeerId(text))
             return true;
         const std::string name = privates::getEntryNameWithSuffix(text, false);
         return Parts(name).id == lowCase(text) && privates::matchId(name, text) &&
                !privates::matchId(name, text + "x") &&
                !privates::matchId(name, text.substr(0, text.size() / 2) + "#");
     }},
    {"a name belongs to just those ids that it begins with",
     [](const std::string& text) {
         for (std::size_t length = 1; length <= text.size(); ++length)
             if (privates::matchId(text, text.substr(0, length)) != serves(text, text.substr(0, length)))
                 return false;
         return true;
     }},
    {"the last component of a path is its end, and its own last component",
     [](const std::string& text) {
         const std::string name = PathName2Name(text);
         return text.ends_with(name) && PathName2Name(name) == name &&
                (name.size() == text.size() || text[text.size() - name.size() - 1] == '\\');
     }},
};

const std::vector<Property<std::wstring>> ofWideTexts = {
    {"UTF-16 is written as Windows writes it, or with a replacement",
     [](const std::wstring& text) {
         const std::optional<std::string> expected = windowsUtf8(text);
         const std::string written = unicode2utf8(text);
         return windowsUtf16(written) && written.size() <= 3 * text.size() &&
                (expected ? written == *expected : written.find("\xEF\xBF\xBD") != std::string::npos);
     }},
    {"what was written as UTF-8 is read as it was",
     [](const std::wstring& text) { return !windowsUtf8(text) || utf82unicode(unicode2utf8(text)) == text; }},
    {"no plain character is lost beside half a pair",
     [](const std::wstring& text) { return asciiOf(unicode2utf8(text)) == asciiOf(text); }},
    {"lower case keeps the length, is made once, and is the system's",
     [](const std::wstring& text) {
         const std::wstring low = lowCase(text);
         std::wstring systems = text;
         CharLowerBuffW(systems.data(), static_cast<DWORD>(systems.size()));
         return low.size() == text.size() && lowCase(low) == low && low == systems;
     }},
};

const std::vector<std::string> narrowPieces = {"node7",
                                               "Node",
                                               "@",
                                               " #",
                                               "#",
                                               " ",
                                               "0",
                                               "9999999999",
                                               ".",
                                               "-",
                                               "_",
                                               "con",
                                               "NUL.",
                                               "com1",
                                               "lpt9",
                                               "..",
                                               "\\",
                                               "/",
                                               "C:",
                                               "\0"s,
                                               "%s",
                                               "\r\n",
                                               "ABZ",
                                               "\xC3\xA9",
                                               "\xE2\x82",
                                               "\xED\xA0\x80",
                                               "\xF4\x90\x80\x80",
                                               "\xC0\x80",
                                               "\xF0\x9F\x99\x82",
                                               "\xEF\xBF\xBE",
                                               "\xEF\xBB\xBF"};
const std::vector<std::wstring> widePieces = {L"Ab",     L"\u0130",     L"\u00DF", L"\u03A3",
                                              L"\u1E9E", L"\U0001F642", L"\xD800", L"\xDC00",
                                              L"\xFFFE", L"\x2126",     L"\xFEFF", L"\0"s};

} // namespace

TEST_CASE("a text that breaks a property is shrunk to what breaks it") {
    const Property<std::string> noMark = {"no mark", [](const std::string& text) {
                                              return text.find('#') == std::string::npos || text.size() < 3;
                                          }};
    CHECK(shrunk("node7 and a long tail #12"s, noMark).find('#') != std::string::npos);
    CHECK(shrunk("node7 and a long tail #12"s, noMark).size() == 3);
    CHECK(firstFailure({noMark}, Texts<std::string>(1, narrowPieces), 1000) != "");
    CHECK(shown(L"a\xD800\n"s) == "\"a\\xD800\\x0A\"");
}

TEST_CASE("what holds of every text holds of made-up ones") {
    const Campaign campaign("text functions");
    const unsigned long count = campaign.soak ? 1'000'000 : 30'000;
    CHECK(firstFailure(ofNarrowTexts, Texts<std::string>(campaign.seed, narrowPieces), count) == "");
    CHECK(firstFailure(ofWideTexts, Texts<std::wstring>(campaign.seed, widePieces), count) == "");
    campaign.report(
        fmt::format("{} properties of {} texts", ofNarrowTexts.size() + ofWideTexts.size(), 2 * count));
}

TEST_CASE("what holds of every number holds of random ones") {
    const Campaign campaign("numbers");
    const unsigned long count = campaign.soak ? 10'000'000 : 300'000;
    std::mt19937 random(campaign.seed);
    for (unsigned long i = 0; i < count; ++i) {
        const unsigned long number = static_cast<unsigned long>(random()) >> random() % 32;
        const std::string address = ip2string(number);
        const bool holds =
            ntohl(inet_addr(address.c_str())) == number && address.size() >= 7 && address.size() <= 15 &&
            std::strtoul(int2stru(number).c_str(), nullptr, 10) == number &&
            std::strtoul(uin2string(static_cast<unsigned int>(number)).c_str(), nullptr, 10) == number &&
            std::strtol(int2strd(static_cast<long>(number)).c_str(), nullptr, 10) ==
                static_cast<long>(number);
        if (!holds)
            FAIL("not for " << number);
    }
    campaign.report(fmt::format("{} numbers", count));
}

TEST_CASE("the version of a damaged file is read without harm") {
    const Campaign campaign("file versions");
    const unsigned long count = campaign.soak ? 1000 : 30;
    char original[MAX_PATH] = {};
    GetModuleFileNameA(GetModuleHandleA("Helper.dll"), original, MAX_PATH);
    std::ifstream file(original, std::ios::binary);
    const std::string image(std::istreambuf_iterator<char>(file), {});
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("damaged-" + std::to_string(GetCurrentProcessId()) + ".dll"))
                                 .string();
    const std::size_t record = image.rfind("V\0S\0_\0V\0E\0R\0S\0I\0O\0N\0"s);
    REQUIRE(record != std::string::npos);
    std::mt19937 random(campaign.seed);
    for (unsigned long i = 0; i < count; ++i) {
        std::string damaged = image;
        for (int left = 4; left > 0; --left)
            damaged[(random() % 2 != 0 ? record - 6 + random() % 120 : random() % 0x400)] =
                static_cast<char>(random());
        if (random() % 4 == 0)
            damaged.resize(random() % damaged.size());
        std::ofstream(path, std::ios::binary) << damaged;
        GetFileVersion(path);
    }
    std::ofstream(path, std::ios::binary) << image;
    CHECK(GetFileVersion(path) == GetFileVersion(original));
    CHECK(GetFileVersion(original) != 0);
    std::filesystem::remove(path);
    campaign.report(fmt::format("{} files", count));
}
