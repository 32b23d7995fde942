#include "driver.h"

#include <gtest/gtest.h>

namespace {

TEST(Driver, CoreTimeIsA32BitProductThatWraps) {
    EXPECT_EQ(coreTimeProduct(61234, 16), 979744);
    // 150,000,000 ms x 16 = 2,400,000,000, past 2^31: the low 32 bits read as negative.
    EXPECT_EQ(coreTimeProduct(150000000, 16), 2400000000LL - 4294967296LL);
    EXPECT_EQ(coreTimeProduct(2147483647, 2), -2);  // 2^32 - 2
}

}  // namespace
