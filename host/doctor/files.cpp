#include "connections.h"
#include "doctor/doctor.h"
#include "log/log_files.h"
#include "outside/Helper.h"
#include "outside/Log.h"
#include "peer_folders.h"
#include "phonebook_file.h"
#include "text.h"
#include "usage_error.h"
#include "words/explain.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <set>

namespace fs = std::filesystem;

namespace {

constexpr long failuresToo = 2; // a level of the log

std::string utf8(const fs::path& path) {
    return unicode2utf8(path.wstring());
}

std::string reason(unsigned long code) {
    return fmt::format("error {}, {}", code, explain(code, Language::english).meaning);
}

std::string advice(unsigned long code) {
    return explain(code, Language::english).advice;
}

// Those that are no peer's.
std::vector<std::string> otherFoldersIn(const fs::path& workingFolder, const std::set<std::string>& peers) {
    std::vector<std::string> others;
    std::error_code unreadable;
    for (const auto& found : fs::directory_iterator(workingFolder, unreadable)) {
        const std::string name = utf8(found.path().filename());
        std::error_code gone;
        if (found.is_directory(gone) && !peers.contains(name))
            others.push_back(name);
    }
    return others;
}

Finding workingFolder(const fs::path& folder, const KnownPeers& known) {
    const std::string subject = "working folder";
    const std::string found =
        fmt::format("{}, {} peer{}", utf8(folder), known.ids.size(), known.ids.size() == 1 ? "" : "s");
    if (!known.isThere)
        return {subject, Grade::well, utf8(folder) + " is not there yet; the first dial makes it"};
    const unsigned long error = known.error != 0 ? known.error : writable(folder);
    if (error != 0)
        return {subject, Grade::wrong,
                fmt::format("{} cannot be {}: {}", utf8(folder), known.error != 0 ? "read" : "written",
                            reason(error)),
                advice(error)};
    if (const auto others = otherFoldersIn(folder, known.ids); !others.empty())
        return {subject, Grade::doubtful, fmt::format("{}; no peer's: {}", found, fmt::join(others, ", ")),
                "whoever made these folders knows what they are for; the library passes them over"};
    return {subject, Grade::well, found};
}

// The peers whose entries are in the phonebook, with how many each has.
std::map<std::string, int> peersIn(const Phonebook& phonebook) {
    std::map<std::string, int> peers;
    for (const PhonebookEntry& entry : phonebook.entries) {
        std::string id;
        std::string suffix;
        if (CheckIdFormat(nullptr, entry.name, &id, &suffix, nullptr) && !suffix.empty())
            ++peers[id];
    }
    return peers;
}

bool isAmong(const std::set<std::string>& ids, const std::string& id) {
    return std::ranges::any_of(
        ids, [&](const std::string& each) { return _stricmp(each.c_str(), id.c_str()) == 0; });
}

// Entries that no dial needs any more.
std::vector<std::string> staleIn(const Phonebook& phonebook, const std::set<std::string>& knownPeers) {
    const Connections connections = activeConnections();
    std::vector<std::string> stale;
    for (const auto& [id, entries] : peersIn(phonebook)) {
        const bool isLeft = !IsWin6Plus() && !connections.has(id);
        if (entries > 1)
            stale.push_back(fmt::format("{} of {}", entries, id));
        else if (!isAmong(knownPeers, id))
            stale.push_back(fmt::format("one of {}, who has no folder", id));
        else if (isLeft)
            stale.push_back(fmt::format("one of {}, who is not connected", id));
    }
    return stale;
}

// Without a finding when there is none, which is well.
void lookAt(const std::string& subject, const fs::path& file, const std::set<std::string>& knownPeers,
            Findings& findings, size_t& entries) {
    const Phonebook phonebook = readPhonebook(file);
    if (phonebook.error == ERROR_FILE_NOT_FOUND)
        return;
    const unsigned long error = phonebook.error != 0 ? phonebook.error : writable(file);
    entries += phonebook.entries.size();
    if (error != 0)
        findings.push_back({subject, Grade::wrong,
                            fmt::format("{} cannot be {}: {}", utf8(file),
                                        phonebook.error != 0 ? "read" : "written", reason(error)),
                            "check the rights on that file"});
    else if (const auto stale = staleIn(phonebook, knownPeers); !stale.empty())
        findings.push_back({subject, Grade::doubtful,
                            fmt::format("stale entries in {}: {}", utf8(file), fmt::join(stale, ", ")),
                            "\"varnel-host hangup ID\" hangs that peer up and removes its entry"});
}

Findings phonebooks(const std::set<std::string>& knownPeers) {
    Findings findings;
    size_t entries = 0;
    lookAt("phonebook of all users", publicPhonebook(), knownPeers, findings, entries);
    for (const std::string& id : knownPeers)
        lookAt("phonebook of " + utf8FromAnsi(id), privatePhonebook(id), knownPeers, findings, entries);
    if (findings.empty())
        findings.push_back(
            {"phonebooks", Grade::well, fmt::format("{} entr{}", entries, entries == 1 ? "y" : "ies")});
    return findings;
}

fs::path pathOf(HMODULE module) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(module, path, MAX_PATH);
    return path;
}

