// What a computer is, as a person would write it down: facts such as "service TapiSrv" = "disabled", in the
// order in which they came to be. Names are compared as Windows does, without regard to case.
#pragma once

#include <boost/algorithm/string.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

class Facts {
  public:
    using Fact = std::pair<std::string, std::string>;

    const std::vector<Fact>& all() const { return facts; }
    // The value of a fact; null when there is none.
    std::string* find(std::string_view name);
    bool has(std::string_view name) { return find(name) != nullptr; }
    // The value of a fact; empty when there is none.
    std::string get(std::string_view name) { return has(name) ? *find(name) : std::string(); }
    unsigned long number(std::string_view name);
    void set(std::string_view name, std::string_view value);
    bool erase(std::string_view name); // whether it was there
    // The rest of the names that begin with `start`.
    std::vector<std::string> endings(std::string_view start) const;

  private:
    std::vector<Fact> facts;
};

// What is other in `after`: "name = value", or "no name", one by one.
std::vector<std::string> differences(Facts before, Facts after);

// The words of a text, which may stand in quotes when they hold blanks.
std::vector<std::string> words(std::string_view text);
bool says(std::string_view text, std::string_view word);
// The word, or the number, behind a word of a text.
std::string wordAfter(std::string_view text, std::string_view word, const std::string& otherwise);
unsigned long numberAfter(std::string_view text, std::string_view word, unsigned long otherwise = 0);
// Counts that number down; whether it was above 0.
bool countDown(std::string& text, std::string_view word);
// The pieces of a text between separators, without the blanks around them.
std::vector<std::string> pieces(std::string_view text, char separator);
std::string joined(const std::vector<std::string>& parts, std::string_view separator);
