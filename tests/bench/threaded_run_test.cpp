// Real worker threads. These take seconds, not milliseconds.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ps_test_run.h"
#include "test_output.h"
#include "time_helpers.h"

namespace {

TEST(WorkerThread, RunsItsPassesOnItsOwnThreadAndScores) {
    psTestSingle worker(1, false);
    worker.passCount = 1;
    worker.start(QThread::InheritPriority);
    while (!worker.done.load(std::memory_order_acquire)) {
        sleepMs(20);
    }
    EXPECT_EQ(worker.progress.load(std::memory_order_acquire), 1.0f);
    EXPECT_GT(worker.measuredMs, 0);
    EXPECT_EQ(worker.ps, psFromMeasurement(worker.measuredMs, 1));
}

TEST(PsTestRunThreads, SpeedRunOfTwoWorkersReportsBothAndTheirSum) {
    QString text;
    bool verbose = false;
    bool speed = true;
    bool single = false;
    FixedString<10> cpuName;
    float clock = -1.0f;
    const float ps = runSingleCoreTest(text, verbose, speed, single, 2, &cpuName, &clock);

    const QString score = "\\d+\\.\\d{3}";
    const QString worker = ": " + score + "PS \\(\\d{1,3}( \\d{3})* ms, 10 loops\\)\n";
    const QString expected =
        "CPU PS Test\\.\\.\\.\nCreating 2 threads\n"
        "[\\s\\S]*CPU Description:[\\s\\S]*"
        "adding thread 0" +
        worker + "adding thread 1" + worker + "=totalSpeed " + score +
        " PS \\(Average per core: " + score + " PS\\)\nPS_Result: " + QString::number(ps, 'f', 3);
    EXPECT_TRUE(matchesFully(text.toStdString(), expected)) << text.toStdString();
    EXPECT_GE(clock, 0.0f);
    CpuInfo info;
    readCpuInfo(info);
    EXPECT_EQ(cpuName.text, std::string(info.shortName.text).substr(0, 10));
    EXPECT_EQ(cpuName.length, strlen(cpuName.text));
}

}  // namespace
