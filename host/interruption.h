// Ctrl+C: what waits for the remote-access service cannot be cut short, so the program ends after it.
#pragma once

#include <chrono>
#include <set>
#include <string>

class Console;

// From now on the first Ctrl+C during an Uninterruptible says on `console`, which must outlive the program's
// other threads, that the program ends after it; during a dial it asks too, where it can, whether to hang up
// what this run has dialled. The second one, and one at any other time, ends the program at once.
void watchForInterruption(Console& console);

// Whether Ctrl+C was pressed.
bool interrupted();

// The peers dialled by this run if they are to be hung up, else none. Waits for the answer when that was asked.
std::set<std::string> peersToHangUp();

// While one exists, an init, dial, hang-up or clean runs. Any thread.
class Uninterruptible {
  public:
    Uninterruptible();
    ~Uninterruptible();
    Uninterruptible(const Uninterruptible&) = delete;
    Uninterruptible& operator=(const Uninterruptible&) = delete;
};

// The same for a dial.
class Dialling {
  public:
    explicit Dialling(const std::string& id);
    ~Dialling();
    Dialling(const Dialling&) = delete;
    Dialling& operator=(const Dialling&) = delete;

  private:
    const Uninterruptible running;
};

// While one exists, the console is being read, by one thread at a time. If Ctrl+C ends the program meanwhile, the console gets back
// the mode that it had when the reading began.
class ReadingConsole {
  public:
    ReadingConsole();
    ~ReadingConsole();
    ReadingConsole(const ReadingConsole&) = delete;
    ReadingConsole& operator=(const ReadingConsole&) = delete;
};

// While one exists, something runs that ends by itself once interrupted(): the first Ctrl+C is only noted,
// and forgotten when that has ended.
class Endable {
  public:
    Endable();
    ~Endable();
    Endable(const Endable&) = delete;
    Endable& operator=(const Endable&) = delete;

    // Sleeps that long; false when it was interrupted().
    bool sleep(std::chrono::milliseconds time) const;
};
