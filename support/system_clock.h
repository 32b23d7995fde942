#pragma once

// The system's wall clock, local time and sleep: what the time helpers ask of the OS. One
// implementation per OS is built.

#include <sys/types.h>

#include <cstdint>
#include <ctime>

// Milliseconds since 1970-01-01 UTC by the real-time clock.
int64_t wallClockMs();

// The local calendar time of a count of seconds since 1970-01-01 UTC.
void localTimeOf(int64_t seconds, tm* local);

// Sleeps at least the given microseconds, fewer than a million; 0 when it slept.
int sleepMicroseconds(useconds_t microseconds);
