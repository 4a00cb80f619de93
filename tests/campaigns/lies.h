// Answers that no honest system gives, out of a seed; what of them the library may rightly use in the run
// under way; and how many there were.
#pragma once

#include "tests/kit/complaints.h"

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <map>
#include <random>

#include <ras.h>

#include <set>
#include <string>
#include <vector>

// A kind of text field. Fields of one kind are filled with a character of their own, so that a text tells of
// which field it comes, and one that is longer than that field has run past it.
struct FieldKind {
    char filler;
    std::size_t longest;
};

inline constexpr FieldKind entryNameField = {'\xC1', 256};
inline constexpr FieldKind phoneBookField = {'\xC2', 260};
inline constexpr FieldKind addressField = {'\xC3', 15};
inline constexpr FieldKind errorField = {'\xC4', 1023};
inline constexpr FieldKind shortErrorField = {'\xC5', 255};
inline constexpr FieldKind fileNameField = {'\xC6', 259};
inline constexpr FieldKind folderField = {'\xC7', 259};
inline constexpr FieldKind keyNameField = {'\xC8', 255};
inline constexpr FieldKind foreignField = {'\xC9', 0}; // whatever the library has no business with

// Whether no part of `text` is longer than the field that it was read from.
bool withinFields(const std::string& text);
// With what cannot be printed, and what repeats itself, written as its code and count.
std::string readable(const std::string& text);
// Whether an entry of that name is one of the peer's.
bool serves(const std::string& entryName, const std::string& id);

// A complaint, unless what was expected holds.
void expect(bool holds, const std::string& offence);

class Lies {
  public:
    // Begins a run.
    void begin(std::uint32_t seed, unsigned long run);
    unsigned long long answers = 0; // in all runs

    DWORD below(DWORD end) { return static_cast<DWORD>(random() % end); }
    bool oneIn(DWORD n) { return below(n) == 0; }
    DWORD number(); // of any size, the edges more often than others
    // Counts an answer: 0 as often as not, one of `likely`, or any number.
    DWORD code(std::initializer_list<DWORD> likely);
    // How many of `room` records are said to be there.
    DWORD count(DWORD room);
    template<class T>
    const T& oneOf(const std::vector<T>& all) {
        return all[below(static_cast<DWORD>(all.size()))];
    }
    std::string noise(DWORD longest); // no fillers
    std::string peer();               // an id, mostly a good one
    std::string entryName();
    HRASCONN handle() { return reinterpret_cast<HRASCONN>(ULONG_PTR{oneIn(9) ? number() : below(9)}); }

    // Fills `room` characters, often without an end. What a reader who minds its size finds there.
    std::string fill(char* field, std::size_t room, const FieldKind& kind, const std::string& text);
    template<std::size_t SIZE>
    std::string fill(char (&field)[SIZE], const FieldKind& kind, const std::string& text) {
        return fill(field, SIZE, kind, text);
    }
    template<class RECORD>
    static void smear(RECORD* record, std::size_t size) {
        std::memset(static_cast<void*>(record), foreignField.filler, size);
    }

    // Whose entries and connections the operation may touch, by its arguments.
    std::vector<std::string> wanted;
    bool anyConnection = false;
    bool isWanted(const std::string& entryName) const;
    bool mayHangUp(HRASCONN conn) const;

    // What was shown to the library in answers that said 0, and what it made itself.
    std::multimap<HRASCONN, std::string> connections;
    std::set<std::string> entries;
    std::set<HRASCONN> dialled;
    std::set<DWORD> codes;   // ends of dials
    bool unreadable = false; // some status query failed
    std::string password;

  private:
    std::mt19937 random;
};
