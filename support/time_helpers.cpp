#include "time_helpers.h"

#include <cstdio>
#include <ctime>

#include "system_clock.h"
#include "wrap_int32.h"

int32_t utcOffsetSeconds = -1;

namespace {

// The reading and the start are both cut to 32 bits, subtracted modulo 2^32 and cut to 31 bits.
// Unsigned arithmetic gives exactly that wrap-around without signed overflow.
int32_t millisecondsBetween(int64_t startMs, int64_t endMs) {
    const uint32_t difference = static_cast<uint32_t>(endMs) - static_cast<uint32_t>(startMs);
    return static_cast<int32_t>(difference & 0x7FFFFFFFu);
}

constexpr int32_t kSecondsPerDay = 86400;
// Half a day plus 30 seconds, so that an offset of exactly twelve hours stays on its own side
// despite the one second the first determination is off by.
constexpr int32_t kOffsetFoldLimit = 43230;

// Local minus UTC seconds of the day, for the current time shifted back by the offset already
// known; 0 once that offset is right.
int32_t offsetResidue() {
    const int64_t now = static_cast<int64_t>(time(nullptr));
    tm local{};
    localTimeOf(now - utcOffsetSeconds, &local);
    const int32_t localSeconds = local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
    const int32_t utcSeconds = static_cast<int32_t>(now - now / kSecondsPerDay * kSecondsPerDay);
    int32_t d = localSeconds - utcSeconds;
    if (d > kOffsetFoldLimit) {
        d -= kSecondsPerDay;
    } else if (d < -kOffsetFoldLimit) {
        d += kSecondsPerDay;
    }
    return d;
}

// Determines the local offset. With apply, adds it to utcOffsetSeconds and returns the residue of
// a second determination; without, only returns the difference. Starting from the sentinel -1 the
// first determination comes out one second too large, and adding it to the -1 cancels that exactly;
// the second determination only reports what is left.
int32_t updateUtcOffset(bool apply) {
    const int32_t d = offsetResidue();
    if (!apply) {
        return d;
    }
    utcOffsetSeconds =
        wrapToInt32(static_cast<uint32_t>(utcOffsetSeconds) + static_cast<uint32_t>(d));
    return offsetResidue();
}

}  // namespace

void Stopwatch::start() {
    startMs_ = wallClockMs();
}

int32_t Stopwatch::elapsedMs() const {
    return millisecondsBetween(startMs_, wallClockMs());
}

int32_t Stopwatch::lapMs() {
    const int64_t now = wallClockMs();
    const int32_t lap = millisecondsBetween(startMs_, now);
    startMs_ = now;
    return lap;
}

void sleepMs(int32_t ms) {
    sleepMs(ms, sleepMicroseconds);
}

void sleepMs(int32_t ms, UsleepFunction sleeper) {
    if (ms <= 0) {
        return;
    }
    if (ms < 999) {
        sleeper(static_cast<useconds_t>(ms) * 1000);
        return;
    }
    while (ms >= 999) {
        sleeper(999000);
        ms -= 999;
    }
    // Also when nothing is left: 999 ms sleeps 999 ms and then 0.
    sleeper(static_cast<useconds_t>(ms) * 1000);
}

TimeStamp::TimeStamp(bool now) : seconds(now ? static_cast<int64_t>(time(nullptr)) : 0) {}

FixedString<50>& formatTimeStamp(FixedString<50>& text, const TimeStamp& stamp) {
    // Determined once per process and kept, also across a change of daylight-saving time.
    if (utcOffsetSeconds == -1) {
        updateUtcOffset(true);
    }
    text.clear();
    const int64_t t = static_cast<int64_t>(static_cast<uint64_t>(stamp.seconds) +
                                           static_cast<uint64_t>(int64_t{utcOffsetSeconds}));
    const int hours = static_cast<int>(t / 3600 % 24);
    const int minutes = static_cast<int>(t / 60 % 60);
    const int seconds = static_cast<int>(t % 60);
    snprintf(text.text, sizeof(text.text), "%02d:%02d.%02d", hours, minutes, seconds);
    text.syncLength();
    return text;
}
