// Asks the running system and prints this machine's processor report into the test log.

#include <gtest/gtest.h>

#include <cstring>

#include "cpu_info.h"
#include "cpu_report.h"
#include "os_query.h"

namespace {

TEST(SystemOsQuery, AnswersForThisMachine) {
    const OsQuery& os = systemOsQuery();
    int32_t logical = 0;
    int32_t physical = 0;
    int64_t memory = 0;
    char brand[250] = {};
    ASSERT_EQ(os.logicalCpus(&logical), 0) << strerror(errno);
    ASSERT_EQ(os.physicalCpus(&physical), 0) << strerror(errno);
    ASSERT_EQ(os.memoryBytes(&memory), 0) << strerror(errno);
    ASSERT_EQ(os.brandString(brand, sizeof(brand)), 0) << strerror(errno);
    EXPECT_GE(logical, physical);
    EXPECT_GE(physical, 1);
    EXPECT_GT(memory, 0);
    EXPECT_GT(strlen(brand), 0u);

    CpuInfo info;
    readCpuInfo(info);
    gatherCpuInfo(info);
    printCpuInfoReport(info, false, false, true);
    EXPECT_EQ(info.logicalCpus, logical);
    EXPECT_STREQ(info.description.text, brand);
    EXPECT_GE(info.mhzSummed, 1);
}

}  // namespace
