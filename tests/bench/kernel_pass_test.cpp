#include "kernel_pass.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "test_output.h"

namespace {

std::string passOutput(int32_t index, bool verbose, int32_t passNumber) {
    static std::vector<char> a(4096), b(4096);
    CaptureStdout capture;
    kernelPass(PassContext{index, verbose, 2, 4096, a.data(), b.data()}, passNumber, 130);
    return capture.text();
}

TEST(KernelPass, FirstWorkerPrintsElevenLinesWithLapsAndChecksums) {
    const std::string output = passOutput(0, true, 1);
    EXPECT_TRUE(matchesFully(output,
                             "\n"
                             "      t0:Ft \\d+  \\(-?\\d+\\)\n"
                             "      t0:Fs \\d+  \\(1460\\)\n"
                             "      t0:Dt \\d+  \\(-?\\d+\\)\n"
                             "      t0:Ds \\d+  \\(1460\\)\n"
                             "      t0:M \\d+ \\(-?\\d+\\)\n"
                             "      t0:A64 \\d+  \\(12000000\\)\n"
                             "      t0:A32 \\d+ \\(12000000\\)\n"
                             "      t0:AF \\d+  \\(15000000\\)\n"
                             "      t0:AD \\d+  \\(15000000\\)\n"
                             "      t0:P \\d+  \\(1754\\)\n"
                             "      t0:S \\d+  \\(7\\.5953\\)\n"))
        << output;
}

TEST(KernelPass, OtherPassesWorkersAndQuietRunsPrintNothing) {
    EXPECT_EQ(passOutput(0, true, 2), "");
    EXPECT_EQ(passOutput(1, true, 1), "");
    EXPECT_EQ(passOutput(0, false, 1), "");
}

TEST(KernelPass, ReportsTheFirstLastAndThirdPasses) {
    const std::vector<std::vector<int32_t>> cases = {
        {130, 1, 43, 86, 130}, {43, 1, 14, 28, 43}, {10, 1, 3, 6, 10}, {2, 1, 2}};
    for (const std::vector<int32_t>& c : cases) {
        std::vector<int32_t> reported = {c[0]};
        for (int32_t pass = 1; pass <= c[0]; ++pass) {
            if (isReportedPass(pass, c[0])) {
                reported.push_back(pass);
            }
        }
        EXPECT_EQ(reported, c) << "total, then the reported passes";
    }
}

TEST(KernelPass, MemorySubTestMovesWithTheWorkerIndex) {
    const std::vector<SubTest> others = {SubTest::trigSingle,       SubTest::sqrtSingle,
                                         SubTest::trigDouble,       SubTest::sqrtDouble,
                                         SubTest::integer64,        SubTest::integer32,
                                         SubTest::recurrenceSingle, SubTest::recurrenceDouble,
                                         SubTest::primes,           SubTest::sqrtFill};
    // After Ds, A64, A32 or AF, repeating every four workers.
    const int32_t memoryAt[] = {4, 5, 6, 7, 4, 5, 6, 7};
    for (int32_t index = 0; index < 8; ++index) {
        const auto order = subTestOrder(index);
        std::vector<SubTest> rest(order.begin(), order.end());
        const auto memory = std::find(rest.begin(), rest.end(), SubTest::memory);
        ASSERT_NE(memory, rest.end());
        EXPECT_EQ(memory - rest.begin(), memoryAt[index]) << "index " << index;
        rest.erase(memory);
        EXPECT_EQ(rest, others) << "index " << index;
    }
}

}  // namespace
