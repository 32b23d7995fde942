// Recorded /proc and /sys texts of two machines: data/epyc-vm (a 2-CPU AMD EPYC virtual machine
// without cpufreq) and data/intel-desktop (a 4-core, 8-thread Intel desktop).

#include "linux_cpu_parse.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string recorded(const std::string& file) {
    std::ifstream in(CPUINFO_TEST_DATA "/" + file);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_TRUE(in.good()) << file;
    return text.str();
}

std::string field(const std::string& file, const char* key) {
    std::string_view value;
    const std::string text = recorded(file);
    return findProcField(text, key, &value) ? std::string(value) : "<missing>";
}

int64_t number(const std::string& file) {
    int64_t value = -2;
    EXPECT_TRUE(parseSysfsDecimal(recorded(file), &value)) << file;
    return value;
}

TEST(LinuxCpuParse, ProcFields) {
    EXPECT_EQ(field("epyc-vm/cpuinfo", "model name"), "AMD EPYC");
    EXPECT_EQ(field("epyc-vm/cpuinfo", "cpu"), "<missing>");  // whole keys only
    int64_t bytes = 0;
    ASSERT_TRUE(parseMeminfoBytes(field("intel-desktop/meminfo", "MemTotal"), &bytes));
    EXPECT_EQ(bytes, 16318412LL * 1024);
    EXPECT_FALSE(parseMeminfoBytes("16318412 MB", &bytes));
}

TEST(LinuxCpuParse, Clocks) {
    int64_t hz = 0;
    ASSERT_TRUE(parseMhzAsHz(field("epyc-vm/cpuinfo", "cpu MHz"), &hz));
    EXPECT_EQ(hz, 2596148000);
    EXPECT_FALSE(parseMhzAsHz("unknown", &hz));
    // The whole MHz fit in int64 Hz; only the fraction takes the sum past it.
    ASSERT_TRUE(parseMhzAsHz("9223372036854.775807", &hz));
    EXPECT_EQ(hz, INT64_MAX);
    EXPECT_FALSE(parseMhzAsHz("9223372036854.775808", &hz));
    EXPECT_FALSE(parseMhzAsHz("9223372036854.9", &hz));
    EXPECT_FALSE(parseMhzAsHz("9223372036855", &hz));
    // Digits below one Hz are dropped, also more of them than int64 holds; they must be digits.
    ASSERT_TRUE(parseMhzAsHz("2596.148000999999999999999999999\n", &hz));
    EXPECT_EQ(hz, 2596148000);
    EXPECT_FALSE(parseMhzAsHz("2596.1480000x", &hz));
    EXPECT_EQ(number("intel-desktop/cpu0/cpufreq/cpuinfo_max_freq"), 4500000);
    EXPECT_EQ(number("intel-desktop/cpu0/cpufreq/scaling_cur_freq"), 4400013);
    EXPECT_FALSE(parseSysfsDecimal("9223372036854775808\n", &hz));
}

TEST(LinuxCpuParse, HyperthreadSiblingsCountOnce) {
    std::vector<std::pair<int64_t, int64_t>> cpus;
    for (int cpu = 0; cpu < 8; ++cpu) {
        const std::string dir = "intel-desktop/cpu" + std::to_string(cpu) + "/topology/";
        cpus.emplace_back(number(dir + "physical_package_id"), number(dir + "core_id"));
    }
    EXPECT_EQ(countDistinctCores(cpus), 4);
    EXPECT_EQ(countDistinctCores({{0, 0}, {1, 0}, {0, 0}}), 2);
}

TEST(LinuxCpuParse, MemoryBlocks) {
    int64_t size = 0;
    ASSERT_TRUE(parseSysfsHex(recorded("epyc-vm/memory/block_size_bytes"), &size));
    EXPECT_EQ(size, 128 << 20);
    EXPECT_TRUE(isOnlineMemoryBlock(recorded("epyc-vm/memory/memory0/online")));
    EXPECT_FALSE(isOnlineMemoryBlock("0\n"));
}

}  // namespace
