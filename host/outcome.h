// What came of a command, and the one place that tells it.
#pragma once

#include "exit_code.h"
#include "words/explain.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>

class Console;

struct Outcome {
    ExitCode exit;
    std::string subject;       // the peer, or the command itself
    std::string text;          // what is so now
    unsigned long error = 0;   // the code of the service or of Windows, if that is why
    std::string advice = {};   // what a person can do; that for the error when empty
    Cause cause = Cause::none; // of a failure without an error
    std::string entry = {};
    std::optional<Phase> endedIn = {}; // of a dial that did not connect
    std::optional<double> seconds = {};
};

// The error, or the class of cause, decides the exit code.
Outcome failure(const std::string& subject, const std::string& text, unsigned long error);
Outcome failure(const std::string& subject, const std::string& text, Cause cause);

// Where outcomes are told, and how: for a person, or in JSON on a line each.
struct Telling {
    Console& console;
    bool json = false;
    std::string command = {}; // that runs
    int line = 0;             // of a session, which tells line and command too; 0 elsewhere
};

// For a person the outcome is a line of results, the advice a message.
ExitCode tell(const Outcome& outcome, const Telling& telling);

// What keeps a command from running: for a person a message, which begins with `where`.
ExitCode tellFault(ExitCode exit, const std::string& where, const std::string& text, const Telling& telling);

// A text that is the result itself, such as help.
void tellText(const std::string& subject, const std::string& text, const Telling& telling);

nlohmann::ordered_json jsonOf(const Outcome& outcome);
void tellJson(const nlohmann::ordered_json& object, const Telling& telling);
