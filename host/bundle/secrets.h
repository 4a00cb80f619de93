// What may go into a bundle. Nothing passes because it looks harmless: only what is known to hold no secret.
#pragma once

#include "log/record.h"

#include <string>
#include <string_view>

// The lines of a phonebook or of settings whose keys are known, and the sections. What is left out of the
// others is counted in `leftOut`.
std::string phonebookWithoutSecrets(const std::string& text, std::size_t& leftOut);
std::string logSettingsWithoutSecrets(const std::string& text, std::size_t& leftOut);

// Whether the library itself wrote the record. It writes no password into any; of other modules nobody knows.
bool isLibrarys(const logs::Record& record);
