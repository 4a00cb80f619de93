// Rows of the table, and how they are measured.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

struct Row {
    std::string name;
    std::string against;
    double best = 0;    // ratio of the best batches, or the figure itself where it stands by itself
    double median = 0;  // of the ratios, batch by batch
    long calls = 0;     // of the remote-access service or, where the row says so, of what it counts
    double toReach = 0; // as a ratio
};

// Milliseconds.
double now();

// Both do the same work; batches of so many rounds are made in turn, and each round's calls are compared.
Row compared(const std::string& name, const std::string& against, double toReach, int rounds,
             const std::function<void()>& library, const std::function<void()>& bare);

// One row at a time is made, and shown to `show` as it is ready.
void measure(const std::string& folder, const std::function<void(const Row&)>& show);
