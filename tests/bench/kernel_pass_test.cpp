#include "kernel_pass.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "test_output.h"

namespace {

// Fresh zeroed buffers make the memory checksum the same on every pass: the first repeat reads
// zeros, the second the 0xD5 bytes (-43) the first one left, and six of them give -258 / 100.
std::string passOutput(int32_t index, bool verbose, int32_t passNumber) {
    std::vector<char> a(4096), b(4096);
    testing::internal::CaptureStdout();
    kernelPass(PassContext{index, verbose, 2, 4096, a.data(), b.data()}, passNumber, 130);
    return testing::internal::GetCapturedStdout();
}

// The square-root loops and the recurrences use only correctly rounded operations, so unlike the
// trigonometric loops their checksums do not depend on the math library.
TEST(KernelPass, OnlyWorkerZeroPrintsTheSameChecksumsOnPassesOneThirdsAndLast) {
    std::vector<std::string> checksums;
    for (const int32_t pass : {1, 43, 86, 130}) {
        const std::string output = passOutput(0, true, pass);
        EXPECT_TRUE(matchesFully(output,
                                 "\n      t0:Ft \\d+  \\(-?\\d+\\)\n"
                                 "      t0:Fs \\d+  \\(1460\\)\n"
                                 "      t0:Dt \\d+  \\(-?\\d+\\)\n"
                                 "      t0:Ds \\d+  \\(1460\\)\n"
                                 "      t0:M \\d+ \\(-2\\)\n"
                                 "      t0:A64 \\d+  \\(12000000\\)\n"
                                 "      t0:A32 \\d+ \\(12000000\\)\n"
                                 "      t0:AF \\d+  \\(15000000\\)\n"
                                 "      t0:AD \\d+  \\(15000000\\)\n"
                                 "      t0:P \\d+  \\(1754\\)\n"
                                 "      t0:S \\d+  \\(7\\.5953\\)\n"))
            << "pass " << pass << ":" << output;
        // Without the laps, which are timings.
        checksums.push_back(QString::fromStdString(output)
                                .replace(QRegularExpression("(t0:\\w+) \\d+"), "\\1")
                                .toStdString());
    }
    EXPECT_EQ(checksums, std::vector<std::string>(4, checksums[0]));
    int reported = 0;  // those four only
    for (int32_t pass = 1; pass <= 130; ++pass) {
        reported += isReportedPass(pass, 130) ? 1 : 0;
    }
    EXPECT_EQ(reported, 4);
    // Other passes, other workers and quiet runs print nothing.
    EXPECT_EQ(passOutput(0, true, 2), "");
    EXPECT_EQ(passOutput(1, true, 1), "");
    EXPECT_EQ(passOutput(0, false, 1), "");
}

TEST(KernelPass, MemorySubTestMovesWithTheWorkerIndex) {
    // After Ds, A64, A32 or AF, repeating every four workers; the others keep the order in which
    // SubTest lists them.
    for (int32_t index = 0; index < 8; ++index) {
        const auto order = subTestOrder(index);
        std::vector<SubTest> rest(order.begin(), order.end());
        EXPECT_EQ(rest[4 + index % 4], SubTest::memory) << "index " << index;
        rest.erase(rest.begin() + 4 + index % 4);
        EXPECT_TRUE(std::adjacent_find(rest.begin(), rest.end(), std::greater_equal<>()) ==
                    rest.end())
            << "index " << index;
    }
}

}  // namespace
