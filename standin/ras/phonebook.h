// Phonebooks and their entries.
//
// `phonebook` is the path of a file; null or empty means the phonebook of all users and the current user's,
// in this order. All work is done under the system's mutex "RasPbFile", so any thread of any process may
// call. Results are remote-access or Windows error codes.
#pragma once

#include "standin/ras/entry.h"

#include <windows.h>
#include <ras.h>

#include <string>
#include <vector>

namespace standin {

// A file that does not exist has no entries.
DWORD listEntries(const char* phonebook, std::vector<RASENTRYNAMEA>& names);

// 621 when the named file cannot be read, 623 when the entry is missing.
DWORD findEntry(const char* phonebook, const std::string& name, Entry& entry);

// Changes the entry, or creates it; a new one without a named file goes to the phonebook of all users.
DWORD writeEntry(const char* phonebook, const std::string& name, const RASENTRYA& record);
DWORD renameEntry(const char* phonebook, const std::string& from, const std::string& to);
DWORD deleteEntry(const char* phonebook, const std::string& name);

// The user name stored with an entry.
DWORD readUser(const char* phonebook, const std::string& name, std::string& user);
DWORD writeUser(const char* phonebook, const std::string& name, const std::string& user);

} // namespace standin
