#include "ps_test_single.h"

#include <gtest/gtest.h>

#include <vector>

#include "test_output.h"

namespace {

// Each pass as (pass number, pass total, verbose).
std::vector<std::vector<int32_t>> recorded;

void recordPass(const PassContext& worker, const int32_t& passNumber, const int32_t& passTotal) {
    recorded.push_back({passNumber, passTotal, worker.verbose});
}

TEST(Worker, SpeedModeWarmsUpQuietlyWithThreePassesThenMeasuresTen) {
    psTestSingle worker(0, true);
    EXPECT_EQ(worker.bufferSize, 10485760);
    EXPECT_EQ(worker.memoryRepeats, 2);
    worker.passCount = 10;
    std::vector<std::vector<int32_t>> expected;
    for (int32_t pass = 1; pass <= 3; ++pass) {
        expected.push_back({pass, 3, false});
    }
    for (int32_t pass = 1; pass <= 10; ++pass) {
        expected.push_back({pass, 10, true});
    }
    testing::internal::CaptureStdout();
    runWorkerPasses(worker, recordPass);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(recorded, expected);
    EXPECT_TRUE(worker.done.load());
    EXPECT_EQ(worker.progress.load(), 1.0f);
    EXPECT_EQ(worker.ps, psFromMeasurement(worker.measuredMs, 10));
    EXPECT_TRUE(matchesFully(output,
                             "\n      t0:\\*{10}preheat done\\*{10}\n"
                             "      totalTime \\d+\\.\\d{3}\n"))
        << output;
}

TEST(Worker, ScoresFortySixHundredOverTheMeanPassTime) {
    EXPECT_EQ(psFromMeasurement(5980, 130), 100.0);
    EXPECT_EQ(psFromMeasurement(0, 130), 46000001.16205777);
    EXPECT_EQ(psFromMeasurement(5980, 0), 46000001.16205777);
}

}  // namespace