Finding modules() {
    std::map<std::string, std::vector<std::string>> byVersion;
    for (const wchar_t* name :
         {L"varnel-host.exe", L"Varnel.dll", L"Log.dll", L"Helper.dll", L"Helper2.dll"}) {
        const fs::path path =
            pathOf(GetModuleHandleW(fs::path(name).extension() == L".exe" ? nullptr : name));
        const unsigned long long version = GetFileVersion(toAnsi(utf8(path)).value_or(""));
        byVersion[fmt::format("{}.{}.{}", version >> 48, version >> 32 & 0xFFFF, version >> 16 & 0xFFFF)]
            .push_back(unicode2utf8(name));
    }
    if (byVersion.size() == 1)
        return {"modules", Grade::well, "all of version " + byVersion.begin()->first};
    std::string versions;
    for (const auto& [version, names] : byVersion)
        versions += fmt::format("{}{} {}", versions.empty() ? "" : "; ", version, fmt::join(names, ", "));
    return {"modules", Grade::wrong, "of different versions: " + versions,
            "install the program's files again, all of one version"};
}

// Whether the remote access that the library calls is Windows' own.
Finding remoteAccessLibrary() {
    wchar_t system[MAX_PATH] = L"";
    GetSystemDirectoryW(system, MAX_PATH);
    const fs::path used = pathOf(GetModuleHandleW(L"rasapi32.dll"));
    if (_wcsicmp(used.parent_path().c_str(), system) == 0)
        return {"rasapi32.dll", Grade::well, "Windows' own"};
    return {"rasapi32.dll", Grade::doubtful, utf8(used) + " takes the place of Windows' own",
            "unless this computer is for trials, remove that file"};
}

std::string sizeText(std::uintmax_t bytes) {
    constexpr std::uintmax_t kilobyte = 1024;
    constexpr std::uintmax_t megabyte = kilobyte * kilobyte;
    return bytes < megabyte ? fmt::format("{} KB", (bytes + kilobyte - 1) / kilobyte)
                            : fmt::format("{} MB", bytes / megabyte);
}

Finding log() {
    fs::path log;
    try {
        log = logs::usualLog();
    } catch (const UsageError&) {
        return {"log", Grade::well, "goes to standard error"};
    }
    if (log.empty())
        return {"log", Grade::well, "none yet"};
    const auto files = logs::filesOf(log);
    std::error_code unknown;
    const unsigned long error = writable(fs::exists(log, unknown) ? log : fs::absolute(log).parent_path());
    if (error != 0)
        return {"log", Grade::wrong, fmt::format("{} cannot be written: {}", utf8(log), reason(error)),
                advice(error)};
    std::uintmax_t size = 0;
    for (const fs::path& file : files)
        size += fs::file_size(file, unknown);
    const std::string found = fmt::format("{}, {} file{}, {}, level {}", utf8(log), files.size(),
                                          files.size() == 1 ? "" : "s", sizeText(size), LOG::level);
    if (LOG::level < failuresToo)
        return {"log", Grade::doubtful, found,
                "at this level it does not tell why a dial failed: use 2, or 3"};
    return {"log", Grade::well, found};
}

} // namespace

Findings examineFiles() {
    const KnownPeers known = knownPeers();
    Findings findings = {workingFolder(wideFromAnsi(GetWorkingPath()), known)};
    std::ranges::move(phonebooks(known.ids), std::back_inserter(findings));
    findings.push_back(log());
    findings.push_back(modules());
    findings.push_back(remoteAccessLibrary());
    return findings;
}
