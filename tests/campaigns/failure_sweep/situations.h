// The situations that the failure sweep goes through: each an operation of the library in a state of the
// computer, with what a host may rely on whatever fails meanwhile.
#pragma once

#include "sweep_world.h"

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// The failures that struck in one run.
class Disturbance {
  public:
    Disturbance() = default;
    explicit Disturbance(std::vector<Fault> faults_) : faults(std::move(faults_)) {}

    const std::vector<Fault>& all() const { return faults; }
    bool none() const { return faults.empty(); }
    bool hits(std::string_view function) const;
    bool hits(std::string_view function, DWORD code) const;
    // Whether nothing else failed, if anything did.
    bool hitsOnly(const std::set<std::string_view>& functions) const;
    bool hitsAny(std::initializer_list<std::string_view> functions) const;

  private:
    std::vector<Fault> faults;
};

// What was promised and not kept in one run.
class Breaches {
  public:
    void expect(bool kept, const std::string& promise) {
        if (!kept)
            texts.push_back(promise);
    }
    const std::vector<std::string>& all() const { return texts; }

  private:
    std::vector<std::string> texts;
};

struct Operation {
    std::string name;
    std::function<void(World&)> act;
    // What holds after it, whatever failed. With no failure, what the situation leads to.
    std::function<void(World&, const Disturbance&, Breaches&)> promises;
    // What holds after it in a world that has been calmed, with no failure.
    std::function<void(World&, Breaches&)> works;
    // Whether connections that are no peer's stay up.
    bool sparesStrangers = true;
};

struct Situation {
    Operation operation;
    std::string name;
    std::function<void(World&)> arrange;
    // Functions whose failures nobody is told of here.
    std::vector<std::string> silent = {};
};

using Situations = std::vector<Situation>;

Situations dialingSituations();
Situations hangUpSituations();
Situations initialisationSituations();
Situations driverSituations();
Situations networkSituations();
