// Ctrl+C: what waits for the remote-access service cannot be cut short, so the program ends after it.
#pragma once

class Console;

// From now on the first Ctrl+C during an Uninterruptible says that the program ends after it, on `console`,
// which must outlive the program's other threads; the second one ends the program at once.
void watchForInterruption(Console& console);

// Whether Ctrl+C was pressed.
bool interrupted();

// While one exists, a dial or hang-up runs. Any thread.
class Uninterruptible {
  public:
    Uninterruptible();
    ~Uninterruptible();
    Uninterruptible(const Uninterruptible&) = delete;
    Uninterruptible& operator=(const Uninterruptible&) = delete;
};

// While one exists, the console is being read: Ctrl+C ends the reading.
class ReadingConsole {
  public:
    ReadingConsole();
    ~ReadingConsole();
    ReadingConsole(const ReadingConsole&) = delete;
    ReadingConsole& operator=(const ReadingConsole&) = delete;
};
