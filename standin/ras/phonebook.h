// Phonebooks and their entries.
//
// `phonebook` is the path of a file; null or empty means the phonebook of all users and the current user's,
// in this order. All work is done under the system's mutex "RasPbFile", so any thread of any process may
// call. Results are remote-access or Windows error codes.
#pragma once

#include "standin/ras/credentials.h"
#include "standin/ras/phonebook_entry.h"

#include <windows.h>

#include <functional>

#include <ras.h>

#include <string>
#include <vector>

namespace standin {

struct EntryName {
    std::string name;
    std::string phonebook; // full path
};

// A file that does not exist has no entries.
DWORD listEntries(const char* phonebook, std::vector<EntryName>& entries);

// 621 when the named file cannot be read, 623 when the entry is missing.
DWORD findEntry(const char* phonebook, const std::string& name, EntryFacts& facts);
DWORD readEntry(const char* phonebook, const std::string& name, RASENTRYA& entry);

// Changes the entry, or creates it; a new one without a named file goes to the phonebook of all users.
DWORD writeEntry(const char* phonebook, const std::string& name, const RASENTRYA& entry);
DWORD renameEntry(const char* phonebook, const std::string& from, const std::string& to);
DWORD deleteEntry(const char* phonebook, const std::string& name);

// 0 when a new entry may get this name, 123 when it is none, 183 when it is taken, 621.
DWORD validateEntryName(const char* phonebook, const std::string& name);
bool isEntryName(const std::string& name);

// The credentials stored with an entry, to look at and to change.
DWORD readCredentials(const char* phonebook, const std::string& name, Credentials& credentials);
DWORD changeCredentials(const char* phonebook, const std::string& name,
                        const std::function<void(Credentials&)>& change);

// Whether this is the phonebook of all users.
bool isForAllUsers(const std::string& phonebook);

} // namespace standin
