// LinuxOsQuery's real file reading on recorded /proc and /sys trees of real machines
// (data/machines, see its SOURCES.md): an x86 build reads an arm64 tree exactly as an arm64 one.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "cpu_info.h"
#include "os_query_linux.h"
#include "proc_cpuinfo_parse.h"

namespace {

const std::string kMachines = CPUINFO_TEST_DATA "/machines/";

std::string fileText(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// CPUs 0 to n - 1: what the scheduler allows on a recorded machine whose CPUs are all online.
std::vector<int> firstCpus(int n) {
    std::vector<int> cpus(n);
    std::iota(cpus.begin(), cpus.end(), 0);
    return cpus;
}

// One row per recorded machine, read through the whole gathering: description, logical/physical
// CPUs, hyperthreading, then the MHz in the label, current, info, max and summed; and the report's
// errors block.
TEST(LinuxOsQuery, RecordedMachines) {
    const std::string noData = std::string(strerror(ENODATA)) + "\n";
    const std::string noFile = std::string(strerror(ENOENT)) + "\n";
    const char* const opteron = "x86-opteron-6328-2s-multidie";
    const struct {
        const char* folder;
        std::vector<int> cpus;  // allowed
        const char* summary;
        std::string errors;
    } machines[] = {
        // Packages interleaved (cpu1 is in package 2), core ids 0-3 and 8-11, CPUs 64-79
        // possible but absent; base clock 2000 lifted halfway to the 1996 maximum.
        {"x86-xeon-x7550-4s-smt-offline", firstCpus(64),
         "Intel(R) Xeon(R) CPU           X7550  @ 2.00GHz|64/32 HT|2000 1064 -1 1996 83116", ""},
        // The current clock above the maximum is printed as the kernel gives it.
        {"amd-epyc-7451-2s-smt", firstCpus(96),
         "AMD EPYC 7451 24-Core Processor|96/48 HT|-1 2893 -1 2300 143520", ""},
        // Three clusters reported as packages; the maximum is the X3's, the current clock cpu0's.
        {"arm64-a510-a710-a715-x3-hetero", firstCpus(8),
         "ARM 3x Cortex-A510 + 2x Cortex-A715 + 2x Cortex-A710 + 1x Cortex-X3|8/8|-1 1018 -1 3187 "
         "25496",
         ""},
        // No cpufreq and no "cpu MHz": both clocks unknown, with the system's reason.
        {"arm64-cavium-thunderx-scaleway", firstCpus(6), "Cavium ThunderX-88XX|6/6|-1 -1 -1 -1 1",
         noData + noFile},
        // base_frequency (1200 MHz) is not the label's clock and is not read.
        {"x86-core-i7-1165g7-base-frequency", firstCpus(8),
         "11th Gen Intel(R) Core(TM) i7-1165G7 @ 2.80GHz|8/4 HT|2800 1929 -1 4700 19500", ""},
        {"container-xeon-no-topology", firstCpus(2),
         "Intel(R) Xeon(R) Processor|2/2|-1 2600 -1 -1 7280",
         "No CPU topology in /sys; cores counted from /proc/cpuinfo\n" + noFile},
        // Two dies per package, core_id numbered per die: CPUs 0 and 4 share package and core_id
        // but are different cores, CPUs 2k and 2k+1 are the two threads of one core.
        {opteron, {0, 4}, "AMD Opteron(tm) Processor 6328|2/2|-1 1612 -1 3200 6400", ""},
        {opteron, {0, 1}, "AMD Opteron(tm) Processor 6328|2/1 HT|-1 1612 -1 3200 4160", ""},
        {opteron,
         {0, 2, 4, 6, 8, 10, 12, 14},
         "AMD Opteron(tm) Processor 6328|8/8|-1 1612 -1 3200 25600",
         ""},
        {opteron, firstCpus(16), "AMD Opteron(tm) Processor 6328|16/8 HT|-1 1612 -1 3200 33280",
         ""},
    };
    for (const auto& m : machines) {
        CpuInfo i;
        gatherCpuInfo(i, LinuxOsQuery(kMachines + m.folder, m.cpus));
        EXPECT_EQ(std::string(i.description.text) + "|" + std::to_string(i.logicalCpus) + "/" +
                      std::to_string(i.physicalCpus) + (i.coreHt[0] ? " HT|" : "|") +
                      std::to_string(i.mhzInLabel) + " " + std::to_string(i.mhzCurrent) + " " +
                      std::to_string(i.mhzInfo) + " " + std::to_string(i.mhzMax) + " " +
                      std::to_string(i.mhzSummed),
                  m.summary);
        EXPECT_EQ(i.hyperthreading, i.coreHt[0]) << m.folder;
        EXPECT_EQ(i.errors.text, m.errors) << m.folder;
    }
}

// The core count where sysfs cannot give it: the allowed CPUs' ("physical id", "core id") pairs
// in /proc/cpuinfo, else as many cores as CPUs; the text says which.
TEST(LinuxOsQuery, CoreCountFallbacks) {
    const std::string fromCpuinfo = "No CPU topology in /sys; cores counted from /proc/cpuinfo";
    const std::string assumed =
        "No CPU topology in /sys or /proc/cpuinfo; physical cores taken as logical CPUs";
    const std::string xeon = "x86-xeon-x7550-4s-smt-offline";
    const struct {
        std::string folder;
        bool hideSysfs;
        std::vector<int> allowed;
        int32_t physical;
        std::string fallback;  // empty: sysfs answered
    } cases[] = {
        {xeon, false, {0, 32}, 1, ""},
        {xeon, true, firstCpus(64), 32, fromCpuinfo},
        // Siblings count once; only the allowed CPUs count.
        {xeon, true, {0, 32, 1}, 2, fromCpuinfo},
        // cpu64 is possible but absent in both sysfs and /proc/cpuinfo.
        {xeon, false, {0, 32, 64}, 3, assumed},
        {"amd-epyc-7451-2s-smt", true, firstCpus(96), 48, fromCpuinfo},
        {"container-xeon-no-topology", false, {1}, 1, fromCpuinfo},
        // arm64 prints no topology in /proc/cpuinfo: no hyperthreading is claimed.
        {"arm64-cavium-thunderx-scaleway", true, firstCpus(6), 6, assumed},
        {"arm64-a510-a710-a715-x3-hetero", true, {0, 3, 7}, 3, assumed},
    };
    // A root holding only the machine's /proc: its sysfs CPU folder hidden, as in a container.
    std::string procOnly = testing::TempDir() + "corebench-root-XXXXXX";
    ASSERT_NE(mkdtemp(&procOnly[0]), nullptr) << strerror(errno);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.folder + (c.hideSysfs ? " without sysfs, " : ", ") +
                     std::to_string(c.allowed.size()) + " CPUs");
        unlink((procOnly + "/proc").c_str());
        ASSERT_EQ(symlink((kMachines + c.folder + "/proc").c_str(), (procOnly + "/proc").c_str()),
                  0);
        const LinuxOsQuery os(c.hideSysfs ? procOnly : kMachines + c.folder, c.allowed);
        int32_t physical = -1;
        const char* fallback = "unset";
        ASSERT_EQ(os.physicalCpus(&physical, &fallback), 0);
        EXPECT_EQ(physical, c.physical);
        EXPECT_EQ(fallback == nullptr ? "" : fallback, c.fallback);
    }
    unlink((procOnly + "/proc").c_str());
    rmdir(procOnly.c_str());
}

