#pragma once

// Millisecond wall-clock timing and the HH:MM.SS stamp. Everything reads the real-time clock,
// not a monotonic one, and nothing locks.

#include <sys/types.h>

#include <cstdint>

#include "fixed_string.h"

// Started on construction; start() restarts it.
class Stopwatch {
  public:
    Stopwatch() { start(); }
    void start();
    // 0 to 2147483647 ms since the start, computed in 32 bits and masked to 31, so a backward
    // step of the clock reads as a large positive interval rather than a negative one.
    int32_t elapsedMs() const;
    // As elapsedMs, and restarts from the same reading, so successive laps are consecutive.
    int32_t lapMs();

  private:
    int64_t startMs_;
};

using UsleepFunction = int (*)(useconds_t);

// Sleeps in chunks of at most 999 ms, as no single usleep may be given a full second or more.
void sleepMs(int32_t ms);
// The same, sleeping through the given function; tests pass a recorder instead of usleep.
void sleepMs(int32_t ms, UsleepFunction sleeper);

struct TimeStamp {
    // now == true stores the current time, false stores 0.
    explicit TimeStamp(bool now);
    int64_t seconds;
};

// Offset of local time from UTC in seconds; -1 until the first stamp is formatted.
extern int32_t utcOffsetSeconds;

// Writes "HH:MM.SS" of the stamp in local time.
FixedString<50>& formatTimeStamp(FixedString<50>& text, const TimeStamp& stamp);
