// A phonebook section as an entry: its keys, their groups and order, and what of a RASENTRY they say.
#pragma once

#include "standin/ras/section_file.h"

#include <windows.h>
#include <ras.h>

#include <string>

namespace standin {

// The device of PPTP links, which an entry gets that names none.
inline constexpr char pptpDevice[] = "WAN Miniport (PPTP)";
inline constexpr char l2tpDevice[] = "WAN Miniport (L2TP)";

// What a dial needs of an entry.
struct EntryFacts {
    std::string name;
    std::string phonebook; // full path
    std::string number;
    std::string deviceName;
    std::string credentialsId; // DialParamsUID, empty when the section has none
    GUID guid{};
};

EntryFacts factsOf(const Section& section, const std::string& phonebook);

// Writes `entry` into `section`: all keys in the order of the system, with the entry's values, the section's
// own values for what an entry does not say, defaults for the rest; unknown keys follow at the end of their
// group.
void describeEntry(Section& section, const RASENTRYA& entry);

// The entry that a section describes; what the section leaves out is as in a new entry.
RASENTRYA entryOf(const Section& section);

// A DialParamsUID that no other entry has, and giving it to a section that has none.
std::string newCredentialsId();
void giveCredentialsId(Section& section, const std::string& id);

} // namespace standin
