// Real worker threads. These take seconds, not milliseconds.

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <cerrno>

#include "ps_test_run.h"
#include "system_error.h"
#include "test_output.h"

namespace {

// Two real workers finish and both are added; the lines' format is pinned by ResultText's tests.
TEST(PsTestRunThreads, SpeedRunOfTwoWorkersReportsBothAndTheResult) {
    QString text;
    bool verbose = false, speed = true, scaleOneWorker = false;
    const std::optional<float> ps =
        runSingleCoreTest(text, verbose, speed, scaleOneWorker, 2, nullptr, nullptr);
    ASSERT_TRUE(ps.has_value());
    EXPECT_TRUE(
        matchesFully(text.toStdString(),
                     "CPU PS Test\\.\\.\\.\nCreating 2 threads\n[\\s\\S]*\nadding thread 0: "
                     ".*\nadding thread 1: .*\n=totalSpeed .*\nPS_Result: " +
                         QString::number(*ps, 'f', 3)))
        << text.toStdString();
}

// Worker 0 really runs; worker 1 cannot be started. The run must stop worker 0 within a pass or
// two of its 173 (a full run takes a minute or more) and join it before it returns.
TEST(PsTestRunThreads, AFailedStartStopsTheWorkersThatRun) {
    PsTestRun run(false, [](psTestSingle& worker, FixedString<250>& error) {
        if (worker.index == 0) {
            return startWorkerThread(worker, error);
        }
        error = systemErrorText(EAGAIN);
        return false;
    });
    int32_t threadCount = 2;
    QElapsedTimer timer;
    timer.start();
    testing::internal::CaptureStderr();
    EXPECT_EQ(run.runPsTest(threadCount, false), std::nullopt);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("corebench: worker thread 1 of 2 could not be started: ") +
                  systemErrorText(EAGAIN).text + "\n");
    EXPECT_LT(timer.elapsed(), 30000);
}

}  // namespace
