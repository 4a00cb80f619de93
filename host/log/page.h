// The dials of a log as one page for a browser, which needs nothing beside it.
#pragma once

#include "log/dials.h"
#include "log/log_files.h"

#include <filesystem>
#include <vector>

namespace logs {

// Writes the dials numbered (from 0). Throws std::runtime_error when the file cannot be written.
void writePage(const std::filesystem::path& file, const std::vector<std::size_t>& numbers,
               const std::vector<Dial>& dials, const LogReader& reader);

} // namespace logs
