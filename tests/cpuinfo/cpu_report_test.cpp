#include "cpu_report.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// A recorded 10-core Xeon with per-core figures that differ by row and by core, so a swapped row
// or a shifted index shows in the text.
CpuInfo recordedXeon(int cores) {
    CpuInfo info;
    info.description.assign("Intel(R) Xeon(R) W-2150B CPU @ 3.00GHz");
    info.shortName.assign("AppleW-2150B");
    info.logicalCpus = cores;
    info.physicalCpus = 10;
    info.hyperthreading = cores > 10;
    info.mhzInLabel = 3000;
    info.mhzCurrent = 3000;
    info.mhzInfo = -1;
    info.mhzMax = 4500;
    info.mhzSummed = 34200;
    for (int i = 0; i < cores && i < kMaxCores; ++i) {
        info.coreHt[i] = i % 2 == 1;
        info.coreMhzInfo[i] = -1;
        info.coreMhzMin[i] = 1200;
        info.coreMhzMax[i] = 4500;
        info.coreMhzCur[i] = 3000 + 100 * i;
    }
    info.mhzSummedPerCore = 41010;
    info.mhzSummedMeasured = 36450;
    return info;
}

std::string build(const CpuInfo& info, bool features, bool ram, bool perCore) {
    ReportText report;
    buildCpuInfoReport(report, info, features, ram, perCore);
    EXPECT_EQ(report.length, strlen(report.text));
    return report.text;
}

const std::string kClosing =
    "NOTE: Korvo reads the information provided by the OS or BIOS.\n"
    "Not all information is available on every OS. And not all GHz information provided by the "
    "system is reliable.\n"
    "\n";

std::string cpuBlock(const char* coreCount, const char* hyperthreading) {
    return std::string(
               "CPU Description:     Intel(R) Xeon(R) W-2150B CPU @ 3.00GHz\n"
               "CPU:                 AppleW-2150B\n"
               "CPU Core Count:      ") +
           coreCount +
           "\n"
           "CPU Core Count (HW): 10\n"
           "CPU Hyperthreading:  " +
           hyperthreading +
           "\n"
           "CPU MHz in label: 3000\n"
           "CPU MHz Info:     -1\n"
           "CPU MHz Max:      4500\n"
           "CPU MHz Current:  3000\n"
           "CPU MHz summed (calculated, HT adjusted):  34200\n";
}

const std::string kFirstTenCores =
    "Core HT:       -     true  -     true  -     true  -     true  -     true  \n"
    "Core MHz Info: -1    -1    -1    -1    -1    -1    -1    -1    -1    -1    \n"
    "Core MHz Min:  1200  1200  1200  1200  1200  1200  1200  1200  1200  1200  \n"
    "Core MHz Max:  4500  4500  4500  4500  4500  4500  4500  4500  4500  4500  \n"
    "Core MHz Cur:  3000      3100      3200      3300      3400      "
    "3500      3600      3700      3800      3900      \n"
    "\n";

const std::string kSums =
    "CPU MHz summed (calculated per Core, HT adjusted): 41010\n"
    "CPU MHz summed (measured current, HT adjusted):    36450\n"
    "\n";

TEST(CpuReport, TenCoresMakeOneGroup) {
    EXPECT_EQ(build(recordedXeon(10), false, false, true),
              cpuBlock("10", "Disabled") + kFirstTenCores + kSums + kClosing);
}

TEST(CpuReport, ElevenCoresAddAGroupOfOne) {
    EXPECT_EQ(build(recordedXeon(11), false, false, true), cpuBlock("11", "Enabled") +
                                                               kFirstTenCores +
                                                               "Core HT:       -     \n"
                                                               "Core MHz Info: -1    \n"
                                                               "Core MHz Min:  1200  \n"
                                                               "Core MHz Max:  4500  \n"
                                                               "Core MHz Cur:  4000      \n"
                                                               "\n" +
                                                               kSums + kClosing);
}

TEST(CpuReport, ErrorsBlockOnlyWithErrors) {
    CpuInfo info = recordedXeon(10);
    EXPECT_EQ(build(info, false, false, false), cpuBlock("10", "Disabled") + kClosing);
    info.errors.assign("Could not get CPU-name\nNo such file or directory\n");
    EXPECT_EQ(build(info, false, false, false),
              "------------------------------\n"
              "ERRORS:\n"
              "Could not get CPU-name\n"
              "No such file or directory\n"
              "\n"
              "------------------------------\n"
              "\n" +
                  cpuBlock("10", "Disabled") + kClosing);
}

