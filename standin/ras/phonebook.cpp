#include "standin/ras/phonebook.h"

#include "standin/ras/file_store.h"
#include "standin/ras/handles.h"
#include "standin/ras/mutex_lock.h"
#include "standin/ras/state_folder.h"

#include <windows.h>

#include <algorithm>
#include <cctype>
#include <memory>

#include <raserror.h>

namespace standin {
namespace {

struct Phonebook {
    DWORD error = ERROR_SUCCESS;
    std::string text;
    SectionFile file;

    bool isAbsent() const { return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND; }
};

// An entry in the file that holds it.
struct Located {
    std::string path;
    std::shared_ptr<const Phonebook> phonebook;
    const Section* section = nullptr;
};

// Created at the first work on a phonebook and kept for the life of the process, as the system does.
class PhonebookLock {
  public:
    PhonebookLock() : lock(mutex()) {}

  private:
    static HANDLE mutex() {
        static const Handle handle = owned(CreateMutexA(nullptr, FALSE, "RasPbFile"));
        return handle.get();
    }

    MutexLock lock;
};

Phonebook readPhonebook(const std::string& path) {
    Phonebook phonebook;
    phonebook.error = readFile(path, phonebook.text);
    phonebook.file = parseSections(phonebook.text);
    return phonebook;
}

std::shared_ptr<const Phonebook> load(const std::string& path) {
    static FileCache<Phonebook> cache;
    return cache.get(path, readPhonebook);
}

bool isNamed(const char* phonebook) {
    return phonebook && *phonebook;
}

std::vector<std::string> pathsOf(const char* phonebook) {
    if (isNamed(phonebook))
        return {fullPath(phonebook)};
    std::vector<std::string> paths{allUsersPhonebook(), userPhonebook()};
    std::erase(paths, std::string());
    return paths;
}

DWORD locate(const char* phonebook, const std::string& name, Located& located) {
    for (const std::string& path : pathsOf(phonebook)) {
        located = {path, load(path), nullptr};
        if (located.phonebook->error != ERROR_SUCCESS &&
            (isNamed(phonebook) || !located.phonebook->isAbsent()))
            return ERROR_CANNOT_OPEN_PHONEBOOK;
        located.section = located.phonebook->file.find(name);
        if (located.section)
            return ERROR_SUCCESS;
    }
    return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
}

DWORD save(const std::string& path, const Phonebook& old, const SectionFile& changed) {
    const std::string text = renderSections(changed);
    if (text == old.text && old.error == ERROR_SUCCESS)
        return ERROR_SUCCESS;
    switch (replaceFile(path, text)) {
    case ERROR_SUCCESS:
        return ERROR_SUCCESS;
    case ERROR_ACCESS_DENIED:
        return ERROR_ACCESS_DENIED;
    case ERROR_PATH_NOT_FOUND:
        return ERROR_CANNOT_OPEN_PHONEBOOK;
    default:
        return ERROR_CANNOT_WRITE_PHONEBOOK;
    }
}

// Applies `change` to the entry and writes its file.
DWORD edit(const Located& located, const std::function<void(Section&)>& change) {
    SectionFile file = located.phonebook->file;
    change(*file.find(located.section->name));
    return save(located.path, *located.phonebook, file);
}

// Where an entry that is in no phonebook yet goes.
DWORD placeForNewEntry(const char* phonebook, Located& located) {
    located.path = isNamed(phonebook) ? fullPath(phonebook) : allUsersPhonebook();
    if (!isNamed(phonebook))
        createFolders(located.path.substr(0, located.path.rfind('\\')));
    located.phonebook = load(located.path);
    const bool usable = located.phonebook->error == ERROR_SUCCESS || located.phonebook->isAbsent();
    return usable ? ERROR_SUCCESS : ERROR_CANNOT_OPEN_PHONEBOOK;
}

DWORD createEntry(const char* phonebook, const std::string& name, const RASENTRYA& entry) {
    Located located;
    if (const DWORD error = placeForNewEntry(phonebook, located); error != ERROR_SUCCESS)
        return error;
    SectionFile file = located.phonebook->file;
    describeEntry(file.sections.emplace_back(Section{name, 0, {}}), entry);
    return save(located.path, *located.phonebook, file);
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < ' ';
}

bool isWordCharacter(char c) {
    const auto value = static_cast<unsigned char>(c);
    return value >= 0x80 || std::isalnum(value);
}

// Renaming checks less than the check of new names does.
bool isNameToRenameTo(const std::string& name) {
    return name.size() <= RAS_MaxEntryName && name.find_first_not_of(' ') != std::string::npos &&
           name.front() != '.' && std::none_of(name.begin(), name.end(), isControl);
}

} // namespace

DWORD listEntries(const char* phonebook, std::vector<EntryName>& entries) {
    const PhonebookLock lock;
    for (const std::string& path : pathsOf(phonebook)) {
        const auto loaded = load(path);
        if (loaded->error != ERROR_SUCCESS && !loaded->isAbsent())
            return ERROR_CANNOT_OPEN_PHONEBOOK;
        for (const Section& section : loaded->file.sections)
            entries.push_back({section.name, path});
    }
    return ERROR_SUCCESS;
}

DWORD findEntry(const char* phonebook, const std::string& name, EntryFacts& facts) {
    const PhonebookLock lock;
    Located located;
    const DWORD error = locate(phonebook, name, located);
    if (error == ERROR_SUCCESS)
        facts = factsOf(*located.section, located.path);
    return error;
}

DWORD readEntry(const char* phonebook, const std::string& name, RASENTRYA& entry) {
    const PhonebookLock lock;
    Located located;
    const DWORD error = locate(phonebook, name, located);
    if (error == ERROR_SUCCESS)
        entry = entryOf(*located.section);
    return error;
}

DWORD writeEntry(const char* phonebook, const std::string& name, const RASENTRYA& entry) {
    const PhonebookLock lock;
    Located located;
    const DWORD error = locate(phonebook, name, located);
    if (error == ERROR_SUCCESS)
        return edit(located, [&](Section& section) { describeEntry(section, entry); });
    if (error == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY || located.phonebook->isAbsent())
        return createEntry(phonebook, name, entry);
    return error;
}

DWORD renameEntry(const char* phonebook, const std::string& from, const std::string& to) {
    if (!isNameToRenameTo(to))
        return ERROR_INVALID_NAME;
    const PhonebookLock lock;
    Located located;
    if (const DWORD error = locate(phonebook, from, located); error != ERROR_SUCCESS)
        return error;
    const Section* taken = located.phonebook->file.find(to);
    if (taken && taken != located.section)
        return ERROR_ALREADY_EXISTS;
    return edit(located, [&](Section& section) { section.name = to; });
}

DWORD deleteEntry(const char* phonebook, const std::string& name) {
    const PhonebookLock lock;
    Located located;
    if (const DWORD error = locate(phonebook, name, located); error != ERROR_SUCCESS)
        return error;
    SectionFile file = located.phonebook->file;
    const std::string credentialsId = factsOf(*located.section, located.path).credentialsId;
    file.sections.erase(file.sections.begin() + (located.section - located.phonebook->file.sections.data()));
    const DWORD error = save(located.path, *located.phonebook, file);
    if (error == ERROR_SUCCESS)
        forgetCredentials(credentialsId);
    return error;
}

DWORD validateEntryName(const char* phonebook, const std::string& name) {
    if (!isEntryName(name))
        return ERROR_INVALID_NAME;
    const PhonebookLock lock;
    Located located;
    const DWORD error = locate(phonebook, name, located);
    if (error == ERROR_SUCCESS)
        return ERROR_ALREADY_EXISTS;
    return error == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY ? ERROR_SUCCESS : error;
}

bool isEntryName(const std::string& name) {
    return isNameToRenameTo(name) && name.find_first_of("|><?*\\/:;") == std::string::npos &&
           std::any_of(name.begin(), name.end(), isWordCharacter);
}

DWORD readCredentials(const char* phonebook, const std::string& name, Credentials& credentials) {
    const PhonebookLock lock;
    Located located;
    const DWORD error = locate(phonebook, name, located);
    if (error == ERROR_SUCCESS)
        credentials = storedCredentials(factsOf(*located.section, located.path).credentialsId);
    return error;
}

DWORD changeCredentials(const char* phonebook, const std::string& name,
                        const std::function<void(Credentials&)>& change) {
    const PhonebookLock lock;
    Located located;
    if (const DWORD error = locate(phonebook, name, located); error != ERROR_SUCCESS)
        return error;
    std::string id = factsOf(*located.section, located.path).credentialsId;
    if (id.empty()) {
        id = newCredentialsId();
        const DWORD error = edit(located, [&](Section& section) { giveCredentialsId(section, id); });
        if (error != ERROR_SUCCESS)
            return error;
    }
    Credentials credentials = storedCredentials(id);
    change(credentials);
    return storeCredentials(id, credentials);
}

bool isForAllUsers(const std::string& phonebook) {
    return equalNames(phonebook, allUsersPhonebook());
}

} // namespace standin
