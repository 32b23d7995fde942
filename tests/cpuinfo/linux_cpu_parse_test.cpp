// The pure readers at the edges that the recorded machines do not reach.

#include "linux_cpu_parse.h"

#include <gtest/gtest.h>

namespace {

TEST(LinuxCpuParse, ProcFieldsAndSysfsNumbers) {
    std::string_view value;
    EXPECT_FALSE(findProcField("cpu family\t: 23\ncpu MHz\t\t: 2596.148\n", "cpu", &value));
    ASSERT_TRUE(findProcField("cpu family\t: 23\ncpu MHz\t\t: 2596.148\n", "cpu MHz", &value));
    EXPECT_EQ(value, "2596.148");
    int64_t number = 0;
    EXPECT_FALSE(parseMeminfoBytes("16318412 MB", &number));
    EXPECT_FALSE(parseSysfsDecimal("9223372036854775808\n", &number));
    EXPECT_FALSE(isOnlineMemoryBlock("0\n"));
}

// thread_siblings_list as kernels write it; "-" for a refused list.
TEST(LinuxCpuParse, CpuLists) {
    const char* const cases[][2] = {{"0,32\n", "0 32"}, {"8-9,0-1", "0 1 8 9"},
                                    {"1-0", "-"},       {"0-", "-"},
                                    {"0,", "-"},        {"1048576", "-"}};
    for (const auto& c : cases) {
        std::vector<int64_t> cpus;
        std::string text = parseCpuList(c[0], &cpus) ? "" : "-";
        for (const int64_t cpu : cpus) {
            text += (text.empty() ? "" : " ") + std::to_string(cpu);
        }
        EXPECT_EQ(text, c[1]) << c[0];
    }
}

// A refused clock reads as -1.
TEST(LinuxCpuParse, Clocks) {
    const struct {
        const char* mhz;
        int64_t hz;
    } cases[] = {
        {"2596.148\n", 2596148000},
        {"unknown", -1},
        // The whole MHz fit in int64 Hz; only the fraction takes the sum past it.
        {"9223372036854.775807", INT64_MAX},
        {"9223372036854.775808", -1},
        {"9223372036854.9", -1},
        {"9223372036855", -1},
        // Digits below one Hz are dropped, also more of them than int64 holds; they must be digits.
        {"2596.148000999999999999999999999\n", 2596148000},
        {"2596.1480000x", -1},
    };
    for (const auto& c : cases) {
        int64_t hz = -1;
        EXPECT_EQ(parseMhzAsHz(c.mhz, &hz) ? hz : -1, c.hz) << c.mhz;
    }
}

}  // namespace
