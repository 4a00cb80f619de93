#include "bundle/replay.h"
#include "bundle/secrets.h"
#include "bundle/zip.h"
#include "command_line.h"
#include "commands.h"
#include "doctor/doctor.h"
#include "log/clues.h"
#include "log/log_files.h"
#include "outside/Helper.h"
#include "outside/Log.h"
#include "peer_folders.h"
#include "phonebook_file.h"
#include "text.h"
#include "usage_error.h"
#include "words/explain.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

extern "C" LONG NTAPI RtlGetVersion(RTL_OSVERSIONINFOW* version);

namespace fs = std::filesystem;

namespace {

constexpr std::size_t mostReplayed = 30; // dials, the last ones; one that times out takes half a minute

struct LeftOut {
    std::size_t lines = 0;   // of phonebooks and settings
    std::size_t records = 0; // of the log
};

std::string utf8(const fs::path& path) {
    return unicode2utf8(path.wstring());
}

std::string bytesOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Whatever bytes the texts have that came from elsewhere.
std::string pageOf(const nlohmann::ordered_json& json) {
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

fs::path moduleFile(const wchar_t* name) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(GetModuleHandleW(name), path, MAX_PATH);
    return path;
}

std::string versionOf(const wchar_t* module) {
    const unsigned long long version = GetFileVersion(toAnsi(utf8(moduleFile(module))).value_or(""));
    return fmt::format("{}.{}.{}.{}", version >> 48, version >> 32 & 0xFFFF, version >> 16 & 0xFFFF,
                       version & 0xFFFF);
}

std::string windowsVersion() {
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    RtlGetVersion(&version);
    return fmt::format("{}.{}.{}", version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber);
}

nlohmann::ordered_json versions() {
    nlohmann::ordered_json found = {{"windows", windowsVersion()}, {"varnel-host.exe", versionOf(nullptr)}};
    for (const wchar_t* module : {L"Varnel.dll", L"Log.dll", L"Helper.dll", L"Helper2.dll"})
        found[unicode2utf8(module)] = versionOf(module);
    return found;
}

// One file, whatever files the log has. Gives the dials that it tells of.
std::vector<logs::Dial> addLog(ZipWriter& zip, const fs::path& log, std::size_t& leftOut) {
    logs::DialReader dials;
    logs::LogReader reader(log);
    zip.begin("varnel.log");
    const auto take = [&](const logs::Record& record) {
        if (!isLibrarys(record)) {
            ++leftOut;
            return;
        }
        zip.write(record.line);
        zip.write("\r\n");
        dials.take(record);
    };
    if (!log.empty())
        reader.readAll(take);
    zip.end();
    leftOut += reader.unreadable().all();
    return dials.finish();
}

std::size_t addPhonebook(ZipWriter& zip, const std::string& name, const fs::path& file,
                         std::size_t& leftOut) {
    if (readPhonebook(file).error != 0)
        return 0;
    zip.add("phonebooks/" + name + ".pbk", phonebookWithoutSecrets(bytesOf(file), leftOut));
    return 1;
}

std::size_t addPhonebooks(ZipWriter& zip, std::size_t& leftOut) {
    std::size_t count = addPhonebook(zip, "all users", publicPhonebook(), leftOut);
    for (const std::string& id : knownPeers().ids)
        count += addPhonebook(zip, id, privatePhonebook(id), leftOut);
    return count;
}

void addSettings(ZipWriter& zip, const fs::path& log, std::size_t& leftOut) {
    const fs::path ini = moduleFile(L"Log.dll").replace_filename(L"Log.ini");
    const nlohmann::ordered_json settings = {
        {"versions", versions()},
        {"workingFolder", utf8FromAnsi(GetWorkingPath())},
        {"log", utf8(log)},
        {"logLevel", LOG::level},
        {"Log.ini", logSettingsWithoutSecrets(utf8FromAnsi(bytesOf(ini)), leftOut)}};
    zip.add("settings.json", pageOf(settings));
}

void addReplay(ZipWriter& zip, const std::vector<logs::Dial>& dials) {
    const std::size_t count = std::min(dials.size(), mostReplayed);
    const Replay replay = replayOf({dials.end() - static_cast<std::ptrdiff_t>(count), dials.end()});
    zip.add("replay/peers.ini", replay.peers);
    zip.add("replay/session.txt", replay.session);
    zip.add("replay/dials.txt", replay.dials);
    zip.add("replay/windows.txt", windowsVersion() + "\n");
}

std::string lastFailureIn(const std::vector<logs::Dial>& dials) {
    const auto last = std::find_if(dials.rbegin(), dials.rend(), [](const logs::Dial& dial) {
        return dial.outcome != logs::Outcome::connected;
    });
    if (last == dials.rend())
        return "Every dial connected.";
    std::string text = fmt::format("The last that did not connect: {} {}, {}", logs::toSeconds(last->began),
                                   last->peer, nameOf(last->outcome));
    if (last->code == 0)
        return text + ". " + howFar(*last);
    const Explanation why = explain(last->code, Language::english);
    return fmt::format("{}, error {} {}, {}. {} Try: {}.", text, last->code, why.name, why.meaning,
                       howFar(*last), why.advice);
}

// What somebody reads who opens the bundle.
std::string firstPage(const std::vector<logs::Dial>& dials, const Findings& findings, std::size_t phonebooks,
                      const LeftOut& leftOut) {
    const auto connected = std::ranges::count(dials, logs::Outcome::connected, &logs::Dial::outcome);
    const auto count = [&](Grade grade) { return std::ranges::count(findings, grade, &Finding::grade); };
    std::string page =
        fmt::format("Made {} on Windows {} by varnel-host {}, Varnel.dll {}.\n", logs::toSeconds(logs::now()),
                    windowsVersion(), versionOf(nullptr), versionOf(L"Varnel.dll"));
    page += fmt::format(
        "varnel.log: {} dials, {} connected. \"varnel-host --log-file varnel.log log dials\" lists "
        "them.\n",
        dials.size(), connected);
    page += dials.empty() ? "No dial.\n" : lastFailureIn(dials) + "\n";
    page += fmt::format("doctor.json: {} well, {} doubtful, {} wrong.\n", count(Grade::well),
                        count(Grade::doubtful), count(Grade::wrong));
    for (const Finding& finding : findings)
        if (finding.grade == worstOf(findings) && finding.grade != Grade::well) {
            page += fmt::format("The first of the worst: {}: {}.\n", finding.subject, finding.found);
            break;
        }
    page += fmt::format("phonebooks/: {}. settings.json: versions, folders and the log's settings.\n",
                        phonebooks);
    page += fmt::format(
        "replay/: the last {} dials at most, for \"scripts/replay FILE.zip\" of the developers.\n",
        mostReplayed);
    page += fmt::format(
        "Left out, since a secret might be in it: {} lines of phonebooks and settings (user names and "
        "keys that are not known), {} lines of the log that are not the library's.\n",
        leftOut.lines, leftOut.records);
    return page + "No password is in any of it: the library writes none into log or phonebook.\n";
}

void fill(ZipWriter& zip) {
    const fs::path log = logs::usualLog();
    const Findings findings = examineAll();
    LeftOut leftOut;
    const auto dials = addLog(zip, log, leftOut.records);
    const std::size_t phonebooks = addPhonebooks(zip, leftOut.lines);
    addSettings(zip, log, leftOut.lines);
    zip.add("doctor.json", pageOf(jsonOf(findings)));
    addReplay(zip, dials);
    zip.add("README.txt", firstPage(dials, findings, phonebooks, leftOut));
    zip.finish();
}

ExitCode bundle(const std::string& name, Context& context) {
    const fs::path file = utf82unicode(name);
    std::error_code unknown;
    if (fs::exists(file, unknown))
        throw UsageError(fmt::format("\"{}\" is already there; name another file", name));
    try {
        ZipWriter zip(file);
        fill(zip);
    } catch (const std::exception& failure) { // no half of a file stays
        fs::remove(file, unknown);
        return tellFault(ExitCode::failed,
                         "bundle: ", fmt::format("\"{}\" is not made: {}", name, failure.what()),
                         context.telling);
    }
    return tell({ExitCode::done, "bundle",
                 fmt::format("{}, {} KB; its README.txt says what is in it and what was left out", name,
                             (fs::file_size(file, unknown) + 1023) / 1024)},
                context.telling);
}

Action declare(Options& options) {
    const auto file = std::make_shared<std::string>();
    options.requiredWord("FILE", *file, "The ZIP file to make");
    return [file](Context& context) { return bundle(*file, context); };
}

constexpr const char* examples =
    R"(The log, the phonebooks, what the doctor finds, versions and settings, with a
first page that says where to look. No password is in it, and what might hold a
secret is left out. Send it to whoever helps.

Example:
  varnel-host bundle meadow.zip

Exit codes: 0 done, 2 wrong arguments, 1 anything else)";

} // namespace

const Command bundleCommand = {"bundle", "Makes a ZIP file of what someone who helps must see", examples,
                               false, declare};
