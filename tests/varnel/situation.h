// Situations, as the texts in situations/ have them; tests/README.md tells how they read.
#pragma once

#include <map>
#include <string>
#include <vector>

// One thing that the host does, and what must follow.
struct Step {
    std::string course; // what is so from here on
    std::string operation;
    std::map<std::string, std::string> expected; // by section: "gives", "calls", "log", ...
};

// Steps that follow one another on one computer.
struct Play {
    std::vector<Step> steps;
};

struct Section {
    std::string name;
    std::vector<std::string> words;   // of a line that counts; all lines count without
    std::vector<std::string> unwords; // of a line that does not
};

struct Situation {
    std::string name, given;
    std::vector<Section> sections;
    std::vector<std::string> show, may;
    bool inCases = false; // whether each play is a case, with its outcome in one line
    std::vector<Play> plays;
};

class SituationFile {
  public:
    // Throws what is wrong with the text, and where.
    explicit SituationFile(const std::string& path);
    // Writes the text anew, with what the steps expect now.
    void write() const;

    std::vector<Situation> situations;

  private:
    struct Line {
        std::string keyword, text; // a remark or an empty line has no keyword
    };
    void take(const Line& line);
    void takeExpectation(const Line& line);

    std::string path;
    std::vector<Line> lines;
};

inline const std::vector<std::string> allSections = {"gives", "says", "calls", "log", "trace", "left"};
