// LinuxOsQuery's real file reading on recorded /proc and /sys trees of real machines
// (data/machines, see its SOURCES.md): an x86 build reads an arm64 tree exactly as an arm64 one.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
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
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// A kernel CPU list such as "0-63" or "0,2-3".
std::vector<int> cpuList(const std::string& text) {
    std::vector<int> cpus;
    std::stringstream in(text);
    std::string range;
    while (std::getline(in, range, ',')) {
        const size_t dash = range.find('-');
        const int first = std::stoi(range.substr(0, dash));
        const int last = dash == range.npos ? first : std::stoi(range.substr(dash + 1));
        for (int cpu = first; cpu <= last; ++cpu) {
            cpus.push_back(cpu);
        }
    }
    return cpus;
}

// What the scheduler would allow on the recorded machine: its online CPUs, or the present ones
// where the recording has no online file.
std::vector<int> onlineCpus(const std::string& machine) {
    const std::string dir = kMachines + machine + "/sys/devices/system/cpu/";
    const std::string online = fileText(dir + "online");
    return cpuList(online.empty() ? fileText(dir + "present") : online);
}

// A root holding only the recorded machine's /proc: its sysfs CPU folder hidden, as in a
// container. Removed again at the end of the test.
class ProcOnlyRoot {
  public:
    explicit ProcOnlyRoot(const std::string& machine) {
        char pattern[] = "/tmp/corebench-root-XXXXXX";
        if (mkdtemp(pattern) != nullptr) {
            path = pattern;
            EXPECT_EQ(symlink((kMachines + machine + "/proc").c_str(), (path + "/proc").c_str()), 0)
                << strerror(errno);
        }
        EXPECT_FALSE(path.empty()) << strerror(errno);
    }
    ~ProcOnlyRoot() {
        unlink((path + "/proc").c_str());
        rmdir(path.c_str());
    }
    std::string path;
};

// One row per recorded machine, read through the whole gathering. Clocks in MHz; the errors are
// the report's errors block.
TEST(LinuxOsQuery, RecordedMachines) {
    struct Machine {
        const char* folder;
        const char* description;
        int32_t logical, physical;
        bool hyperthreading;
        int64_t mhzInLabel, mhzCurrent, mhzMax, mhzSummed;
        std::string errors;
    };
    const std::string noData = std::string(strerror(ENODATA)) + "\n";
    const std::string noFile = std::string(strerror(ENOENT)) + "\n";
    const Machine machines[] = {
        // Packages interleaved (cpu1 is in package 2), core ids 0-3 and 8-11, CPUs 64-79
        // possible but absent; base clock 2000 lifted halfway to the 1996 maximum.
        {"x86-xeon-x7550-4s-smt-offline", "Intel(R) Xeon(R) CPU           X7550  @ 2.00GHz", 64, 32,
         true, 2000, 1064, 1996, 83116, ""},
        // The current clock above the maximum is printed as the kernel gives it.
        {"amd-epyc-7451-2s-smt", "AMD EPYC 7451 24-Core Processor", 96, 48, true, -1, 2893, 2300,
         143520, ""},
        // Three clusters reported as packages; the maximum is the X3's, the current clock cpu0's.
        {"arm64-a510-a710-a715-x3-hetero",
         "ARM 3x Cortex-A510 + 2x Cortex-A715 + 2x Cortex-A710 + 1x Cortex-X3", 8, 8, false, -1,
         1018, 3187, 25496, ""},
        // No cpufreq and no "cpu MHz": both clocks unknown, with the system's reason.
        {"arm64-cavium-thunderx-scaleway", "Cavium ThunderX-88XX", 6, 6, false, -1, -1, -1, 1,
         noData + noFile},
        // base_frequency (1200 MHz) is not the label's clock and is not read.
        {"x86-core-i7-1165g7-base-frequency", "11th Gen Intel(R) Core(TM) i7-1165G7 @ 2.80GHz", 8,
         4, true, 2800, 1929, 4700, 19500, ""},
        {"container-xeon-no-topology", "Intel(R) Xeon(R) Processor", 2, 2, false, -1, 2600, -1,
         7280, "No CPU topology in /sys; cores counted from /proc/cpuinfo\n" + noFile},
    };
    for (const Machine& m : machines) {
        SCOPED_TRACE(m.folder);
        const std::string folder = m.folder;
        const LinuxOsQuery os(kMachines + folder, folder.rfind("container", 0) == 0
                                                      ? std::vector<int>{0, 1}
                                                      : onlineCpus(folder));
        CpuInfo info;
        gatherCpuInfo(info, os);
        EXPECT_STREQ(info.description.text, m.description);
        EXPECT_EQ(info.logicalCpus, m.logical);
        EXPECT_EQ(info.physicalCpus, m.physical);
        EXPECT_EQ(info.hyperthreading, m.hyperthreading);
        EXPECT_EQ(info.mhzInLabel, m.mhzInLabel);
        EXPECT_EQ(info.mhzCurrent, m.mhzCurrent);
        EXPECT_EQ(info.mhzInfo, -1);
        EXPECT_EQ(info.mhzMax, m.mhzMax);
        EXPECT_EQ(info.mhzSummed, m.mhzSummed);
        EXPECT_EQ(info.errors.text, m.errors);
        EXPECT_EQ(info.coreHt[0], m.hyperthreading);
    }
}

