#include "ps_test_run.h"

#include <gtest/gtest.h>

#include "cpu_report.h"

namespace {

TEST(PsTestRun, CapsTheThreadsAt550) {
    PsTestRun run;
    run.speed = true;
    int32_t wanted = 600;
    run.createWorkers(wanted, false);
    EXPECT_EQ(wanted, 550);
    EXPECT_EQ(run.resultText, "CPU PS Test...\nCreating 550 threads\n");
    EXPECT_EQ(run.workers[549]->index, 549);
    EXPECT_EQ(run.workers[549]->passCount, 10);
}

// The run's own steps, with finished workers faked in place of started ones.
TEST(PsTestRun, QuietResultTextHasHeaderReportWorkersAndTotalInOrder) {
    PsTestRun run;
    int32_t wanted = 2;
    run.createWorkers(wanted, false);
    EXPECT_EQ(run.workers[1]->passCount, 130);
    const WorkerResult fake[] = {{50.1234, 5980, 10}, {49.5, 6000, 10}};
    for (int32_t i = 0; i < 2; ++i) {
        run.workers[i]->ps = fake[i].ps;
        run.workers[i]->measuredMs = fake[i].measuredMs;
        run.workers[i]->passCount = fake[i].passCount;
    }
    run.takeCpuInfo(false);
    EXPECT_EQ(run.collectResults(false), 99.6234f);

    ReportText report;
    buildCpuInfoReport(report, run.cpuInfo, false, false, true);
    EXPECT_GT(report.length, 0);
    EXPECT_EQ(run.resultText, "CPU PS Test...\nCreating 2 threads\n" +
                                  QString::fromLatin1(report.text, report.length) +
                                  "adding thread 0: 50.123PS (5 980 ms, 10 loops)\n"
                                  "adding thread 1: 49.500PS (6 000 ms, 10 loops)\n"
                                  "=totalSpeed 99.623 PS (Average per core: 49.812 PS)\n");
    EXPECT_EQ(run.workers[0], nullptr);
}

TEST(PsTestRun, TotalIsSummedInDoubleAndFlooredAtTwo) {
    QString text;
    testing::internal::CaptureStdout();
    const float floored = addWorkerResults(text, {{0.5, 1, 10}, {0.7, 1000500, 130}}, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "psTest: adding thread 0: 0.500\n"
              "psTest: adding thread 1: 0.700\n"
              "psTest: totalSpeed 2.000 PS   (Average per core:  1.000 PS)\n");
    EXPECT_EQ(floored, 2.0f);
    EXPECT_EQ(text,
              "adding thread 0: 0.500PS (1 ms, 10 loops)\n"
              "adding thread 1: 0.700PS (1000 500 ms, 130 loops)\n"
              "=totalSpeed 2.000 PS (Average per core: 1.000 PS)\n");
    // 2^24 + 1.00000001 rounds up only when the add is done in double; in single precision
    // the addend would first become 1 and the tie round down to even.
    EXPECT_EQ(addWorkerResults(text, {{16777216.0, 0, 1}, {1.00000001, 0, 1}}, false), 16777218.0f);
}

TEST(PsTestRun, SingleCoreFactorCountsHyperthreadedCpusAsSixtyPercent) {
    EXPECT_EQ(singleCoreFactor(8, true), 4.8f);
    EXPECT_EQ(singleCoreFactor(16, true), 9.6f);
    EXPECT_EQ(singleCoreFactor(16, false), 16.0f);
}

TEST(PsTestRun, GroupedNumbers) {
    const struct {
        int64_t value;
        bool showPlus;
        const char* text;
    } cases[] = {{1001000, false, "1 001 000"},
                 {-5980, false, "-5 980"},
                 {5980, true, " 5 980"},
                 {-7, true, "-7"},
                 {INT64_MIN, false, "-9 223 372 036 854 775 808"}};
    for (const auto& c : cases) {
        EXPECT_EQ(formatGroupedNumber(c.value, c.showPlus), c.text) << c.value;
    }
}

}  // namespace
