#include "cpu_info.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "fake_os_query.h"

namespace {

TEST(CpuInfo, ConstructionZeroesEveryByte) {
    alignas(CpuInfo) unsigned char storage[sizeof(CpuInfo)];
    memset(storage, 0xA5, sizeof(storage));
    new (storage) CpuInfo();
    EXPECT_EQ(std::count(storage, storage + sizeof(storage), 0), sizeof(storage));
}

TEST(ReadCpuInfo, FailedReadsLogTheSystemTextUpToTheCapacity) {
    FakeOsQuery os;
    os.hz = 2500500000;
    os.maxHz = 1499999999;
    CpuInfo info;
    readCpuInfo(info, os);
    EXPECT_EQ(os.brandSize, 250u);
    EXPECT_EQ(info.mhzCurrent, 2501);
    EXPECT_EQ(info.mhzMax, 1500);
    EXPECT_EQ(info.mhzInfo, -1);
    EXPECT_TRUE(info.errors.isEmpty());

    os.brand = "AMD EPYC";
    os.brandError = os.hzError = ENOENT;
    os.maxHzError = EACCES;
    readCpuInfo(info, os);
    EXPECT_STREQ(info.description.text, "Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz");
    EXPECT_EQ(info.mhzCurrent, -1);
    EXPECT_EQ(info.mhzMax, -1);
    EXPECT_EQ(std::string(info.errors.text), std::string("Could not get CPU-name\n") +
                                                 strerror(ENOENT) + "\n" + strerror(EACCES) + "\n");
    for (int i = 0; i < 100; ++i) {
        readCpuInfo(info, os);
    }
    EXPECT_EQ(info.errors.length, 1000);
    EXPECT_EQ(strlen(info.errors.text), 1000u);

    os.brandError = 0;
    readCpuInfo(info, os);
    EXPECT_EQ(info.mhzInLabel, -1);
}

TEST(ReadCpuInfo, FailedCountsStayAndGatheringStops) {
    FakeOsQuery os;
    os.countError = ENOENT;
    CpuInfo info;
    gatherCpuInfo(info, os);
    EXPECT_EQ(info.logicalCpus, 0);
    EXPECT_EQ(info.physicalCpus, 0);
    EXPECT_EQ(info.mhzSummed, 1);
    EXPECT_EQ(info.coreMhzCur[0], 0);
    EXPECT_EQ(info.mhzSummedPerCore, 0);
    EXPECT_TRUE(info.errors.isEmpty());

    info.logicalCpus = 4;
    info.physicalCpus = 2;
    readCpuInfo(info, os);
    EXPECT_EQ(info.logicalCpus, 4);
    EXPECT_EQ(info.physicalCpus, 2);
    EXPECT_TRUE(info.hyperthreading);
}

struct Estimate {
    const char* brand;
    int32_t logical, physical;
    int64_t hz, maxHz;  // 0 = the query fails
    bool amd;
    int64_t mhzSummed;
};

// Hyperthreads add 30 %; the base clock comes from the label, else the maximum, else the current
// clock; it is lifted halfway to min(max, 2.3 x base), or by 40 % (AMD 10 %) without a maximum.
const Estimate kEstimates[] = {
    {"Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", 16, 8, 0, 4800000000, false, 36920},
    {"Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", 16, 8, 0, 4801000000, false, 36930},
    {"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", 1, 1, 0, 0, false, 3640},
    {"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", 1, 1, 0, 0, true, 2860},
    {"AMD EPYC", 2, 2, 2596148000, 0, false, 7268},
    {"AMD EPYC", 4, 2, 2000000000, 2400000000, false, 6240},
    {"Intel(R) Core(TM) i7-9750H CPU @ 4.00GHz", 2000000000, 2000000000, 0, 0, false, 1},
};

TEST(ReadCpuInfo, SummedClockEstimate) {
    for (const Estimate& e : kEstimates) {
        FakeOsQuery os;
        os.brand = e.brand;
        os.logical = e.logical;
        os.physical = e.physical;
        os.hz = e.hz;
        os.maxHz = e.maxHz;
        os.hzError = e.hz == 0 ? ENOENT : 0;
        os.maxHzError = e.maxHz == 0 ? ENOENT : 0;
        CpuInfo info;
        info.vendorAmd = e.amd;
        readCpuInfo(info, os);
        EXPECT_EQ(info.mhzSummed, e.mhzSummed) << e.brand << " " << e.logical << " " << e.maxHz;
    }
}

// More CPUs than table entries: under the sanitizers an index past 512 fails the bounds check.
TEST(GatherCpuInfo, FillsTheTablesWithinTheirBounds) {
    FakeOsQuery os;
    os.logical = 1024;
    os.physical = 512;
    auto info = std::make_unique<CpuInfo>();
    gatherCpuInfo(*info, os);
    EXPECT_EQ(info->logicalCpus, 1024);
    EXPECT_TRUE(info->coreHt[kMaxCores - 1]);
    EXPECT_EQ(info->coreMhzMin[kMaxCores - 1], -1);
    EXPECT_EQ(info->coreMhzInfo[0], -1);
    EXPECT_EQ(info->mhzSummedMeasured, info->mhzSummed);
    EXPECT_EQ(info->mhzSummedPerCore, info->mhzSummed);
}

}  // namespace
