// Records and dials as JSON. Times are local ones of the log, spans in milliseconds.
#pragma once

#include "log/dials.h"
#include "log/log_files.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace logs {

std::string recordJson(const Record& record);

// An object begun: the log's files and what was found there. Behind it come the dials, a "]" and a "}".
std::string beforeDialsJson(const LogReader& reader);

// The dial numbered (from 0), with its phases.
nlohmann::ordered_json dialJson(std::size_t number, const std::vector<Dial>& dials);

// The same with what went wrong in words; the clues are looked for among all dials.
nlohmann::ordered_json timelineJson(std::size_t number, const std::vector<Dial>& dials, bool withClues);

// On one line, whatever bytes its texts are of.
std::string textOf(const nlohmann::ordered_json& json);

} // namespace logs
