#include "kernels.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(Kernels, MemoryShuffleWithoutRepeatsLeavesTheBuffersUntouched) {
    std::vector<char> a(64, 'a');
    std::vector<char> b(64, 16);
    EXPECT_EQ(memoryShuffle(PassContext{0, false, 0, 64, a.data(), b.data()}), 0);
    EXPECT_EQ(a, std::vector<char>(64, 'a'));
    EXPECT_EQ(b, std::vector<char>(64, 16));
}

}  // namespace
