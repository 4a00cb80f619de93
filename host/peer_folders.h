// The peers' folders in the working folder. Who has one is a known peer; it holds the peer's own phonebook.
#pragma once

#include <set>
#include <string>

struct KnownPeers {
    std::set<std::string> ids = {};
    bool isThere = true;     // the working folder
    unsigned long error = 0; // why it cannot be read
};

KnownPeers knownPeers();

// Makes the peer's folder unless it is there; true when it was not. A std::runtime_error says why it, or the
// phonebook in it, cannot serve a dial.
bool makeFolder(const std::string& id);

// Removes the peer's folder with its phonebook; not with anything else in it. The error's text when it stays.
std::string removeFolder(const std::string& id);

// A phonebook that a hang-up was to remove, which it does before Windows Vista; empty when none is there.
std::string phonebookLeft(const std::string& id);
