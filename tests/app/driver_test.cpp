// The driver library's own rules: the test table, the exit code and Core*Time.

#include "driver.h"

#include <gtest/gtest.h>

#include <string>

#include "exit_code.h"
#include "test_table.h"

namespace {

TEST(TestTable, NamesMatchIgnoringCaseAtEqualLength) {
    const struct {
        const char* argument;
        const char* test;
    } cases[] = {
        {"", "All x1 all"},
        {"ALL", "All x1 all"},
        {"allverbose", "AllVerbose x1 all verbose"},
        {"Single", "Single x1 single"},
        {"SINGLESPEED", "SingleSpeed x1 single speed"},
        {"Single5", "Single5 x5 single"},
        {"single5verbose", "Single5Verbose x5 single verbose"},
        {"Single10", "Single10 x10 single"},
        {"Single10Verbose", "Single10Verbose x10 single verbose"},
        {"Single50", "none"},
    };
    for (const auto& c : cases) {
        // How the driver runs the test; speed and scaleOneWorker matter only to the single-core
        // run.
        const TestEntry* t = findTest(FixedString<100>(c.argument));
        EXPECT_EQ(t == nullptr
                      ? "none"
                      : std::string(t->name) + " x" + std::to_string(t->runs) +
                            (t->allCores         ? " all"
                             : t->scaleOneWorker ? " single"
                                                 : " per-cpu") +
                            (!t->allCores && t->passes == kSpeedPassCount ? " speed" : "") +
                            (t->verbose ? " verbose" : ""),
                  c.test)
            << c.argument;
    }
}

TEST(ExitCode, QuotientTruncatesTowardZeroAndOutOfRangeGivesMinimum) {
    const struct {
        float ps;
        int32_t divider;
        int32_t value;
        int exitCode;
    } cases[] = {
        {300.7f, 2, 150, 150},
        {256.0f, 1, 256, 255},  // 256 and more is capped
        {255.9f, 1, 255, 255},
        {300.7f, -2, -150, -150},           // negative values pass unchanged
        {300.7f, -1000, 0, 0},              // -0.3007 truncates toward zero, not to -1
        {300.7f, 0, INT32_MIN, INT32_MIN},  // +infinity
        {0.0f, 0, INT32_MIN, INT32_MIN},    // NaN
        {2147483648.0f, 1, INT32_MIN, INT32_MIN},
        {-2147483904.0f, 1, INT32_MIN, INT32_MIN},  // the first float below -2^31
        // 16777217 becomes 16777216 as a float, so the quotient is exactly 1; in double it would
        // be just below 1 and truncate to 0.
        {16777216.0f, 16777217, 1, 1},
    };
    for (const auto& c : cases) {
        const int32_t value = exitValue(c.ps, c.divider);
        EXPECT_EQ(value, c.value) << c.ps << " / " << c.divider;
        EXPECT_EQ(exitCodeFor(value), c.exitCode) << c.ps << " / " << c.divider;
    }
}

TEST(ExitCode, DividerIsReadLikeAtoi) {
    EXPECT_EQ(dividerFrom(""), 0);
    EXPECT_EQ(dividerFrom("  -7x"), -7);
    EXPECT_EQ(dividerFrom("4294967298"), 2);  // the low 32 bits, without undefined behaviour
}

TEST(ExitCode, MeanAddsInRunOrderInSinglePrecision) {
    // Floats are 8 apart near 1e8: added one at a time after 1e8 each 2 is lost, while a double
    // accumulator or another order would keep their sum of 8 and give 20000002.
    const float runOrder[] = {1.0e8f, 2.0f, 2.0f, 2.0f, 2.0f};
    EXPECT_EQ(meanOfRuns(runOrder, 5), 20000000.0f);
    const float one[] = {300.7f, 999.0f};
    EXPECT_EQ(meanOfRuns(one, 1), 300.7f);
}

TEST(Driver, CoreTimeIsA32BitProductThatWraps) {
    EXPECT_EQ(coreTimeProduct(61234, 16), 979744);
    // 150,000,000 ms x 16 = 2,400,000,000, past 2^31: the low 32 bits read as negative.
    EXPECT_EQ(coreTimeProduct(150000000, 16), 2400000000LL - 4294967296LL);
    EXPECT_EQ(coreTimeProduct(2147483647, 2), -2);  // 2^32 - 2
}

}  // namespace
