// Looks at what dialling and preparing the computer depend on. Changes nothing.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

enum class Grade { well, doubtful, wrong };

struct Finding {
    std::string subject;
    Grade grade;
    std::string found;
    std::string advice = {}; // what to do; empty when all is well
};
using Findings = std::vector<Finding>;

// Windows, rights, services, port, drivers and miniports.
Findings examineComputer();

// The working folder, the phonebooks, the log, and the modules beside the program.
Findings examineFiles();

// All of these.
Findings examineAll();

// Whether the address answers on the server's TCP port, the peer's entries, and who serves it. Takes up to 3
// s.
Findings examineWay(const std::string& id, unsigned long ip);

std::string wordOf(Grade grade);
Grade worstOf(const Findings& findings);
nlohmann::ordered_json jsonOf(const Findings& findings);
