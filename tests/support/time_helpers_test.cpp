#include "time_helpers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

using Sleeps = std::vector<useconds_t>;
Sleeps recordedSleeps;

Sleeps sleepsFor(int32_t ms) {
    recordedSleeps.clear();
    sleepMs(ms, [](useconds_t microseconds) {
        recordedSleeps.push_back(microseconds);
        return 0;
    });
    return recordedSleeps;
}

TEST(SleepMs, SplitsIntoChunksBelowOneSecond) {
    EXPECT_EQ(sleepsFor(0), Sleeps{});
    EXPECT_EQ(sleepsFor(-5), Sleeps{});
    EXPECT_EQ(sleepsFor(998), (Sleeps{998000}));
    EXPECT_EQ(sleepsFor(999), (Sleeps{999000, 0}));
    EXPECT_EQ(sleepsFor(1998), (Sleeps{999000, 999000, 0}));
    EXPECT_EQ(sleepsFor(2000), (Sleeps{999000, 999000, 2000}));
}

TEST(Stopwatch, ElapsedKeepsTheStartAndLapsAreConsecutive) {
    Stopwatch watch;
    EXPECT_LT(watch.elapsedMs(), 1000);
    sleepMs(60);
    EXPECT_GE(watch.elapsedMs(), 60);
    EXPECT_GE(watch.lapMs(), 60);
    EXPECT_LT(watch.lapMs(), 60);  // measured from the previous lap only
}

// POSIX TZ without a daylight-saving rule, as the offset is taken from the current time; the sign
// is that of UTC minus local time.
void useZone(const char* tz) {
    setenv("TZ", tz, 1);
    tzset();
}

std::string stamp(int64_t seconds) {
    TimeStamp timeStamp(false);
    timeStamp.seconds = seconds;
    FixedString<50> text;
    return formatTimeStamp(text, timeStamp).text;
}

TEST(TimeStamp, ShowsLocalTimeOfDayWithTheOffsetOfTheFirstStamp) {
    const int64_t utc223015 = 1699920000 + 22 * 3600 + 30 * 60 + 15;  // 2023-11-14 22:30:15 UTC
    struct Case {
        const char* tz;
        int64_t seconds;
        const char* stamp;
        int32_t offset;
    };
    const Case cases[] = {
        {"XXX-2", utc223015, "00:30.15", 7200},
        {"XXX+5", utc223015 - 19 * 3600 - 30 * 60 - 15, "22:00.00", -18000},
        // Beyond twelve hours the offset folds to the previous day: +13 h becomes -11 h, which
        // still gives the right hour of the day.
        {"XXX-13", utc223015 - 15 * 3600 - 26 * 60 - 6, "20:04.09", -39600},
    };
    for (const Case& c : cases) {
        useZone(c.tz);
        utcOffsetSeconds = -1;
        EXPECT_EQ(stamp(c.seconds), c.stamp) << c.tz;
        EXPECT_EQ(utcOffsetSeconds, c.offset) << c.tz;
    }
    useZone("XXX+5");  // later zone changes are not picked up
    EXPECT_EQ(stamp(utc223015), "11:30.15");

    unsetenv("TZ");
    tzset();
    utcOffsetSeconds = -1;
}

}  // namespace
