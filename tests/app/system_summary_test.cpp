#include "system_summary.h"

#include <gtest/gtest.h>

namespace {

TEST(SystemSummary, RamIsWholeGibWithRemainderDropped) {
    const int64_t gib = 1073741824;
    EXPECT_EQ(wholeGib(8 * gib - 1), 7);
    EXPECT_EQ(wholeGib(8 * gib), 8);
    EXPECT_EQ(wholeGib(1536 * gib), 1536);
}

TEST(SystemSummary, ThreadCountIsOneWhenTheSystemGivesNone) {
    EXPECT_EQ(threadCountFrom(16), 16);
    EXPECT_EQ(threadCountFrom(0), 1);
    EXPECT_EQ(threadCountFrom(-1), 1);
}

}  // namespace
