#include "kernels.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Each row is a worker the memory sub-test cannot or must not use: it returns 0 and leaves both
// buffers as they were. Without the size guard a one-byte buffer would be read before its start
// and an empty one divided by; a loop that ran once too often would fill the buffers.
TEST(Kernels, MemoryShuffleTouchesNoBufferItCannotUse) {
    const struct {
        const char* what;
        bool withA, withB;
        int32_t repeats, size;
    } cases[] = {
        {"no repeats", true, true, 0, 64},      {"negative repeats", true, true, -1, 64},
        {"no buffer A", false, true, 2, 64},    {"no buffer B", true, false, 2, 64},
        {"one-byte buffers", true, true, 2, 1}, {"empty buffers", true, true, 2, 0},
    };
    for (const auto& c : cases) {
        std::vector<char> a(64, 'a');
        std::vector<char> b(64, 16);
        const PassContext worker{0,
                                 false,
                                 c.repeats,
                                 c.size,
                                 c.withA ? a.data() : nullptr,
                                 c.withB ? b.data() : nullptr};
        EXPECT_EQ(memoryShuffle(worker), 0) << c.what;
        EXPECT_EQ(a, std::vector<char>(64, 'a')) << c.what;
        EXPECT_EQ(b, std::vector<char>(64, 16)) << c.what;
    }
    // One repeat copies B over A and back, samples six bytes of 16 (96 / 100 = 0) and fills.
    std::vector<char> a(64, 'a');
    std::vector<char> b(64, 16);
    EXPECT_EQ(memoryShuffle(PassContext{0, false, 1, 64, a.data(), b.data()}), 0);
    EXPECT_EQ(a, std::vector<char>(64, 1));
    EXPECT_EQ(b, std::vector<char>(64, static_cast<char>(0xD5)));
}

}  // namespace
