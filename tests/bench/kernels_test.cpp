#include "kernels.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

namespace {

// The square-root loops and the recurrences use only correctly rounded operations, so unlike the
// trigonometric loops their checksums do not depend on the math library.
TEST(Kernels, ChecksumsAreTheDocumentedValuesOnEveryRun) {
    const struct {
        const char* name;
        int32_t (*subTest)();
        int32_t expected;
    } checksums[] = {
        {"Fs", sqrtLoopSingle, 1460},
        {"Ds", sqrtLoopDouble, 1460},
        {"A64", integerLoop64, 12000000},
        {"A32", integerLoop32, 12000000},
        {"AF", recurrenceSingle, 15000000},
        {"AD", recurrenceDouble, 15000000},
        {"P", primeCount, 1754},
    };
    for (const auto& c : checksums) {
        EXPECT_EQ(c.subTest(), c.expected) << c.name;
        EXPECT_EQ(c.subTest(), c.expected) << c.name << ", second run";
    }
    char text[16];
    snprintf(text, sizeof(text), "%5.4f", static_cast<double>(sqrtFill()));
    EXPECT_STREQ(text, "7.5953");
}

// Small buffers stand in for the worker's 10 MiB ones; the sampled bytes are the same.
TEST(Kernels, MemoryShuffleReadsSignedBytesAndRefillsBothBuffersWhenItRuns) {
    std::vector<char> a(64, 'a');
    std::vector<char> b(64, 16);
    PassContext worker{0, false, 0, 64, a.data(), b.data()};
    EXPECT_EQ(memoryShuffle(worker), 0);
    worker.memoryRepeats = 2;
    worker.bufferA = nullptr;
    EXPECT_EQ(memoryShuffle(worker), 0);
    EXPECT_EQ(a, std::vector<char>(64, 'a'));
    EXPECT_EQ(b, std::vector<char>(64, 16));

    worker.bufferA = a.data();
    // First repeat: six bytes of 16, 96 / 100 = 0. Second: six bytes of 0xD5 (-43), -258 / 100.
    EXPECT_EQ(memoryShuffle(worker), -2);
    EXPECT_EQ(a, std::vector<char>(64, 1));
    EXPECT_EQ(b, std::vector<char>(64, static_cast<char>(0xD5)));
}

}  // namespace
