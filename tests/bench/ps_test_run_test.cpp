// The run's orchestration with workers that never get a thread: the start stand-in below fills in
// a finished worker's results, or fails, the way a real start would leave them.

#include "ps_test_run.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "system_error.h"
#include "test_output.h"

namespace {

// Worker i finishes with the i-th result (the last one repeated), keeping the pass count the run
// gave it; the worker with index failAt is not started.
WorkerStart finishing(std::vector<std::pair<double, int64_t>> results, int32_t failAt = -1,
                      int32_t* started = nullptr) {
    return [=](psTestSingle& worker, FixedString<250>& error) {
        if (worker.index == failAt) {
            error = systemErrorText(EAGAIN);
            return false;
        }
        if (started != nullptr) {
            ++*started;
        }
        const auto& result = results[std::min<size_t>(worker.index, results.size() - 1)];
        worker.ps = result.first;
        worker.measuredMs = result.second;
        worker.progress.store(1.0f);
        worker.done.store(true);
        return true;
    };
}

const QString kClosingNote =
    "NOTE: Korvo reads the information provided by the OS or BIOS.\n"
    "Not all information is available on every OS. And not all GHz information provided by the "
    "system is reliable.\n\n";

// A quiet run prints nothing and keeps the CPU report in its text, between the header and the
// workers; a verbose one prints its steps and the report, and keeps only header and workers.
TEST(PsTestRun, ResultTextAndVerboseSteps) {
    const QString workers =
        "adding thread 0: 50.123PS (5 980 ms, %1 loops)\n"
        "adding thread 1: 49.500PS (6 000 ms, %1 loops)\n"
        "=totalSpeed 99.623 PS (Average per core: 49.812 PS)\n";
    for (const bool verbose : {false, true}) {
        PsTestRun run(verbose, finishing({{50.1234, 5980}, {49.5, 6000}}));
        int32_t threadCount = 2;
        testing::internal::CaptureStdout();
        EXPECT_EQ(run.runPsTest(threadCount, verbose), 99.6234f);
        const std::string output = testing::internal::GetCapturedStdout();
        const QString text = run.resultText();
        if (!verbose) {
            EXPECT_EQ(output, "");
            EXPECT_TRUE(
                matchesFully(text.toStdString(),
                             "CPU PS Test\\.\\.\\.\nCreating 2 threads\n(-{30}\nERRORS:|CPU "
                             "Description:)[\\s\\S]*" +
                                 QRegularExpression::escape(kClosingNote + workers.arg(130))))
                << text.toStdString();
            EXPECT_EQ(text.count("CPU Description:"), 1);
            continue;
        }
        EXPECT_TRUE(matchesFully(output,
                                 "CPU PS Test\\.\\.\\.\nCreating 2 threads\ntt\n"
                                 "psTest: threads created\npsTest: starting threads - benchmark\n"
                                 "\npsTest: waiting for results\\.\\.\\.\\.\n"
                                 "psTest: Calling cpuInfo\n[\\s\\S]*CPU Description:[\\s\\S]*" +
                                     QRegularExpression::escape(kClosingNote) +
                                     "\npsTest: all Threads done\n"
                                     "psTest: adding thread 0: 50\\.123\n"
                                     "psTest: adding thread 1: 49\\.500\n"
                                     "psTest: totalSpeed 99\\.623 PS   \\(Average per core:  "
                                     "49\\.812 PS\\)\n"))
            << output;
        EXPECT_EQ(text, "CPU PS Test...\nCreating 2 threads\n" + workers.arg(10));
    }
}

TEST(PsTestRun, CapsTheThreadsAt550) {
    PsTestRun run(true, finishing({{1.0, 46}}));
    int32_t threadCount = 600;
    EXPECT_EQ(run.runPsTest(threadCount, false), 550.0f);
    EXPECT_EQ(threadCount, 550);
    EXPECT_TRUE(run.resultText().startsWith("CPU PS Test...\nCreating 550 threads\n"));
    EXPECT_TRUE(
        run.resultText().endsWith("adding thread 549: 1.000PS (46 ms, 10 loops)\n"
                                  "=totalSpeed 550.000 PS (Average per core: 1.000 PS)\n"));
}

// The first worker that cannot be started ends the run: one line on stderr, no score, no further
// start, and the result text holds no totals.
TEST(PsTestRun, AWorkerThatCannotStartEndsTheRunWithOneLine) {
    int32_t started = 0;
    PsTestRun run(false, finishing({{50.0, 5980}}, 1, &started));
    int32_t threadCount = 3;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(run.runPsTest(threadCount, false), std::nullopt);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("corebench: worker thread 1 of 3 could not be started: ") +
                  systemErrorText(EAGAIN).text + "\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(started, 1);
    EXPECT_EQ(run.resultText(), "CPU PS Test...\nCreating 3 threads\n");
}

}  // namespace
