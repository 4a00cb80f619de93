// What the campaigns share: each makes many runs out of a seed, and at its end prints one line of figures.
//
// VARNEL_SEED repeats the runs of that seed; VARNEL_SOAK=1 asks for the long form, which without a seed picks
// one of its own. Without either the seed is 1.
#pragma once

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

class Campaign {
  public:
    explicit Campaign(const std::string& name_) : name(name_) {}

    const bool soak = std::getenv("VARNEL_SOAK") != nullptr;
    const std::uint32_t seed = chosenSeed();

    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    // Prints the campaign's line: "campaign NAME: FIGURES, 1.2 s, seed 1".
    void report(const std::string& figures) const {
        fmt::print("campaign {}: {}, {:.1f} s, seed {}\n", name, figures, seconds(), seed);
        std::fflush(stdout);
    }

  private:
    std::uint32_t chosenSeed() const {
        if (const char* const given = std::getenv("VARNEL_SEED"))
            return static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10));
        return soak ? std::random_device()() : 1;
    }

    const std::string name;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};
