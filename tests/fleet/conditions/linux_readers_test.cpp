// The Linux readers on recorded trees (data/, see its SOURCES.md): /proc over a real run with a
// busy loop on the benchmark's CPU, sysfs trees each with one cause of slowness planted; and the
// /proc parsers on the malformed and unusual text a kernel or a reused PID can give.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "conditions_probe_linux.h"
#include "disturbance.h"
#include "power_state_linux.h"
#include "proc_parse.h"

namespace {

const std::string kData = CONDITIONS_TEST_DATA;

double uptimeOf(const std::string& root) {
    std::ifstream in(root + "/proc/uptime");
    double seconds = 0;
    in >> seconds;
    return seconds;
}

TEST(LinuxConditionsProbe, RecordedRunWithABusyLoopOnTheWorkersCpu) {
    const std::string run = kData + "/proc/worker-cpu";
    RunSnapshots snapshots;
    snapshots.before = LinuxConditionsProbe(22958, run + "/before", 100).machine();
    snapshots.before.atS = uptimeOf(run + "/before");
    snapshots.during = LinuxConditionsProbe(22958, run + "/during", 100).process();
    ASSERT_TRUE(snapshots.during);
    snapshots.during->atS = uptimeOf(run + "/during");
    snapshots.after = LinuxConditionsProbe(22958, run + "/after", 100).machine();
    snapshots.after.atS = uptimeOf(run + "/after");

    // "cpu1 139670 61089 36391 18262 825 0 779 2643 0 0"
    ASSERT_EQ(snapshots.before.perCpu.size(), 2u);
    EXPECT_EQ(snapshots.before.perCpu[1].first, 1);
    EXPECT_DOUBLE_EQ(snapshots.before.perCpu[1].second.busyS, 2379.29);
    EXPECT_DOUBLE_EQ(snapshots.before.perCpu[1].second.idleS, 190.87);
    EXPECT_DOUBLE_EQ(*snapshots.before.perCpu[1].second.stealS, 26.43);
    EXPECT_EQ(snapshots.before.cpuCount, 2);
    EXPECT_EQ(snapshots.before.load1, 10.98);
    EXPECT_EQ(snapshots.before.endedChildrenCpuS, 0);
    EXPECT_DOUBLE_EQ(*snapshots.after.endedChildrenCpuS, 5.52);
    // The main thread, and the worker 3 s into the run: 0.38 s on CPU 1, 2.35 s waiting for it.
    ASSERT_EQ(snapshots.during->tasks.size(), 2u);
    EXPECT_EQ(snapshots.during->tasks[1].id, 22967);
    EXPECT_DOUBLE_EQ(snapshots.during->tasks[1].cpuS, 0.37);
    EXPECT_DOUBLE_EQ(*snapshots.during->tasks[1].runS, 0.378713686);
    EXPECT_DOUBLE_EQ(*snapshots.during->tasks[1].waitS, 2.347656336);
    EXPECT_EQ(snapshots.during->allowedCpus, std::vector<int>{1});

    const RunConditions conditions = runConditions(snapshots, 0);
    EXPECT_EQ(conditions.workerThreads, 1);
    EXPECT_NEAR(*conditions.cpuShare, 0.18, 0.005);
    EXPECT_NEAR(*conditions.stealShare, 0.007, 0.0005);
    EXPECT_EQ(disturbanceCauses(conditions),
              std::vector<std::string>{"other work used 0.81 of the worker's CPU"});
}

// A process is read until it is a zombie or its PID names another process.
TEST(LinuxConditionsProbe, EndsWithTheWatchedProcess) {
    char folder[] = "/tmp/conditions-test-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string proc = std::string(folder) + "/proc/77";
    ASSERT_EQ(system(("mkdir -p " + proc).c_str()), 0);
    const auto statWith = [](const char* state, const char* startTicks) {
        return std::string("77 (a) b) ") + state + " 1 1 1 0 -1 0 0 0 0 0 250 50 0 0 20 0 2 0 " +
               startTicks + " 0 0\n";
    };
    LinuxConditionsProbe probe(77, folder, 100);
    const struct {
        std::string stat;
        bool read;
    } rows[] = {
        {statWith("R", "900"), true},
        {statWith("R", "901"), false},  // reaped, and the PID given to another process
        {statWith("Z", "900"), false},
    };
    for (const auto& row : rows) {
        std::ofstream(proc + "/stat") << row.stat;
        const std::optional<ProcessSnapshot> process = probe.process();
        EXPECT_EQ(process.has_value(), row.read) << row.stat;
        if (process) {
            EXPECT_EQ(process->cpuS, 3.0);
            EXPECT_TRUE(process->tasks.empty());
            EXPECT_TRUE(process->allowedCpus.empty());
        }
    }
    ASSERT_EQ(system(("rm -r " + std::string(folder)).c_str()), 0);
}

TEST(ProcParse, UnusualAndMalformedText) {
    MachineSnapshot machine;
    // Kernels before 2.6.11 stop after iowait; the missing counters read as zero.
    ASSERT_TRUE(parseProcStat("cpu 1 2 3 4 5\ncpu0 1 2 3 4 5\nintr 7\n", 100, &machine));
    EXPECT_DOUBLE_EQ(machine.allCpus->busyS, 0.06);
    EXPECT_DOUBLE_EQ(machine.allCpus->idleS, 0.09);
    EXPECT_EQ(machine.allCpus->stealS, 0.0);
    EXPECT_EQ(machine.cpuCount, 1);
    for (const char* bad :
         {"cpu 1 2 3\n", "intr 1\n", "cpu 1 2 3 4 x\n", "cpu 1 2 3 4 5\ncpux 1 2 3 4 5\n"}) {
        EXPECT_FALSE(parseProcStat(bad, 100, &machine)) << bad;
    }
    EXPECT_FALSE(parsePidStat("77 (short) R 1 2 3", 100));
    EXPECT_FALSE(parseSchedstat("12"));
    const std::optional<LoadAverages> loads = parseLoadAverages("0.52 0.58 0.59 1/189 4242\n");
    ASSERT_TRUE(loads);
    EXPECT_EQ(loads->oneMinute, 0.52);
    EXPECT_EQ(loads->fiveMinutes, 0.58);
    EXPECT_FALSE(parseLoadAverages("nan 0 0\n"));
    EXPECT_FALSE(parseLoadAverages("0.52 -1 0\n"));
    EXPECT_FALSE(parseLoadAverages("0.52\n"));
    const struct {
        const char* text;
        std::vector<int> cpus;
    } lists[] = {
        {"0-3,8\n", {0, 1, 2, 3, 8}}, {"5", {5}}, {"3-1", {}}, {"0-1,", {}}, {"", {}}, {"0 1", {}},
    };
    for (const auto& list : lists) {
        EXPECT_EQ(parseCpuList(list.text), list.cpus) << list.text;
    }
    EXPECT_EQ(parseAllowedCpus("Name:\tx\nCpus_allowed:\t3\nCpus_allowed_list:\t0-1\n"),
              (std::vector<int>{0, 1}));
    EXPECT_TRUE(parseAllowedCpus("Name:\tx\n").empty());
}

// Each tree names its planted cause and only that; the clean one, and throttle counts that did
// not rise during the run, name nothing.
TEST(LinuxPowerState, RecordedTreesNameThePlantedCause) {
    const std::string sysfs = kData + "/sysfs/";
    const struct {
        const char* before;
        const char* after;
        std::vector<std::string> causes;
    } rows[] = {
        {"clean", "clean", {}},
        {"governor-powersave",
         "governor-powersave",
         {"governor powersave holds the clock at its lowest on CPUs 0-1"}},
        {"no-turbo", "no-turbo", {"turbo is switched off (intel_pstate/no_turbo is 1)"}},
        {"boost-off", "boost-off", {"boost is switched off (cpufreq/boost is 0)"}},
        {"max-freq-capped",
         "max-freq-capped",
         {"scaling_max_freq caps the clock at 2000 of 4700 MHz on CPU 1"}},
        {"epp-power", "epp-power", {"energy_performance_preference is power on CPUs 0-1"}},
        {"clean",
         "thermal-throttling",
         {"thermal throttling during the run on CPUs 0-1 (48 throttle events)"}},
        {"thermal-throttling", "thermal-throttling", {}},
    };
    for (const auto& row : rows) {
        // The online CPUs, as for a benchmark whose allowed CPUs are unknown.
        const PowerState before = linuxPowerState(sysfs + row.before, {});
        const PowerState after = linuxPowerState(sysfs + row.after, {});
        EXPECT_EQ(after.cpus.size(), 2u) << row.after;
        EXPECT_EQ(likelyCauses(before, after), row.causes) << row.after;
    }
}

}  // namespace
