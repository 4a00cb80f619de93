// The library's life within the program. Its contract wants an init before any other call. So what dials or
// hangs up begins with the least one, unless a person asked for a full one; what only asks needs none, since
// it asks the service itself (connections.h).
#pragma once

#include <string>

class Console;

class Library {
  public:
    struct Wishes {
        bool kestrin = false;
        bool ombrel = false;
        bool anyAddress = false;
        bool onlyClient = false;
        bool disableRemoteAccess = false;
    };

    // Shows what a person must put right. False when the library is not ready for more.
    bool init(const Wishes& wishes, Console& console);

    // Unless an init ran: that of a host that only dials out. It hangs up nobody and removes nothing.
    bool initForDialling(Console& console);

    // The end of its life; hangs up the known peers after a full init alone.
    void clean();

    bool isPrepared() const { return life == Life::prepared; }
    bool onlyDials() const { return life == Life::onlyDials; }

  private:
    enum class Life { none, leastInit, onlyDials, prepared };
    Life life = Life::none;
};

// While one exists, the hang-ups that the library tells of are messages on `console`; but only of peers whose
// connection was there before and has gone, since it tells of each peer that it was to hang up.
class ToldHangUps {
  public:
    explicit ToldHangUps(Console& console);
    ~ToldHangUps();
    ToldHangUps(const ToldHangUps&) = delete;
    ToldHangUps& operator=(const ToldHangUps&) = delete;
};
