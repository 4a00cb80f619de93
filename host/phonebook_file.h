// What stands in a phonebook's file, read without the service.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

struct PhonebookEntry {
    std::string name;
    std::string address;
};

struct Phonebook {
    unsigned long error = 0; // why it cannot be read; ERROR_FILE_NOT_FOUND when there is none
    std::vector<PhonebookEntry> entries = {};
};

Phonebook readPhonebook(const std::filesystem::path& file);

// That of the peer, and that of all users.
std::filesystem::path privatePhonebook(const std::string& id);
std::filesystem::path publicPhonebook();

// 0 when the file or folder could be written, else why not. Tried without writing.
unsigned long writable(const std::filesystem::path& path);