TEST(CpuReport, CutSilentlyAtCapacity) {
    const std::string report = build(recordedXeon(400), true, true, true);
    EXPECT_EQ(report.size(), 5000u);
    EXPECT_EQ(report.find("NOTE:"), std::string::npos);
    EXPECT_NE(report.back(), '\n');  // cut inside a row line
}

TEST(CpuReport, FeatureBlock) {
    CpuInfo info = recordedXeon(10);
    info.vendorString.assign("AuthenticAMD");
    info.vendorAmd = info.vendorIntel = true;
    info.osAvx = info.hwAvx = info.hwMpx = info.hwAvx512F = info.hwAvx512Cd = true;
    const std::string report = build(info, true, false, false);
    EXPECT_EQ(report.rfind("CPU Vendor String: AuthenticAMD\nCPU Vendor: AMD\n\nOS Features:\n"
                           "OS AVX         : Yes\nOS AVX512      : No\n",
                           0),
              0u);
    EXPECT_NE(report.find("ADX            : No\nMPX            : Yes\nPREFETCHWT1    : No\n"),
              std::string::npos);
    const std::string simd512 =
        "SIMD: 512-bit\n"
        "AVX512-F       : Yes\n"
        "AVX512-CD      : Yes\n"
        "AVX512-PF      : No\n"
        "AVX512-ER      : No\n"
        "AVX512-VL      : No\n"
        "AVX512-BW      : No\n"
        "AVX512-DQ      : No\n"
        "AVX512-IFMA    : No\n"
        "AVX512-VBMI    : No\n"
        "\n"
        "AVX Summary:\n"
        "Can use AVX    : Yes\n"
        "Can use AVX512 : No\n"
        "\n"
        "CPU Description:";
    EXPECT_NE(report.find(simd512), std::string::npos) << report;

    ReportText line;
    formatFlagLine(line, "PREFETCHWT1-LONG", true);
    EXPECT_STREQ(line.text, "PREFETCHWT1-LONG: Yes\n");
}

TEST(CpuReport, RamBlockBeforeCpuBlock) {
    CpuInfo info = recordedXeon(10);
    info.ramGb = 32;
    info.ramType.assign("DDR4");
    info.ramMhz = 2666;
    EXPECT_EQ(build(info, false, true, false)
                  .rfind("RAM  GB:   32\n"
                         "RAM  Type: DDR4\n"
                         "RAM  Mhz:  2666\n"
                         "\n"
                         "CPU Description:",
                         0),
              0u);
}

TEST(CpuReport, CoreCountsWithoutFullGroups) {
    EXPECT_EQ(build(recordedXeon(0), false, false, true),
              cpuBlock("0", "Disabled") + kSums + kClosing);
    EXPECT_EQ(build(recordedXeon(-3), false, false, true), cpuBlock("-3", "Disabled") +
                                                               "Core HT:       \n"
                                                               "Core MHz Info: \n"
                                                               "Core MHz Min:  \n"
                                                               "Core MHz Max:  \n"
                                                               "Core MHz Cur:  \n"
                                                               "\n" +
                                                               kSums + kClosing);
}

TEST(CpuReport, WideFiguresPrintTheirLow32Bits) {
    CpuInfo info = recordedXeon(10);
    info.mhzMax = 3000000000;
    info.mhzSummed = (int64_t{1} << 32) + 5;
    info.mhzInfo = INT64_MIN;
    const std::string report = build(info, false, false, false);
    EXPECT_NE(report.find("CPU MHz Info:     0\nCPU MHz Max:      -1294967296\n"),
              std::string::npos);
    EXPECT_NE(report.find("CPU MHz summed (calculated, HT adjusted):  5\n"), std::string::npos);
}

TEST(CpuReport, PrintsPercentSignsAsText) {
    CpuInfo info = recordedXeon(1);
    info.description.assign("100% %s %n");
    testing::internal::CaptureStdout();
    printCpuInfoReport(info, false, false, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), build(info, false, false, true));
}

}  // namespace
