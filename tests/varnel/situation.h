// Situations, as the texts in situations/ have them; tests/README.md tells how they read.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

// One thing that the host does, and what must follow.
struct Step {
    std::string course; // what is so from here on
    std::string operation;
    std::map<std::string, std::string> expected = {}; // by section: "gives", "calls", "log", ...
    std::size_t line = 0;                             // of the text, behind which that stands
};

struct Section {
    std::string name;
    std::vector<std::string> words; // of a line that counts, or with a "-" before it of one that does not

    bool counts(const std::string& line) const;
};

// Steps that follow one another on one computer. Each case of a text is a situation.
struct Situation {
    std::string name, given;
    std::vector<Section> sections;
    std::set<std::string> remarks; // "show detail", "may RasHangUpA"
    bool isBrief = false;          // its outcomes stand in one line each: what it picks of them
    std::vector<Step> steps;

    bool may(std::string_view what) const { return remarks.contains("may " + std::string(what)); }
};

class SituationFile {
  public:
    // Throws what is wrong with the text, and where.
    explicit SituationFile(const std::string& file);
    // Writes the text anew, with what the steps expect now.
    void write() const;

    std::vector<Situation> situations;

  private:
    void take(const std::string& line);

    const std::string path;
    std::vector<std::string> lines; // of the text, but for what is expected
    std::string course;             // of the step that is to come
};

inline const std::vector<std::string> allSections = {"gives", "says", "calls", "log", "trace", "left"};
