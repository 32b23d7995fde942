// Runs real benchmarks with the built corebench and reads its whole output line by line. The
// scores depend on the machine, so they are checked for format and for agreement with each other
// (per-thread sum, scaling, exit code, Core*Time) rather than for values.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "corebench_process.h"

namespace {

struct RunExpectation {
    int workers;          // "Creating %d threads"; 0: the logical CPU count
    int loops;            // measured passes per worker
    bool singleScaled;    // PS_Result is one worker's score scaled to all CPUs
    bool loremIpsum;      // the filler precedes the result
    int divider;          // given with exitCodeThreshold
    bool returnsMinimum;  // the divider reads as 0
};

// Matches lines[at] against a template and moves on; the test stops at the first line out of
// place. The numbers read are in n.
#define ASSERT_NEXT_LINE(pattern)                                                                  \
    n.clear();                                                                                     \
    ASSERT_LT(at, lines.size()) << "output ends early";                                            \
    ASSERT_TRUE(matchLine(lines[at], pattern, &n)) << "line " << at << ": \"" << lines[at] << '"'; \
    ++at

void checkRun(const std::vector<std::string>& arguments, const RunExpectation& expect) {
    const ProcessResult run = runCorebench(arguments);
    ASSERT_TRUE(run.exited);
    const Summary summary = readSummary(run.output);
    ASSERT_GT(summary.length, 0u) << run.output.substr(0, 300);
    const int threads = summary.threads;
    const int workers = expect.workers > 0 ? expect.workers : threads;

    size_t bodyStart = summary.length;
    if (expect.loremIpsum) {
        ASSERT_EQ(run.output.compare(bodyStart, 13, "\n\nLorem ipsum"), 0);
        bodyStart += 4680;
    }
    ASSERT_LE(bodyStart, run.output.size());
    ASSERT_EQ(run.output.back(), '\n');
    const std::vector<std::string> lines = splitLines(run.output.substr(bodyStart));
    size_t at = 0;
    std::vector<double> n;

    ASSERT_NEXT_LINE("CPU PS Test...");
    ASSERT_NEXT_LINE("Creating # threads");
    EXPECT_EQ(n[0], workers);
    // The processor report taken under load sits between the header and the per-thread lines.
    bool reportSeen = false;
    for (; at < lines.size() && lines[at].rfind("adding thread ", 0) != 0; ++at) {
        reportSeen = reportSeen || lines[at].rfind("CPU Core Count:      ", 0) == 0;
    }
    EXPECT_TRUE(reportSeen) << "no CPU report in the result text";

    double threadSum = 0;
    for (int i = 0; i < workers; ++i) {
        ASSERT_NEXT_LINE("adding thread #: ~PS (@ ms, # loops)");
        EXPECT_EQ(n[0], i);
        EXPECT_EQ(n[3], expect.loops);
        threadSum += n[1];
    }
    ASSERT_NEXT_LINE("=totalSpeed ~ PS (Average per core: ~ PS)");
    const double total = n[0];
    EXPECT_NEAR(total, std::max(threadSum, 2.0), 0.001 * workers + 1e-9);
    ASSERT_NEXT_LINE("PS_Result: ~");
    const double ps = n[0];
    if (expect.singleScaled) {
        // All logical CPUs, times 0.6 with hyperthreading.
        const double full = total * threads;
        EXPECT_TRUE(std::fabs(ps - full) < 0.01 || std::fabs(ps - full * 0.6) < 0.01)
            << ps << " vs " << total << " x " << threads;
    } else {
        EXPECT_EQ(ps, total);
    }

    ASSERT_NEXT_LINE("Returning exit code #");
    const long long value = static_cast<long long>(n[0]);
    if (expect.returnsMinimum) {
        EXPECT_EQ(value, INT32_MIN);
    } else {
        // The printed PS is rounded to three decimals; the exit value was taken from the float.
        const long long low = std::trunc((ps - 0.0005) / expect.divider);
        const long long high = std::trunc((ps + 0.0005) / expect.divider);
        EXPECT_TRUE(value == low || value == high) << value << " from " << ps;
    }
    EXPECT_EQ(run.status, (value < 256 ? value : 255) & 0xFF);

    ASSERT_NEXT_LINE("");
    ASSERT_NEXT_LINE("Time_Exec: # sec");
    const long long seconds = static_cast<long long>(n[0]);
    EXPECT_LE(seconds, run.seconds);
    ASSERT_NEXT_LINE("Core*Time: #");
    // The elapsed milliseconds times the logical CPU count, also for a single worker.
    const long long coreTime = static_cast<long long>(n[0]);
    EXPECT_EQ(coreTime % threads, 0);
    EXPECT_EQ(coreTime / threads / 1000, seconds);
    ASSERT_NEXT_LINE("??:??.??");
    EXPECT_EQ(at, lines.size()) << "text after the closing time stamp";
}

TEST(CorebenchRun, SingleSpeedScoresOneWorkerAndReturnsItsQuotient) {
    checkRun({"SingleSpeed", "exitCodeThreshold", "2", "LoremIpsum"},
             {1, 10, true, true, 2, false});
}

TEST(CorebenchRun, NonNumericDividerReturnsMinimumAndLaterKeywordsDoNotCount) {
    // Any case works for the name and the keyword; the keyword pair after the third argument is
    // no longer positional and changes nothing.
    checkRun({"singlespeed", "EXITCODETHRESHOLD", "abc", "exitCodeThreshold", "1"},
             {1, 10, true, false, 0, true});
}

TEST(CorebenchRun, AllRunsOneWorkerPerLogicalCpuWithNegativeDivider) {
    checkRun({"All", "exitCodeThreshold", "-3"}, {0, 130, false, false, -3, false});
}

}  // namespace
