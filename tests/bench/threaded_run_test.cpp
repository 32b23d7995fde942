// Real worker threads. These take seconds, not milliseconds.

#include <gtest/gtest.h>

#include "ps_test_run.h"
#include "test_output.h"

namespace {

TEST(PsTestRunThreads, SpeedRunOfTwoWorkersReportsBothAndTheResult) {
    QString text;
    bool verbose = false;
    bool speed = true;
    bool single = false;
    const float ps = runSingleCoreTest(text, verbose, speed, single, 2, nullptr, nullptr);

    const QString score = "\\d+\\.\\d{3}";
    const QString worker = ": " + score + "PS \\(\\d{1,3}( \\d{3})* ms, 10 loops\\)\n";
    EXPECT_TRUE(matchesFully(text.toStdString(),
                             "CPU PS Test\\.\\.\\.\nCreating 2 threads\n[\\s\\S]*CPU Description:"
                             "[\\s\\S]*adding thread 0" +
                                 worker + "adding thread 1" + worker + "=totalSpeed " + score +
                                 " PS \\(Average per core: " + score +
                                 " PS\\)\nPS_Result: " + QString::number(ps, 'f', 3)))
        << text.toStdString();
}

}  // namespace
