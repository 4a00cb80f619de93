// The dials that a session runs in the background.
#pragma once

#include "dialling.h"

#include <future>
#include <string>
#include <vector>

class BackgroundDials {
  public:
    struct Outcome {
        int line; // of the session, on which the dial began
        ExitCode code;
    };

    // Dials on a thread of its own, which tells the outcome.
    void begin(DialRequest request, const Telling& telling);

    // Blocks until all have ended.
    void wait(Console& console) const;

    // The outcomes of those that have ended since the last call.
    std::vector<Outcome> takeEnded();

  private:
    struct Dial {
        int line;
        std::future<ExitCode> end; // waits for its thread when it goes
    };
    std::vector<Dial> dials;
};