// Installed memory: the online memory blocks of sysfs times their size (a recording trimmed to one
// block of 128 MiB), else MemTotal.
TEST(LinuxOsQuery, InstalledMemory) {
    int64_t bytes = 0;
    ASSERT_EQ(LinuxOsQuery(CPUINFO_TEST_DATA "/epyc-vm").memoryBytes(&bytes), 0);
    EXPECT_EQ(bytes, 128 << 20);
    ASSERT_EQ(LinuxOsQuery(CPUINFO_TEST_DATA "/intel-desktop").memoryBytes(&bytes), 0);
    EXPECT_EQ(bytes, 16318412LL * 1024);
}

// Names from the part table for the allowed CPUs only, counts for several core types.
TEST(DescribeArmCpu, CoreTypesOfTheAllowedCpus) {
    const std::string hetero = fileText(kMachines + "arm64-a510-a710-a715-x3-hetero/proc/cpuinfo");
    const std::string xeon = fileText(kMachines + "x86-xeon-x7550-4s-smt-offline/proc/cpuinfo");
    // A block per CPU, numbered from 0, for each "implementer part" pair given.
    const auto cpus = [](const std::string& types) {
        std::istringstream in(types);
        std::string text, implementer, part;
        for (int cpu = 0; in >> implementer >> part; ++cpu) {
            text += "processor\t: " + std::to_string(cpu) +
                    "\nBogoMIPS\t: 50.00\nCPU implementer\t: " + implementer +
                    "\nCPU architecture: 8\nCPU part\t: " + part + "\n\n";
        }
        return text;
    };
    // Kernels before 3.19 print one set of lines after the list of processors.
    const std::string oldKernel =
        "Processor\t: AArch64 Processor rev 4 (aarch64)\nprocessor\t: 0\nprocessor\t: 1\n"
        "Features\t: fp asimd\nCPU implementer\t: 0x41\nCPU architecture: AArch64\n"
        "CPU variant\t: 0x0\nCPU part\t: 0xd03\nCPU revision\t: 4\n\nHardware\t: Board\n";
    struct Case {
        std::string cpuinfo;
        std::vector<int> allowed;
        const char* name;
    };
    const Case cases[] = {
        {hetero, {7}, "ARM Cortex-X3"},
        {hetero, {6, 7, 5}, "ARM 2x Cortex-A710 + 1x Cortex-X3"},
        {hetero, {8}, "ARM Cortex-A510"},  // no such CPU: the first one in the text
        {oldKernel, {0, 1}, "ARM Cortex-A53"},
        {cpus("0x41 0xd4f"), {0}, "ARM Neoverse-V2"},
        {cpus("0x41 0xd99"), {0}, "ARM 0x41 part 0xd99"},
        {cpus("0x99 0x001"), {0}, "ARM 0x99 part 0x001"},
        {cpus("0x41 0xd03 0x41 0xd99"), {0, 1}, "1x ARM Cortex-A53 + 1x ARM 0x41 part 0xd99"},
        {cpus("0x41 0xd03 0x51 0x801"), {0, 1}, "1x ARM Cortex-A53 + 1x Qualcomm Kryo-V2"},
        {cpus("0x41 0xd0c 0x41 0xd0c"), {1, 0}, "ARM Neoverse-N1"},
        {cpus("41 0xd03"), {0}, "<none>"},
        {cpus("0x41 0x1000"), {0}, "<none>"},
        {"processor\t: 0\nCPU implementer\t: 0x41\nCPU part\t: \n", {0}, "<none>"},
        {xeon, {0}, "<none>"},
        {"", {0}, "<none>"},
    };
    for (const Case& c : cases) {
        std::string name;
        EXPECT_EQ(describeArmCpu(c.cpuinfo, c.allowed, &name) ? name : "<none>", c.name)
            << c.cpuinfo.substr(0, 200);
    }
}

}  // namespace
