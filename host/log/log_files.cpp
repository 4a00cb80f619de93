#include "log/log_files.h"

#include "outside/Helper.h"
#include "text.h"
#include "usage_error.h"

#include <fmt/format.h>

#include <cstring>
#include <map>

#include <shlobj.h>

#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace logs {
namespace {

constexpr std::size_t pieceSize = std::size_t{256} * 1024;    // bytes read at once
constexpr std::size_t longestLine = std::size_t{1024} * 1024; // what is longer is no record

std::wstring environment(const wchar_t* name) {
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

bool isNumber(const std::wstring& text) {
    return !text.empty() && text.find_first_not_of(L"0123456789") == text.npos;
}

// That of "varnel.12.log" is 12; 0 when the file is none that `newest` was before.
unsigned long ageOf(const fs::path& file, const fs::path& newest) {
    const fs::path inner = file.stem(); // varnel.12
    if (file.extension() != newest.extension() || inner.stem() != newest.stem())
        return 0;
    const std::wstring number = inner.extension().wstring().substr(inner.has_extension() ? 1 : 0);
    return isNumber(number) && number.size() < 6 ? std::stoul(number) : 0;
}

fs::path writtenLastIn(const fs::path& folder) {
    fs::path last;
    std::error_code missing;
    fs::file_time_type at = fs::file_time_type::min();
    for (const auto& file : fs::directory_iterator(folder, missing)) {
        const bool isOlder = isNumber(
            file.path().stem().extension().wstring().substr(file.path().stem().has_extension() ? 1 : 0));
        if (file.path().extension() == L".log" && !isOlder && file.last_write_time(missing) > at) {
            at = file.last_write_time(missing);
            last = file.path();
        }
    }
    return last;
}

} // namespace

fs::path namedLog() {
    fs::path file = environment(L"TAVIK_LOG_FILE");
    if (file.empty()) {
        wchar_t module[MAX_PATH] = L"";
        GetModuleFileNameW(GetModuleHandleW(L"Log.dll"), module, MAX_PATH);
        wchar_t named[MAX_PATH] = L"";
        GetPrivateProfileStringW(L"log", L"file", L"", named, MAX_PATH,
                                 fs::path(module).replace_filename(L"Log.ini").c_str());
        file = named;
    }
    if (file == L"-")
        throw UsageError("the log goes to standard error; name a file with --log-file");
    return file;
}

fs::path usualLog() {
    if (fs::path named = namedLog(); !named.empty())
        return named;
    wchar_t data[MAX_PATH] = L"";
    SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, data);
    return writtenLastIn(fs::path(data) / L"Tavik" / L"log");
}

std::vector<fs::path> filesOf(const fs::path& log) {
    std::map<unsigned long, fs::path, std::greater<>> byAge;
    std::error_code missing;
    for (const auto& file : fs::directory_iterator(fs::absolute(log).parent_path(), missing))
        if (const unsigned long age = ageOf(file.path(), log); age != 0)
            byAge[age] = file.path();
    if (fs::exists(log, missing))
        byAge[0] = log;
    std::vector<fs::path> files;
    files.reserve(byAge.size());
    for (const auto& [age, file] : byAge)
        files.push_back(file);
    return files;
}

Handle LogReader::open(const fs::path& path) {
    HANDLE const file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    return Handle(noneIfInvalid(file));
}

unsigned long long LogReader::identityOf(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION about = {};
    if (file == nullptr || !GetFileInformationByHandle(file, &about))
        return 0;
    return static_cast<unsigned long long>(about.nFileIndexHigh) << 32 | about.nFileIndexLow;
}

void LogReader::begin(const fs::path& path) {
    name = unicode2utf8(path.filename().wstring());
    line = 0;
    pending.clear();
    tooLong = false;
    ++filesRead;
}

void LogReader::readAll(const TakeRecord& take, bool isFollowed) {
    for (const fs::path& path : filesOf(log)) {
        Handle file = open(path);
        const DWORD error = GetLastError();
        if (!file && error == ERROR_FILE_NOT_FOUND) // rotated away meanwhile
            continue;
        if (!file)
            throw std::runtime_error(fmt::format("the log \"{}\" cannot be read: {}",
                                                 unicode2utf8(path.wstring()), systemMessage(error)));
        begin(path);
        readOn(file.get(), take);
        if (isFollowed && path == log)
            followed = std::move(file);
        else
            endOfFile();
    }
    following = isFollowed;
}

void LogReader::readOn(HANDLE file, const TakeRecord& take) {
    for (;;) {
        const std::size_t kept = pending.size();
        pending.resize(kept + pieceSize);
        DWORD got = 0;
        ReadFile(file, pending.data() + kept, static_cast<DWORD>(pieceSize), &got, nullptr);
        pending.resize(kept + got);
        if (got == 0)
            return;
        const std::string_view text = pending;
        std::size_t begun = 0;
        for (std::size_t end = text.find('\n', kept); end != text.npos; end = text.find('\n', begun)) {
            takeLine(text.substr(begun, end - begun), take);
            begun = end + 1;
        }
        pending.erase(0, begun);
        if (pending.size() > longestLine) {
            tooLong = true;
            pending.clear();
        }
    }
}

void LogReader::takeLine(std::string_view text, const TakeRecord& take) {
    ++line;
    if (std::exchange(tooLong, false))
        return note(notRead.foreign);
    if (text.ends_with('\r'))
        text.remove_suffix(1);
    if (text.empty())
        return;
    const auto record = recordOf(text);
    if (!record)
        return note(beginsWithDate(text) ? notRead.broken : notRead.foreign);
    ++taken;
    take(*record);
}

void LogReader::endOfFile() {
    ++line;
    if (!pending.empty() || tooLong)
        note(notRead.cut);
    pending.clear();
}

void LogReader::note(std::size_t& kind) {
    if (notRead.all() == 0)
        notRead.first = fmt::format("{}:{}", name, line);
    ++kind;
}

// The files behind the one of that identity; all when it is gone.
std::vector<fs::path> LogReader::writtenSince(unsigned long long identity) const {
    auto all = filesOf(log);
    for (auto file = all.begin(); file != all.end(); ++file)
        if (identityOf(open(*file).get()) == identity)
            return {file + 1, all.end()};
    return all;
}

void LogReader::follow(const TakeRecord& take) {
    if (!std::exchange(following, true)) {
        followed = open(log);
        begin(log);
        if (followed)
            SetFilePointer(followed.get(), 0, nullptr, FILE_END);
        return;
    }
    LARGE_INTEGER size = {}, at = {};
    if (followed && GetFileSizeEx(followed.get(), &size) &&
        SetFilePointerEx(followed.get(), {}, &at, FILE_CURRENT) && size.QuadPart < at.QuadPart) {
        SetFilePointer(followed.get(), 0, nullptr, FILE_BEGIN); // it was emptied
        begin(log);
    }
    if (followed)
        readOn(followed.get(), take);
    const Handle current = open(log);
    const auto identity = identityOf(followed.get());
    if (!current || identityOf(current.get()) == identity)
        return;
    if (followed)
        readOn(followed.get(), take); // what came before it was renamed
    for (const fs::path& path : writtenSince(identity)) {
        endOfFile();
        followed = open(path);
        begin(path);
        if (followed)
            readOn(followed.get(), take);
    }
}

} // namespace logs
