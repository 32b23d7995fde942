#include "time_helpers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "system_clock.h"

namespace {

// Sets TZ, or removes it for nullptr; the C runtime of Windows has no setenv.
void setTimeZone(const char* tz) {
#ifdef _WIN32
    _putenv_s("TZ", tz != nullptr ? tz : "");
#else
    if (tz != nullptr) {
        setenv("TZ", tz, 1);
    } else {
        unsetenv("TZ");
    }
#endif
    tzset();
}

using Sleeps = std::vector<useconds_t>;
Sleeps recordedSleeps;

TEST(SleepMs, SplitsIntoChunksBelowOneSecond) {
    const struct {
        int32_t ms;
        Sleeps sleeps;
    } cases[] = {{0, {}},
                 {-5, {}},
                 {998, {998000}},
                 {999, {999000, 0}},
                 {1998, {999000, 999000, 0}},
                 {2000, {999000, 999000, 2000}}};
    for (const auto& c : cases) {
        recordedSleeps.clear();
        sleepMs(c.ms, [](useconds_t microseconds) {
            recordedSleeps.push_back(microseconds);
            return 0;
        });
        EXPECT_EQ(recordedSleeps, c.sleeps) << c.ms;
    }
}

// Bounded by the clock read around the calls, not by how fast they run: a loaded machine may
// stop the test for a while between any two lines.
TEST(Stopwatch, ElapsedKeepsTheStartAndLapsAreConsecutive) {
    const int64_t beforeStart = wallClockMs();
    Stopwatch watch;
    sleepMs(60);
    const int32_t elapsed = watch.elapsedMs();
    const int64_t beforeLaps = wallClockMs();
    const int32_t lap = watch.lapMs();
    const int32_t next = watch.lapMs();
    const int64_t end = wallClockMs();
    EXPECT_GE(elapsed, 60);
    EXPECT_LE(elapsed, beforeLaps - beforeStart);  // from its start, not from an earlier time
    EXPECT_GE(lap, elapsed);
    EXPECT_LE(next, end - beforeLaps);  // from the previous lap, not from the start
}

// POSIX TZ without a daylight-saving rule, as the offset is taken from the current time; the sign
// is that of UTC minus local time.
TEST(TimeStamp, ShowsLocalTimeOfDayWithTheOffsetOfTheFirstStamp) {
    const int64_t utc223015 = 1699920000 + 22 * 3600 + 30 * 60 + 15;  // 2023-11-14 22:30:15 UTC
    const struct {
        const char* tz;
        bool firstStamp;  // the offset is not yet known
        int64_t seconds;
        const char* stamp;
        int32_t offset;
    } cases[] = {
        {"XXX-2", true, utc223015, "00:30.15", 7200},
        {"XXX+5", true, utc223015 - 19 * 3600 - 30 * 60 - 15, "22:00.00", -18000},
        // Beyond twelve hours the offset folds to the previous day: +13 h becomes -11 h, which
        // still gives the right hour of the day.
        {"XXX-13", true, utc223015 - 15 * 3600 - 26 * 60 - 6, "20:04.09", -39600},
        {"XXX+5", false, utc223015, "11:30.15", -39600},  // later zone changes are not picked up
    };
    for (const auto& c : cases) {
        setTimeZone(c.tz);
        if (c.firstStamp) {
            utcOffsetSeconds = -1;
        }
        TimeStamp stamp(false);
        stamp.seconds = c.seconds;
        FixedString<50> text;
        EXPECT_STREQ(formatTimeStamp(text, stamp).text, c.stamp) << c.tz;
        EXPECT_EQ(utcOffsetSeconds, c.offset) << c.tz;
    }
    setTimeZone(nullptr);
    utcOffsetSeconds = -1;
}

}  // namespace
