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
    int line = 0;                                     // of the text, after which the expectation stands
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
    bool isCase = false;           // with its outcome in one line
    std::vector<Step> steps;

    bool may(std::string_view what) const { return remarks.contains("may " + std::string(what)); }
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
        std::string keyword, text;
        std::string written = {}; // as it stands in the file, over as many lines as it takes
        int number = 0;
    };
    void take(const Line& line);

    const std::string path;
    std::vector<Line> lines;
    std::string course; // of the step that is to come
};

inline const std::vector<std::string> allSections = {"gives", "says", "calls", "log", "trace", "left"};
