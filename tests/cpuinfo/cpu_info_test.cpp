#include "cpu_info.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "os_query.h"

namespace {

// Recorded OS answers. A clock of 0 fails (the current one with ENOENT, the maximum with EACCES),
// as does every query whose error is set.
struct FakeOsQuery : OsQuery {
    std::string brand = "Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz";
    int32_t physical = 6, logical = 12;
    int64_t hz = 2600000000, maxHz = 4500000000;
    int brandError = 0, countError = 0;
    mutable size_t brandSize = 0;

    template <typename T>
    static int answer(int error, T value, T* out) {
        errno = error;
        if (error == 0) {
            *out = value;
        }
        return error == 0 ? 0 : -1;
    }
    int brandString(char* buffer, size_t size) const override {
        brandSize = size;
        errno = brandError;
        if (brandError != 0) {
            return -1;
        }
        snprintf(buffer, size, "%s", brand.c_str());
        return 0;
    }
    int physicalCpus(int32_t* n, const char** fallback) const override {
        *fallback = nullptr;
        return answer(countError, physical, n);
    }
    int logicalCpus(int32_t* n) const override { return answer(countError, logical, n); }
    int cpuFrequencyHz(int64_t* v) const override { return answer(hz ? 0 : ENOENT, hz, v); }
    int cpuFrequencyMaxHz(int64_t* v) const override {
        return answer(maxHz ? 0 : EACCES, maxHz, v);
    }
    int memoryBytes(int64_t* v) const override { return answer(0, int64_t{1} << 34, v); }
};

TEST(ReadCpuInfo, FailedReadsLogTheSystemTextUpToTheCapacity) {
    FakeOsQuery os;
    os.hz = 2500500000;  // Hz to MHz rounds halves away from zero
    os.maxHz = 1499999999;
    CpuInfo info;
    readCpuInfo(info, os);
    EXPECT_EQ(os.brandSize, 250u);
    EXPECT_EQ(info.mhzCurrent, 2501);
    EXPECT_EQ(info.mhzMax, 1500);
    EXPECT_EQ(info.mhzInfo, -1);
    EXPECT_TRUE(info.errors.isEmpty());

    os.brand = "AMD EPYC";
    os.brandError = ENOENT;
    os.hz = os.maxHz = 0;
    readCpuInfo(info, os);
    EXPECT_STREQ(info.description.text, "Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz");
    EXPECT_EQ(info.mhzCurrent, -1);
    EXPECT_EQ(info.mhzMax, -1);
    // Copied one at a time: strerror may return the same buffer for both.
    const std::string notFound = strerror(ENOENT);
    const std::string denied = strerror(EACCES);
    EXPECT_EQ(std::string(info.errors.text),
              "Could not get CPU-name\n" + notFound + "\n" + denied + "\n");
    for (int i = 0; i < 100; ++i) {
        readCpuInfo(info, os);
    }
    EXPECT_EQ(info.errors.length, 1000);
}

// Counts the OS cannot give stay as they were: 0 after construction, which stops the gathering.
TEST(ReadCpuInfo, FailedCountsStayAndGatheringStops) {
    FakeOsQuery os;
    os.countError = ENOENT;
    CpuInfo info;
    gatherCpuInfo(info, os);
    EXPECT_EQ(info.logicalCpus, 0);
    EXPECT_EQ(info.mhzSummed, 1);
    EXPECT_EQ(info.coreMhzCur[0], 0);
    EXPECT_TRUE(info.errors.isEmpty());

    info.logicalCpus = 4;
    info.physicalCpus = 2;
    readCpuInfo(info, os);
    EXPECT_EQ(info.logicalCpus, 4);
    EXPECT_EQ(info.physicalCpus, 2);
    EXPECT_TRUE(info.hyperthreading);
}

// Hyperthreads add 30 %; the base clock comes from the label, else the maximum, else the current
// clock; it is lifted halfway to min(max, 2.3 x base), or by 40 % (AMD 10 %) without a maximum.
TEST(ReadCpuInfo, SummedClockEstimate) {
    const struct {
        const char* brand;
        int32_t logical, physical;
        int64_t hz, maxHz;
        bool amd;
        int64_t mhzSummed;
    } estimates[] = {
        {"Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", 16, 8, 0, 4800000000, false, 36920},
        {"Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", 16, 8, 0, 4801000000, false, 36930},
        {"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", 1, 1, 0, 0, false, 3640},
        {"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", 1, 1, 0, 0, true, 2860},
        // A base clock taken from the maximum or the current clock: the recorded machines.
        {"Intel(R) Core(TM) i7-9750H CPU @ 4.00GHz", 2000000000, 2000000000, 0, 0, false, 1},
    };
    for (const auto& e : estimates) {
        FakeOsQuery os;
        os.brand = e.brand;
        os.logical = e.logical;
        os.physical = e.physical;
        os.hz = e.hz;
        os.maxHz = e.maxHz;
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
    CpuInfo info;
    gatherCpuInfo(info, os);
    EXPECT_EQ(info.logicalCpus, 1024);
    EXPECT_TRUE(info.coreHt[kMaxCores - 1]);
    EXPECT_EQ(info.coreMhzMin[kMaxCores - 1], -1);
    EXPECT_EQ(info.mhzSummedMeasured, info.mhzSummed);
    EXPECT_EQ(info.mhzSummedPerCore, info.mhzSummed);
}

CpuInfo readBrand(const std::string& brand, bool intel = false, bool amd = false) {
    FakeOsQuery os;
    os.brand = brand;
    CpuInfo info;
    info.vendorIntel = intel;
    info.vendorAmd = amd;
    readCpuInfo(info, os);
    return info;
}

// Worked out by hand from the rules, one row per rule or quirk; blanks inside are significant.
// All but the last three are recorded brand texts (data/cpu-brands.csv).
TEST(ReadCpuInfo, BrandTextRules) {
    const struct {
        const char* text;
        int64_t mhzInLabel;
        const char* shortName;
    } brands[] = {
        {"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", 2600, "Applei7-9750H"},
        {"11th Gen Intel(R) Core(TM) i7-1165G7 @ 2.80GHz", 2800, "Applei7-1165G7"},
        {"Intel(R) Xeon(R) CPU E5-2680 v4 @ 2.40GHz", 2400, "AppleE5-2680 v4"},
        {"Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz", 2100, "Apple6130"},
        {"Intel(R) Xeon(R) Platinum 8171M CPU @ 2.60GHz", 2600, "Apple8171M"},
        {"Intel Xeon Processor (Skylake, IBRS, no TSX)", -1,
         "AppleProcessor (Skylake, IBRS, no TSX)"},
        {"AMD Ryzen 9 5950X 16-Core Processor", -1, "Apple5950X"},
        {"AMD Ryzen Threadripper PRO 3995WX 64-Cores", -1, "Apple3995WX"},
        {"AMD EPYC 7742 64-Core Processor", -1, "Apple7742"},
        {"Quad-Core Processor (up to 1.4GHz)", -1, "Appler (up to 1.4GHz)"},
        {"Intel(R) Pentium(R) M processor 1600MHz", 0, "ApplePentium(R) M processor"},
        {"Genuine Intel(R) CPU           @ 0000 @ 2.67GHz", 0, "Apple"},
        // A Ryzen without a blank after the model, a clock leading the text, a text naming Apple.
        {"AMD Ryzen Z1", -1, "AppleAMD Ryzen Z1"},
        {"1133MHz Mobile Pentium III", 1133, "Apple1133"},
        {"Apple M1 Max", -1, "AppleM1 Max"},
    };
    for (const auto& b : brands) {
        const CpuInfo info = readBrand(b.text);
        EXPECT_EQ(info.mhzInLabel, b.mhzInLabel) << "'" << b.text << "'";
        EXPECT_EQ(std::string(info.shortName.text, info.shortName.length), b.shortName);
    }
    // The vendor's letter, Intel first.
    EXPECT_STREQ(readBrand("AMD EPYC 7742", false, true).shortName.text, "AppleA7742");
    EXPECT_STREQ(readBrand("AMD EPYC 7742", true, true).shortName.text, "AppleI7742");
}

// Every recording goes through the rules (under the sanitizers, within bounds); a clock is read
// exactly when the text has an '@' or "MHz".
TEST(ReadCpuInfo, EveryRecordedBrand) {
    std::ifstream csv(CPUINFO_TEST_DATA "/cpu-brands.csv");
    std::string line;
    int rows = 0;
    for (std::getline(csv, line); std::getline(csv, line); ++rows) {
        // The brand is the first quoted field; the recordings hold no doubled quotes.
        const std::string brand = line.substr(1, line.find("\",\"") - 1);
        const CpuInfo info = readBrand(brand);
        const bool labelled = brand.find('@') != brand.npos || brand.find("MHz") != brand.npos;
        EXPECT_EQ(info.description.text, brand);
        EXPECT_EQ(info.mhzInLabel == -1, !labelled) << brand;
        EXPECT_GE(info.mhzInLabel, -1) << brand;
    }
    EXPECT_EQ(rows, 216);
}

}  // namespace
