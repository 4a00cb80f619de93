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
    std::string result;                                    // without the time that it took; or "throws"
    std::map<std::string, std::vector<std::string>> lines; // by section, and "told"
    std::map<std::string, std::string> sections;           // as the text has them
    bool passwordLeft = false;
    std::vector<std::string> offences; // against what holds always
};

// One run of a play, on a computer of its own and with a peer whom no other run knows.
class Run {
  public:
    static constexpr DWORD coarsePoll = 250; // ms, so that a wait of 3 s polls 12 times

    explicit Run(const Situation& played, DWORD pollTakes = coarsePoll, std::span<const Step> before = {});

    // Does a step; `disturbances` are made beside the failures that its course says.
    Outcome perform(const Step& step, const std::vector<Fault>& disturbances = {});
    std::string meant(std::string text) const; // of a text, with the run's own peer

    Computer computer;

  private:
    std::vector<Fault> apply(const std::string& items); // the failures among them
    std::string shown(std::string text) const;          // the other way round from meant()

    const Situation& situation;
    const std::vector<std::pair<std::string, std::string>> abbreviations;
};

// The ways of playing.
void playAsWritten(Situation& situation); // or, when that is asked, writes down what comes
void playFailing(Situation& situation);
void playLying(Situation& situation);
void playInThreads();

// What came of all runs. The present one is named when it fails, crashes or takes too long.
namespace report {
inline std::atomic<unsigned long> runs = 0, failed = 0;
void begin(const std::string& run);
void end(const std::vector<std::string>& offences);
} // namespace report

// What the environment asks for.
inline const bool accepts = std::getenv("VARNEL_ACCEPT") != nullptr;
inline const bool soaks = std::getenv("VARNEL_SOAK") != nullptr;
inline const char* const askedSeed = std::getenv("VARNEL_SEED");
inline const unsigned int seed = askedSeed != nullptr ? std::strtoul(askedSeed, nullptr, 10) : 1;
