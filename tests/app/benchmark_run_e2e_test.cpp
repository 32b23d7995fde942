// Runs real benchmarks with the built corebench. The scores depend on the machine, so they are
// checked for format and for agreement with each other (per-thread sum, scaling, exit code,
// Core*Time) rather than for values.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "corebench_process.h"

namespace {

// allCores: one worker per logical CPU with 130 passes, else one worker with 10 passes whose score
// is scaled to all CPUs. A divider of 0 stands for one that reads as 0.
void checkRun(const std::vector<std::string>& arguments, bool allCores, int divider,
              bool loremIpsum) {
    const ProcessResult run = runCorebench(arguments);
    ASSERT_TRUE(run.exited);
    int threads = 0;
    size_t bodyAt = summaryLength(run.output, &threads);
    ASSERT_GT(bodyAt, 0u) << run.output.substr(0, 300);
    if (loremIpsum) {
        EXPECT_EQ(run.output.compare(bodyAt, 13, "\n\nLorem ipsum"), 0);
        bodyAt += 4680;
    }
    ASSERT_LE(bodyAt, run.output.size());
    const QString body = QString::fromLatin1(run.output.c_str() + bodyAt);
    const int workers = allCores ? threads : 1;

    // Every line in its place: the header, the CPU report taken under load, one line per worker,
    // the total, the result, the exit value and the timing lines.
    QString workerLines;
    for (int i = 0; i < workers; ++i) {
        workerLines +=
            QString("adding thread %1: \\d+\\.\\d{3}PS \\(\\d{1,3}(?: \\d{3})* ms, %2 loops\\)\n")
                .arg(i)
                .arg(allCores ? 130 : 10);
    }
    const QString score = "(\\d+\\.\\d{3})";
    const QRegularExpression layout(QRegularExpression::anchoredPattern(
        "CPU PS Test\\.\\.\\.\nCreating " + QString::number(workers) +
        " threads\n(?:.*\n)*?CPU Core Count: (?:.*\n)*?" + workerLines + "=totalSpeed " + score +
        " PS \\(Average per core: \\d+\\.\\d{3} PS\\)\nPS_Result: " + score +
        "\nReturning exit code (-?\\d+)\n\nTime_Exec: (\\d+) sec\nCore\\*Time: (-?\\d+)\n"
        "\\d\\d:\\d\\d\\.\\d\\d\n"));
    const QRegularExpressionMatch match = layout.match(body);
    ASSERT_TRUE(match.hasMatch()) << body.toStdString();

    const double total = match.captured(1).toDouble();
    const double ps = match.captured(2).toDouble();
    if (!allCores) {
        // All logical CPUs, times 0.6 with hyperthreading.
        const double full = total * threads;
        EXPECT_TRUE(std::fabs(ps - full) < 0.01 || std::fabs(ps - full * 0.6) < 0.01)
            << ps << " vs " << total << " x " << threads;
    } else {
        EXPECT_EQ(ps, total);
    }

    const long long value = match.captured(3).toLongLong();
    if (divider == 0) {
        EXPECT_EQ(value, INT32_MIN);
    } else {
        // The printed PS is rounded to three decimals; the exit value was taken from the float.
        const long long low = std::trunc((ps - 0.0005) / divider);
        const long long high = std::trunc((ps + 0.0005) / divider);
        EXPECT_TRUE(value == low || value == high) << value << " from " << ps;
    }
    EXPECT_EQ(run.status, (value < 256 ? value : 255) & 0xFF);

    // The elapsed milliseconds times the logical CPU count, also for a single worker.
    const long long coreTime = match.captured(5).toLongLong();
    EXPECT_EQ(coreTime % threads, 0);
    EXPECT_EQ(coreTime / threads / 1000, match.captured(4).toLongLong());
}

TEST(CorebenchRun, SingleSpeedScoresOneWorkerAndReturnsItsQuotient) {
    checkRun({"SingleSpeed", "exitCodeThreshold", "2", "LoremIpsum"}, false, 2, true);
}

TEST(CorebenchRun, NonNumericDividerReturnsMinimumAndLaterKeywordsDoNotCount) {
    // Any case works for the name and the keyword; the keyword pair after the third argument is
    // no longer positional and changes nothing.
    checkRun({"singlespeed", "EXITCODETHRESHOLD", "abc", "exitCodeThreshold", "1"}, false, 0,
             false);
}

TEST(CorebenchRun, AllRunsOneWorkerPerLogicalCpuWithNegativeDivider) {
    checkRun({"All", "exitCodeThreshold", "-3"}, true, -3, false);
}

}  // namespace
