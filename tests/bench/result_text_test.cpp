#include "result_text.h"

#include <gtest/gtest.h>

namespace {

TEST(ResultText, TotalIsSummedInDoubleAndFlooredAtTwo) {
    QString text;
    RunOutput verbose(text, true);
    testing::internal::CaptureStdout();
    const float floored = addWorkerResults(verbose, {{0.5, 1, 10}, {0.7, 1000500, 130}});
    addPsResult(verbose, floored);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "psTest: adding thread 0: 0.500\n"
              "psTest: adding thread 1: 0.700\n"
              "psTest: totalSpeed 2.000 PS   (Average per core:  1.000 PS)\n"
              "psTest: PS_Result: 2.000\n");
    EXPECT_EQ(floored, 2.0f);
    EXPECT_EQ(text,
              "adding thread 0: 0.500PS (1 ms, 10 loops)\n"
              "adding thread 1: 0.700PS (1000 500 ms, 130 loops)\n"
              "=totalSpeed 2.000 PS (Average per core: 1.000 PS)\n"
              "PS_Result: 2.000");
    // 2^24 + 1.00000001 rounds up only when the add is done in double; in single precision
    // the addend would first become 1 and the tie round down to even.
    RunOutput quiet(text, false);
    testing::internal::CaptureStdout();
    EXPECT_EQ(addWorkerResults(quiet, {{16777216.0, 0, 1}, {1.00000001, 0, 1}}), 16777218.0f);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// A '%' in a brand or error text prints as itself in a verbose run.
TEST(ResultText, VerboseReportPrintsPercentSignsAsText) {
    QString text;
    ReportText report;
    report.assign("CPU Description:     100% %s %n\n");
    testing::internal::CaptureStdout();
    RunOutput(text, true).report(report);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), report.text);
    EXPECT_EQ(text, "");
}

TEST(ResultText, GroupedNumbers) {
    EXPECT_EQ(formatGroupedNumber(1001000, false), "1 001 000");  // inner groups keep their zeros
    EXPECT_EQ(formatGroupedNumber(-5980, false), "-5 980");
    EXPECT_EQ(formatGroupedNumber(INT64_MIN, false), "-9 223 372 036 854 775 808");
}

}  // namespace
