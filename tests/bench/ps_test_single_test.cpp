#include "ps_test_single.h"

#include <gtest/gtest.h>

#include "test_output.h"

namespace {

// Each pass as "number/total", with a q when the pass ran quietly.
std::string passes;

// A quiet warm-up of a third of the passes (none below three), then every measured pass with the
// worker's own verbose flag.
TEST(Worker, WarmsUpQuietlyWithAThirdThenMeasuresEveryPass) {
    const struct {
        int32_t passCount;
        const char* passes;
    } cases[] = {{10, "1/3q 2/3q 3/3q 1/10 2/10 3/10 4/10 5/10 6/10 7/10 8/10 9/10 10/10 "},
                 {2, "1/2 2/2 "}};
    for (const auto& c : cases) {
        psTestSingle worker(0, true);
        worker.passCount = c.passCount;
        passes.clear();
        testing::internal::CaptureStdout();
        runWorkerPasses(
            worker, [](const PassContext& context, const int32_t& number, const int32_t& total) {
                passes += std::to_string(number) + "/" + std::to_string(total) +
                          (context.verbose ? " " : "q ");
            });
        const std::string output = testing::internal::GetCapturedStdout();
        EXPECT_EQ(passes, c.passes);
        EXPECT_TRUE(worker.done.load());
        EXPECT_EQ(worker.progress.load(), 1.0f);
        EXPECT_TRUE(matchesFully(output,
                                 "\n      t0:\\*{10}preheat done\\*{10}\n"
                                 "      totalTime \\d+\\.\\d{3}\n"))
            << output;
    }
}

TEST(Worker, ScoresFortySixHundredOverTheMeanPassTime) {
    EXPECT_EQ(psFromMeasurement(5980, 130), 100.0);
    // Neither a measured time nor a pass count of 0 divides by zero.
    EXPECT_EQ(psFromMeasurement(0, 130), psFromMeasurement(5980, 0));
    EXPECT_EQ(psFromMeasurement(0, 130), 46000001.16205777);
}

}  // namespace
