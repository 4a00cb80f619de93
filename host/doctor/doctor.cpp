#include "doctor/doctor.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

Findings examineAll() {
    Findings findings = examineComputer();
    std::ranges::move(examineFiles(), std::back_inserter(findings));
    return findings;
}

std::string wordOf(Grade grade) {
    static constexpr const char* words[] = {"well", "doubtful", "wrong"};
    return words[static_cast<int>(grade)];
}

Grade worstOf(const Findings& findings) {
    const auto worst = std::ranges::max_element(findings, {}, &Finding::grade);
    return worst == findings.end() ? Grade::well : worst->grade;
}

nlohmann::ordered_json jsonOf(const Findings& findings) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Finding& finding : findings)
        list.push_back({{"subject", finding.subject},
                        {"grade", wordOf(finding.grade)},
                        {"found", finding.found},
                        {"advice", finding.advice}});
    return {{"worst", wordOf(worstOf(findings))}, {"findings", list}};
}
