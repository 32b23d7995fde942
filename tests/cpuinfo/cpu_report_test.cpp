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
    info.mhzInLabel = info.mhzCurrent = 3000;
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

const std::string kTenCores =
    "CPU Description:     Intel(R) Xeon(R) W-2150B CPU @ 3.00GHz\n"
    "CPU:                 AppleW-2150B\n"
    "CPU Core Count:      10\n"
    "CPU Core Count (HW): 10\n"
    "CPU Hyperthreading:  Disabled\n"
    "CPU MHz in label: 3000\n"
    "CPU MHz Info:     -1\n"
    "CPU MHz Max:      4500\n"
    "CPU MHz Current:  3000\n"
    "CPU MHz summed (calculated, HT adjusted):  34200\n"
    "Core HT:       -     true  -     true  -     true  -     true  -     true  \n"
    "Core MHz Info: -1    -1    -1    -1    -1    -1    -1    -1    -1    -1    \n"
    "Core MHz Min:  1200  1200  1200  1200  1200  1200  1200  1200  1200  1200  \n"
    "Core MHz Max:  4500  4500  4500  4500  4500  4500  4500  4500  4500  4500  \n"
    "Core MHz Cur:  3000      3100      3200      3300      3400      "
    "3500      3600      3700      3800      3900      \n"
    "\n"
    "CPU MHz summed (calculated per Core, HT adjusted): 41010\n"
    "CPU MHz summed (measured current, HT adjusted):    36450\n"
    "\n"
    "NOTE: Korvo reads the information provided by the OS or BIOS.\n"
    "Not all information is available on every OS. And not all GHz information provided by the "
    "system is reliable.\n"
    "\n";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

TEST(CpuReport, TenCoresMakeOneGroupAndErrorsComeFirst) {
    CpuInfo info = recordedXeon(10);
    EXPECT_EQ(build(info, false, false, true), kTenCores);
    info.errors.assign("Could not get CPU-name\nNo such file or directory\n");
    EXPECT_EQ(build(info, false, false, true),
              "------------------------------\n"
              "ERRORS:\n"
              "Could not get CPU-name\n"
              "No such file or directory\n"
              "\n"
              "------------------------------\n"
              "\n" +
                  kTenCores);
}

TEST(CpuReport, ElevenCoresAddAGroupOfOne) {
    std::string expected = replaced(kTenCores, "Count:      10\n", "Count:      11\n");
    expected = replaced(expected, "Disabled", "Enabled");
    expected = replaced(expected, "CPU MHz summed (calculated per",
                        "Core HT:       -     \n"
                        "Core MHz Info: -1    \n"
                        "Core MHz Min:  1200  \n"
                        "Core MHz Max:  4500  \n"
                        "Core MHz Cur:  4000      \n"
                        "\n"
                        "CPU MHz summed (calculated per");
    EXPECT_EQ(build(recordedXeon(11), false, false, true), expected);
}

// The parts of the feature and RAM sections that hold a rule of their own: AMD is named first, a
// flag label is padded to 15 characters unless it is longer, AVX512 needs the OS's support, and
// the RAM lines stand right before the CPU block.
TEST(CpuReport, FeatureAndRamSectionsPrecedeTheCpuBlock) {
    CpuInfo info = recordedXeon(10);
    info.vendorAmd = info.vendorIntel = true;
    info.osAvx = info.hwAvx = true;
    info.hwAvx512F = true;
    info.ramGb = 64;
    info.ramType.assign("DDR4");
    info.ramMhz = 2666;
    const std::string report = build(info, true, true, true);
    const std::string parts[] = {
        "\nCPU Vendor: AMD\n", "\nOS AVX512      : No\n", "\nAVX512-VBMI    : No\n",
        "\nCan use AVX    : Yes\nCan use AVX512 : No\n",
        "\nRAM  GB:   64\nRAM  Type: DDR4\nRAM  Mhz:  2666\n\n" + kTenCores};
    for (const std::string& part : parts) {
        EXPECT_NE(report.find(part), std::string::npos) << part;
    }
}

// A 400-core table: more than the report holds.
TEST(CpuReport, CutSilentlyAtCapacity) {
    const std::string report = build(recordedXeon(400), false, false, true);
    EXPECT_EQ(report.compare(0, 90, kTenCores, 0, 90), 0);
    EXPECT_EQ(report.size(), 5000u);
    EXPECT_EQ(report.find("NOTE:"), std::string::npos);
    EXPECT_NE(report.back(), '\n');  // cut inside a row line
}

}  // namespace
