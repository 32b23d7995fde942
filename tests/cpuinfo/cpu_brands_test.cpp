// Brand texts as operating systems report them (data/cpu-brands.csv), through the clock and
// short-name rules of readCpuInfo.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <string>

#include "cpu_info.h"
#include "fake_os_query.h"

namespace {

CpuInfo readBrand(const std::string& brand, bool intel = false, bool amd = false) {
    FakeOsQuery os;
    os.brand = brand;
    CpuInfo info;
    info.vendorIntel = intel;
    info.vendorAmd = amd;
    readCpuInfo(info, os);
    return info;
}

struct Brand {
    const char* text;
    int64_t mhzInLabel;
    const char* shortName;
};

// Worked out by hand from the rules; blanks inside the texts are significant.
const Brand kBrands[] = {
    {"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", 2600, "Applei7-9750H"},
    {"Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", 2300, "Applei9-9880H"},
    {"AMD Ryzen 9 5950X 16-Core Processor", -1, "Apple5950X"},
    {"Intel(R) Core(TM)2 Duo CPU     E8500  @ 3.16GHz", 3160, "Apple2 Duo CPU     E8500"},
    {"11th Gen Intel(R) Core(TM) i7-1165G7 @ 2.80GHz", 2800, "Applei7-1165G7"},
    {"Intel(R) Xeon(R) CPU E5-2680 v4 @ 2.40GHz", 2400, "AppleE5-2680 v4"},
    {"Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz", 2100, "Apple6130"},
    {"Intel(R) Xeon(R) Platinum 8171M CPU @ 2.60GHz", 2600, "Apple8171M"},
    {"Intel Xeon Processor (Skylake, IBRS, no TSX)", -1, "AppleProcessor (Skylake, IBRS, no TSX)"},
    {"AMD Ryzen 5 PRO 2400GE w/ Radeon Vega Graphics", -1,
     "ApplePRO 2400GE w/ Radeon Vega Graphics"},
    {"AMD Ryzen 9 5950X 16-Core Processor            ", -1, "Apple5950X"},
    {"AMD Ryzen Z1", -1, "AppleAMD Ryzen Z1"},
    {"AMD Ryzen Z1                                   ", -1, "Apple"},
    {"AMD Ryzen Threadripper 1950X 16-Core Processor", -1, "Apple1950X"},
    {"AMD Ryzen Threadripper PRO 3995WX 64-Cores", -1, "Apple3995WX"},
    {"AMD EPYC 7742 64-Core Processor", -1, "Apple7742"},
    {"AMD EPYC", -1, "AppleAMD EPYC"},
    {"Hygon C86 7185 32-core Processor               ", -1, "AppleHygon C86 7185"},
    {"Quad-Core Processor (up to 1.4GHz)", -1, "Appler (up to 1.4GHz)"},
    {"Intel(R) Pentium(R) M processor 1600MHz", 0, "ApplePentium(R) M processor"},
    {"VIA Nano processor      @1800MHz", 0, "AppleVIA Nano processor"},
    {"VIA Eden X4 C4250@1.2+GHz", 1000, "AppleVIA Eden X4 C4250"},
    {"Genuine Intel(R) CPU           @ 0000 @ 2.67GHz", 0, "Apple"},
    {"       Intel(R) Core(TM) i7-3770K CPU @ 3.50GHz", 3500, "Applei7-3770K"},
    {"              Intel(R) Pentium(R) 4 CPU 1700MHz", 0, "ApplePentium(R) 4"},
    // Not among the recordings: a clock leading the text, and a text that already names Apple.
    {"1133MHz Mobile Pentium III", 1133, "Apple1133"},
    {"Apple M1 Max", -1, "AppleM1 Max"},
};

TEST(ReadCpuInfo, BrandTextRules) {
    for (const Brand& b : kBrands) {
        const CpuInfo info = readBrand(b.text);
        EXPECT_EQ(info.mhzInLabel, b.mhzInLabel) << "'" << b.text << "'";
        EXPECT_STREQ(info.shortName.text, b.shortName) << "'" << b.text << "'";
        EXPECT_EQ(info.shortName.length, strlen(b.shortName));
    }
    EXPECT_STREQ(readBrand("AMD EPYC 7742 64-Core Processor", false, true).shortName.text,
                 "AppleA7742");
    EXPECT_STREQ(readBrand("AMD EPYC 7742 64-Core Processor", true, true).shortName.text,
                 "AppleI7742");
}

TEST(ReadCpuInfo, EveryRecordedBrand) {
    std::ifstream csv(CPUINFO_TEST_DATA "/cpu-brands.csv");
    std::string line;
    std::getline(csv, line);
    int rows = 0;
    for (; std::getline(csv, line); ++rows) {
        // The brand is the first quoted field; the recordings hold no doubled quotes.
        const std::string brand = line.substr(1, line.find("\",\"") - 1);
        const CpuInfo info = readBrand(brand);
        std::string upper = brand;
        std::transform(upper.begin(), upper.end(), upper.begin(),
                       [](unsigned char c) { return static_cast<char>(toupper(c)); });
        const bool labelled = upper.find('@') != upper.npos || upper.find("MHZ") != upper.npos;
        EXPECT_EQ(info.description.text, brand);
        EXPECT_EQ(std::string(info.shortName.text, 5), "Apple") << brand;
        EXPECT_EQ(info.shortName.length, strlen(info.shortName.text)) << brand;
        EXPECT_EQ(info.mhzInLabel == -1, !labelled) << brand;
        EXPECT_GE(info.mhzInLabel, -1) << brand;
        EXPECT_LT(info.mhzInLabel, 1000000) << brand;
    }
    EXPECT_EQ(rows, 216);
}

}  // namespace
