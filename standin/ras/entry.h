// A phonebook section as an entry.
#pragma once

#include "standin/ras/section_file.h"

#include <windows.h>
#include <ras.h>

#include <string>

namespace standin {

// The only device that the computer has, which every entry gets.
inline constexpr char pptpDevice[] = "WAN Miniport (PPTP)";

// What a dial needs of an entry.
struct Entry {
    std::string name;
    std::string phonebook; // full path
    std::string number;
    GUID guid{};
};

Entry entryOf(const Section& section, const std::string& phonebook);

// Writes what `record` says into `section`, under the system's keys and in their order. Other keys stay;
// those that the system writes with one value for every PPTP entry are left out.
void describeEntry(Section& section, const RASENTRYA& record);

} // namespace standin