// The core count where sysfs cannot give it: the allowed CPUs' ("physical id", "core id") pairs
// in /proc/cpuinfo, else as many cores as CPUs; the text says which.
TEST(LinuxOsQuery, CoreCountFallbacks) {
    const std::string fromCpuinfo = "No CPU topology in /sys; cores counted from /proc/cpuinfo";
    const std::string assumed =
        "No CPU topology in /sys or /proc/cpuinfo; physical cores taken as logical CPUs";
    struct Case {
        const char* folder;
        bool hideSysfs;
        std::vector<int> allowed;
        int32_t physical;
        std::string fallback;  // empty: sysfs answered
    };
    const Case cases[] = {
        {"x86-xeon-x7550-4s-smt-offline", false, {0, 32}, 1, ""},
        {"x86-xeon-x7550-4s-smt-offline", true, onlineCpus("x86-xeon-x7550-4s-smt-offline"), 32,
         fromCpuinfo},
        // Siblings count once; only the allowed CPUs count.
        {"x86-xeon-x7550-4s-smt-offline", true, {0, 32, 1}, 2, fromCpuinfo},
        // cpu64 is possible but absent in both sysfs and /proc/cpuinfo.
        {"x86-xeon-x7550-4s-smt-offline", false, {0, 32, 64}, 3, assumed},
        {"amd-epyc-7451-2s-smt", true, onlineCpus("amd-epyc-7451-2s-smt"), 48, fromCpuinfo},
        {"container-xeon-no-topology", false, {1}, 1, fromCpuinfo},
        // arm64 prints no topology in /proc/cpuinfo: no hyperthreading is claimed.
        {"arm64-cavium-thunderx-scaleway", true, onlineCpus("arm64-cavium-thunderx-scaleway"), 6,
         assumed},
        {"arm64-a510-a710-a715-x3-hetero", true, {0, 3, 7}, 3, assumed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.folder) + (c.hideSysfs ? " without sysfs, " : ", ") +
                     std::to_string(c.allowed.size()) + " CPUs");
        const ProcOnlyRoot procOnly(c.folder);
        const LinuxOsQuery os(c.hideSysfs ? procOnly.path : kMachines + c.folder, c.allowed);
        int32_t physical = -1;
        const char* fallback = "unset";
        ASSERT_EQ(os.physicalCpus(&physical, &fallback), 0);
        EXPECT_EQ(physical, c.physical);
        EXPECT_EQ(fallback == nullptr ? "" : fallback, c.fallback);
    }
}

std::string armName(const std::string& cpuinfo, const std::vector<int>& allowed) {
    std::string name = "<none>";
    return describeArmCpu(cpuinfo, allowed, &name) ? name : "<none>";
}

// Names from the part table for the allowed CPUs only, counts for several core types.
TEST(DescribeArmCpu, CoreTypesOfTheAllowedCpus) {
    const std::string hetero = fileText(kMachines + "arm64-a510-a710-a715-x3-hetero/proc/cpuinfo");
    const std::string thunderx =
        fileText(kMachines + "arm64-cavium-thunderx-scaleway/proc/cpuinfo");
    const std::string xeon = fileText(kMachines + "x86-xeon-x7550-4s-smt-offline/proc/cpuinfo");
    const auto cpu = [](int n, const char* implementer, const char* part) {
        return "processor\t: " + std::to_string(n) +
               "\nBogoMIPS\t: 50.00\nCPU implementer\t: " + implementer +
               "\nCPU architecture: 8\nCPU part\t: " + part + "\n\n";
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
        {thunderx, {0, 1, 2, 3, 4, 5}, "Cavium ThunderX-88XX"},
        {oldKernel, {0, 1}, "ARM Cortex-A53"},
        {cpu(0, "0x41", "0xd4f"), {0}, "ARM Neoverse-V2"},
        {cpu(0, "0x41", "0xd99"), {0}, "ARM 0x41 part 0xd99"},
        {cpu(0, "0x99", "0x001"), {0}, "ARM 0x99 part 0x001"},
        {cpu(0, "0x41", "0xd03") + cpu(1, "0x41", "0xd99"),
         {0, 1},
         "1x ARM Cortex-A53 + 1x ARM 0x41 part 0xd99"},
        {cpu(0, "0x41", "0xd03") + cpu(1, "0x51", "0x801"),
         {0, 1},
         "1x ARM Cortex-A53 + 1x Qualcomm Kryo-V2"},
        {cpu(0, "0x41", "0xd0c") + cpu(1, "0x41", "0xd0c"), {1, 0}, "ARM Neoverse-N1"},
        {cpu(0, "41", "0xd03"), {0}, "<none>"},
        {cpu(0, "0x41", "0x1000"), {0}, "<none>"},
        {cpu(0, "0x41", ""), {0}, "<none>"},
        {xeon, {0}, "<none>"},
        {"", {0}, "<none>"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(armName(c.cpuinfo, c.allowed), c.name) << c.cpuinfo.substr(0, 200);
    }
}

}  // namespace
