// Plays of situations: as they are written, and disturbed in several ways.
#pragma once

#include "computer.h"
#include "imports.h"
#include "situation.h"

#include <cstdlib>
#include <string>
#include <vector>

// What came of one step.
struct Outcome {
    std::map<std::string, std::string> sections; // as the text has them
    std::string result;                          // without the time that it took
    std::vector<std::string> says, log, left, told;
    bool threw = false;
    bool passwordLeft = false;
    std::vector<std::string> offences; // against what holds always
};

// One run of a play, on a computer of its own and with a peer whom no other run knows.
class Run {
  public:
    explicit Run(const Situation& situation);

    // Does a step; `planned` fails beside what its course says.
    Outcome perform(const Step& step, const std::vector<Fault>& planned = {});
    std::string meant(std::string text) const; // of a text, with the run's own peer

    Computer computer;

  private:
    void apply(const std::string& items, std::vector<Fault>& failures);
    std::string shown(std::string text) const; // the other way round from meant()
    std::string section(const Section& section, const std::vector<std::string>& lines) const;

    const Situation& situation;
    const std::string peer;
};

// What one way of playing came to.
struct Tally {
    unsigned long passed = 0, failed = 0; // situations
    unsigned long runs = 0;
    void failure(const std::string& text); // prints it, up to a number
};

void playAsWritten(std::vector<SituationFile>& files, Tally& tally);
void playFailing(std::vector<SituationFile>& files, Tally& tally);
void playLying(std::vector<SituationFile>& files, Tally& tally);
void playInThreads(std::vector<SituationFile>& files, Tally& tally);

// What the environment asks for.
inline bool isAsked(const char* variable) {
    return std::getenv(variable) != nullptr;
}
inline unsigned int seed() {
    return isAsked("VARNEL_SEED")
               ? static_cast<unsigned int>(std::strtoul(std::getenv("VARNEL_SEED"), nullptr, 10))
               : 1;
}

// Ends the program when one call of the library takes too long or crashes, and says which.
namespace watchdog {
void start();
void watch(const std::string& run); // from here on; empty: nothing
} // namespace watchdog
