#include "time_helpers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

std::vector<useconds_t> recordedSleeps;

int recordSleep(useconds_t microseconds) {
    recordedSleeps.push_back(microseconds);
    return 0;
}

TEST(SleepMs, SplitsIntoChunksBelowOneSecond) {
    struct Case {
        int32_t ms;
        std::vector<useconds_t> calls;
    };
    const Case cases[] = {
        {0, {}},
        {-5, {}},
        {998, {998000}},
        {999, {999000, 0}},
        {1998, {999000, 999000, 0}},
        {2000, {999000, 999000, 2000}},
    };
    for (const Case& c : cases) {
        recordedSleeps.clear();
        sleepMs(c.ms, recordSleep);
        EXPECT_EQ(recordedSleeps, c.calls) << c.ms;
    }
}

TEST(Stopwatch, ElapsedKeepsTheStartAndLapsAreConsecutive) {
    Stopwatch watch;
    const int32_t first = watch.elapsedMs();
    EXPECT_GE(first, 0);
    EXPECT_LT(first, 1000);
    sleepMs(60);
    EXPECT_GE(watch.elapsedMs(), 60);
    EXPECT_GE(watch.lapMs(), 60);
    // The lap restarted the watch, so the next one measures only the time since.
    EXPECT_LT(watch.lapMs(), 60);
}

// Formats fixed instants in fixed-offset zones. The offset is determined from the current time,
// which is why the zones have no daylight-saving rule.
class TimeStampTest : public ::testing::Test {
  protected:
    void TearDown() override {
        unsetenv("TZ");
        tzset();
        utcOffsetSeconds = -1;
    }
    static void useZone(const char* tz) {
        setenv("TZ", tz, 1);
        tzset();
        utcOffsetSeconds = -1;
    }
    static std::string format(int64_t seconds) {
        TimeStamp stamp(false);
        stamp.seconds = seconds;
        FixedString<50> text;
        return formatTimeStamp(text, stamp).text;
    }
};

// 2023-11-14 00:00:00 UTC.
constexpr int64_t kMidnightUtc = 1699920000;

TEST_F(TimeStampTest, ShowsLocalTimeOfDay) {
    struct Case {
        const char* tz;  // POSIX TZ: the sign is that of UTC minus local time
        int64_t seconds;
        const char* stamp;
        int32_t offset;
    };
    const Case cases[] = {
        {"XXX-2", kMidnightUtc + 22 * 3600 + 30 * 60 + 15, "00:30.15", 7200},
        {"XXX+5", kMidnightUtc + 3 * 3600, "22:00.00", -18000},
        {"UTC0", kMidnightUtc + 7 * 3600 + 4 * 60 + 9, "07:04.09", 0},
        // Beyond twelve hours the offset folds to the previous day: +13 h becomes -11 h, which
        // still gives the right hour of the day.
        {"XXX-13", kMidnightUtc + 22 * 3600 + 30 * 60 + 15, "11:30.15", -39600},
    };
    for (const Case& c : cases) {
        useZone(c.tz);
        EXPECT_EQ(format(c.seconds), c.stamp) << c.tz;
        EXPECT_EQ(utcOffsetSeconds, c.offset) << c.tz;
        EXPECT_EQ(updateUtcOffset(false), 0) << c.tz;
    }
}

TEST_F(TimeStampTest, OffsetIsDeterminedOnlyOnce) {
    useZone("XXX-2");
    EXPECT_EQ(format(kMidnightUtc), "02:00.00");
    setenv("TZ", "XXX+5", 1);
    tzset();
    EXPECT_EQ(format(kMidnightUtc), "02:00.00");
}

}  // namespace
