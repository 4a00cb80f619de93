#include "standin/ras/phonebook.h"

#include "standin/ras/handles.h"
#include "standin/ras/records.h"
#include "standin/ras/state_folder.h"

#include <windows.h>

#include <algorithm>
#include <cctype>

#include <raserror.h>

namespace standin {
namespace {

constexpr char userKey[] = "UserName"; // the system keeps this in a store of its own

// Created at the first work on a phonebook and kept for the life of the process, as the system does.
HANDLE phonebookMutex() {
    static const Handle mutex = owned(CreateMutexA(nullptr, FALSE, "RasPbFile"));
    return mutex.get();
}

class PhonebookLock : public MutexLock {
  public:
    PhonebookLock() : MutexLock(phonebookMutex()) {}
};

bool isNamed(const char* phonebook) {
    return phonebook && *phonebook;
}

std::vector<std::string> pathsOf(const char* phonebook) {
    if (isNamed(phonebook))
        return {fullPath(phonebook)};
    return {allUsersPhonebook(), userPhonebook()};
}

// An entry in the file that holds it.
struct Located {
    std::string path;
    SectionFile file;
    Section* section = nullptr;
    DWORD readError = ERROR_SUCCESS;

    bool isUsable() const { return readError == ERROR_SUCCESS || isMissing(readError); }
};

DWORD locate(const char* phonebook, const std::string& name, Located& located) {
    for (const std::string& path : pathsOf(phonebook)) {
        located = {path, {}, nullptr, ERROR_SUCCESS};
        located.readError = readSections(path, located.file);
        if (!located.isUsable() || (isNamed(phonebook) && located.readError != ERROR_SUCCESS))
            return ERROR_CANNOT_OPEN_PHONEBOOK;
        located.section = located.file.find(name);
        if (located.section)
            return ERROR_SUCCESS;
    }
    return ERROR_CANNOT_FIND_PHONEBOOK_ENTRY;
}

DWORD save(const Located& located) {
    switch (writeSections(located.path, located.file)) {
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

// Finds the entry, lets `change` work on it, and writes its file.
template<class Change>
DWORD edit(const char* phonebook, const std::string& name, Change change) {
    const PhonebookLock lock;
    Located located;
    DWORD error = locate(phonebook, name, located);
    if (error == ERROR_SUCCESS)
        error = change(located);
    return error == ERROR_SUCCESS ? save(located) : error;
}

// A file with a new, empty entry.
DWORD addEntry(const char* phonebook, const std::string& name, Located& located) {
    located = {pathsOf(phonebook).front(), {}, nullptr, ERROR_SUCCESS};
    located.readError = readSections(located.path, located.file);
    if (!located.isUsable())
        return ERROR_CANNOT_OPEN_PHONEBOOK;
    if (!isNamed(phonebook))
        createFolders(located.path.substr(0, located.path.rfind('\\')));
    located.section = &located.file.sections.emplace_back(Section{name, 0, {}});
    return ERROR_SUCCESS;
}

bool isEntryName(const std::string& name) {
    const auto isControl = [](unsigned char c) { return c < ' '; };
    const auto isWordCharacter = [](unsigned char c) { return c >= 0x80 || std::isalnum(c); };
    return name.size() <= RAS_MaxEntryName && std::any_of(name.begin(), name.end(), isWordCharacter) &&
           std::none_of(name.begin(), name.end(), isControl) && name.front() != '.' &&
           name.find_first_of("|><?*\\/:;") == std::string::npos;
}

} // namespace

DWORD listEntries(const char* phonebook, std::vector<RASENTRYNAMEA>& names) {
    const PhonebookLock lock;
    for (const std::string& path : pathsOf(phonebook)) {
        Located located;
        located.readError = readSections(path, located.file);
        if (!located.isUsable())
            return ERROR_CANNOT_OPEN_PHONEBOOK;
        for (const Section& section : located.file.sections) {
            if (section.name.empty())
                continue;
            RASENTRYNAMEA& name = names.emplace_back();
            fillField(name.szEntryName, section.name);
            name.dwFlags = equalNames(path, allUsersPhonebook()) ? REN_AllUsers : REN_User;
            fillField(name.szPhonebookPath, path);
        }
    }
    return ERROR_SUCCESS;
}

DWORD findEntry(const char* phonebook, const std::string& name, Entry& entry) {
    const PhonebookLock lock;
    Located located;
    const DWORD error = locate(phonebook, name, located);
    if (error == ERROR_SUCCESS)
        entry = entryOf(*located.section, located.path);
    return error;
}

DWORD writeEntry(const char* phonebook, const std::string& name, const RASENTRYA& record) {
    if (!isEntryName(name))
        return ERROR_INVALID_NAME;
    const PhonebookLock lock;
    Located located;
    if (locate(phonebook, name, located) != ERROR_SUCCESS)
        if (const DWORD error = addEntry(phonebook, name, located); error != ERROR_SUCCESS)
            return error;
    describeEntry(*located.section, record);
    return save(located);
}

DWORD renameEntry(const char* phonebook, const std::string& from, const std::string& to) {
    if (!isEntryName(to))
        return ERROR_INVALID_NAME;
    return edit(phonebook, from, [&](Located& located) -> DWORD {
        const Section* taken = located.file.find(to);
        if (taken && taken != located.section)
            return ERROR_ALREADY_EXISTS;
        located.section->name = to;
        return ERROR_SUCCESS;
    });
}

DWORD deleteEntry(const char* phonebook, const std::string& name) {
    return edit(phonebook, name, [](Located& located) -> DWORD {
        auto& sections = located.file.sections;
        sections.erase(sections.begin() + (located.section - sections.data()));
        return ERROR_SUCCESS;
    });
}

DWORD readUser(const char* phonebook, const std::string& name, std::string& user) {
    const PhonebookLock lock;
    Located located;
    const DWORD error = locate(phonebook, name, located);
    if (error == ERROR_SUCCESS)
        user = located.section->value(userKey);
    return error;
}

DWORD writeUser(const char* phonebook, const std::string& name, const std::string& user) {
    return edit(phonebook, name, [&](Located& located) -> DWORD {
        if (!user.empty())
            located.section->set(userKey, user);
        return ERROR_SUCCESS;
    });
}

} // namespace standin
