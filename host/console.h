// What the program shows: results on standard output, messages and progress on standard error.
#pragma once

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

enum class Tone { plain, good, doubtful, bad };

// A piece of a line. Its tone is a colour at a console, unless the environment variable NO_COLOR is set.
struct Span {
    std::string text;
    Tone tone = Tone::plain;
};
using Row = std::vector<Span>;

// Texts are UTF-8. Every function may be called from several threads at once; a line is never cut by another.
class Console {
  public:
    Console() = default;
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    void result(const std::string& line) { result(Row{{line}}); }
    void result(const Row& row);
    void message(const std::string& line);

    bool readsConsole() const { return input.isConsole; }
    bool showsProgress() const { return error.isConsole; }
    bool showsTables() const { return output.isConsole; }

    // A line typed at the console behind `prompt`, where the console itself gives editing and history; nothing
    // after Ctrl+C or Ctrl+Z. Results and messages that arrive meanwhile are shown before the next prompt, so
    // that they do not break into what is typed.
    std::optional<std::string> readLine(const std::string& prompt);

    // The same for a question, after Ctrl+C too: whether it is answered with y.
    bool agrees(const std::string& question);

    // Shows `text` on standard error at once, without a line end.
    void ask(const std::string& text);

    // One line of standard error, written over the one drawn before, that the next other output removes.
    void drawProgress(const std::string& text);
    void eraseProgress();

    // Rows of standard output, which must be a console, written over those drawn before unless something else
    // was shown since. What finds no room is left out.
    void drawTable(std::vector<Row> rows);

  private:
    struct Stream {
        HANDLE handle;
        bool isConsole;
    };
    static Stream standardStream(DWORD which);
    static bool hasColours();

    static void write(const Stream& stream, const std::string& text);
    void write(const Stream& stream, const Row& row) const;
    void show(const Stream& stream, const Row& row);
    std::string typedLine(const std::string& prompt);
    void erase();
    static size_t width(const Stream& stream);

    const Stream input = standardStream(STD_INPUT_HANDLE);
    const Stream output = standardStream(STD_OUTPUT_HANDLE);
    const Stream error = standardStream(STD_ERROR_HANDLE);
    const bool coloured = hasColours();

    std::mutex lock;
    size_t progressLength = 0;
    size_t tableHeight = 0;
    bool holding = false;
    Row heldResults;
    Row heldMessages;
};

// Shows that something runs: at a console the seconds count up in place, elsewhere one line says so.
class ProgressLine {
  public:
    ProgressLine(Console& screen, const std::string& text);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

  private:
    void draw(const std::stop_token& stop, const std::string& text);

    Console& console;
    std::mutex sleeping;
    std::condition_variable_any wake;
    std::jthread drawing;
};
