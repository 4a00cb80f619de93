// Plays of situations: as they are written, and disturbed in several ways.
#pragma once

#include "computer.h"
#include "imports.h"
#include "situation.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <span>

// What came of one step.
struct Outcome {
    std::string result; // without the time that it took; or "throws"
    std::map<std::string, std::vector<std::string>>
        lines;                                   // of each section and of "told", whether wanted or not
    std::map<std::string, std::string> sections; // as the text has them
    bool passwordLeft = false;
    std::vector<std::string> offences; // against what holds always
};

// One run of a play, on a computer of its own and with a peer whom no other run knows.
class Run {
  public:
    static constexpr DWORD coarsePoll = 250; // ms, so that a wait of 3 s polls 12 times

    explicit Run(const Situation& situation, DWORD pollTakes = coarsePoll, std::span<const Step> before = {});

    // Does a step; `failures` are made beside those that its course says.
    Outcome perform(const Step& step, std::vector<Fault> failures = {});
    std::string meant(std::string text) const; // of a text, with the run's own peer

    Computer computer;

  private:
    void apply(const std::string& items, std::vector<Fault>& failures);
    std::string shown(std::string text) const; // the other way round from meant()

    const Situation& situation;
    const std::vector<std::pair<std::string, std::string>> abbreviations;
};

void playAsWritten(std::vector<SituationFile>& files);
void playFailing(std::vector<SituationFile>& files);
void playLying(std::vector<SituationFile>& files);
void playInThreads(std::vector<SituationFile>& files);

// What came of all runs. The present one is named when it fails, crashes or takes too long.
namespace report {
inline std::atomic<unsigned long> runs = 0;
inline unsigned long passed = 0, failed = 0; // situations and, of those that did not pass, runs

void begin(const std::string& run);
void end(const std::vector<std::string>& offences);
void eachSituation(std::vector<SituationFile>& files, const std::function<void(Situation&)>& play);
} // namespace report

// A number that the environment asks for.
inline unsigned long asked(const char* variable, unsigned long otherwise = 0) {
    const char* const number = std::getenv(variable);
    return number != nullptr ? std::strtoul(number, nullptr, 10) : otherwise;
}
inline const auto seed = static_cast<unsigned int>(asked("VARNEL_SEED", 1));
