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

// The passes a worker of passCount runs: a quiet warm-up of a third of them (none below three),
// then every measured pass with the worker's own verbose flag.
std::vector<std::vector<int32_t>> passesOf(int32_t warmUp, int32_t measured) {
    std::vector<std::vector<int32_t>> passes;
    for (int32_t pass = 1; pass <= warmUp; ++pass) {
        passes.push_back({pass, warmUp, false});
    }
    for (int32_t pass = 1; pass <= measured; ++pass) {
        passes.push_back({pass, measured, true});
    }
    return passes;
}

TEST(Worker, WarmsUpQuietlyWithAThirdThenMeasuresEveryPass) {
    for (const int32_t passCount : {10, 2}) {
        psTestSingle worker(0, true);
        worker.passCount = passCount;
        recorded.clear();
        testing::internal::CaptureStdout();
        runWorkerPasses(worker, recordPass);
        const std::string output = testing::internal::GetCapturedStdout();
        EXPECT_EQ(recorded, passesOf(passCount == 10 ? 3 : 0, passCount)) << passCount;
        EXPECT_TRUE(worker.done.load());
        EXPECT_EQ(worker.progress.load(), 1.0f);
        EXPECT_TRUE(matchesFully(output,
                                 "\n      t0:\\*{10}preheat done\\*{10}\n"
                                 "      totalTime \\d+\\.\\d{3}\n"))
            << output;
    }
}

// A stop asked for while the worker runs ends it before its next pass, without a score.
TEST(Worker, StopsBeforeTheNextPassWhenAsked) {
    psTestSingle worker(0, false);
    static psTestSingle* running = &worker;
    recorded.clear();
    runWorkerPasses(worker, [](const PassContext& context, const int32_t& passNumber,
                               const int32_t& passTotal) {
        recordPass(context, passNumber, passTotal);
        if (recorded.size() == 2) {
            running->stopRequested.store(true);
        }
    });
    EXPECT_EQ(recorded.size(), 2u);
    EXPECT_FALSE(worker.done.load());
}

TEST(Worker, ScoresFortySixHundredOverTheMeanPassTime) {
    EXPECT_EQ(psFromMeasurement(5980, 130), 100.0);
    // Neither a measured time nor a pass count of 0 divides by zero.
    EXPECT_EQ(psFromMeasurement(0, 130), psFromMeasurement(5980, 0));
    EXPECT_EQ(psFromMeasurement(0, 130), 46000001.16205777);
}

}  // namespace
