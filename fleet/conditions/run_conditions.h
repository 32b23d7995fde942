#pragma once

// The conditions of one benchmark run: what the machine and the benchmark's process did over the
// span of the run, from snapshots taken before, during and after it. A score measures the machine
// only when the benchmark had its CPUs to itself; these figures say whether it had. Plain data
// and one pure function; the snapshots come from the per-OS probe (conditions_probe.h).

#include <cstdint>
#include <optional>
#include <vector>

// CPU time of one CPU, or of all CPUs summed, since boot, in seconds.
struct CpuTimes {
    double busyS = 0;  // user, nice, system, irq, softirq (guests' time is within user)
    double idleS = 0;  // idle and iowait
    // Time the hypervisor gave this virtual CPU to someone else; unknown on Windows.
    std::optional<double> stealS;
};

// The machine at one moment.
struct MachineSnapshot {
    double atS = 0;                                // a monotonic clock, set by the watch
    std::optional<CpuTimes> allCpus;               // every CPU summed
    std::vector<std::pair<int, CpuTimes>> perCpu;  // by CPU number; empty where the OS has none
    std::optional<int> cpuCount;                   // CPUs online
    std::optional<double> load1;                   // the load average over the last minute
    // CPU time of the reaping process's children that have ended and been waited for: the
    // benchmark's whole CPU time, once it has ended, is the growth of this figure over the run.
    std::optional<double> endedChildrenCpuS;
};

// One thread of the benchmark's process: its CPU time and, where the scheduler keeps them, its
// time on a CPU and its time ready to run but waiting for one, all since the thread started.
struct TaskTimes {
    int64_t id = 0;
    double cpuS = 0;
    std::optional<double> runS;
    std::optional<double> waitS;
};

// The benchmark's process at one moment. Threads that have ended are no longer in tasks.
struct ProcessSnapshot {
    double atS = 0;              // set by the watch
    std::optional<double> cpuS;  // user and system time of the process and every thread it had
    std::vector<TaskTimes> tasks;
    std::vector<int> allowedCpus;  // its affinity; empty when unknown
};

// Everything taken over one run: the machine just before (or as) the benchmark started and just
// after it ended, the process while it ran (its snapshots merged). The process is new at the
// first snapshot, so its counters count from zero.
struct RunSnapshots {
    MachineSnapshot before;
    std::optional<ProcessSnapshot> during;
    MachineSnapshot after;
};

// Adds a later snapshot of the process to what was seen of it: the latest figures of each
// thread, ended threads kept, the highest CPU time, the latest known affinity.
void mergeProcessSnapshot(std::optional<ProcessSnapshot>* seen, const ProcessSnapshot& next);

// The figures over the run. Every figure the OS could not give is empty.
struct RunConditions {
    double wallS = 0;
    std::optional<double> processCpuS;
    // Threads that wanted a CPU for at least half of the run: the benchmark's workers, which is
    // what its CPU time is set against (SingleSpeed has one worker beside an idle main thread).
    std::optional<int> workerThreads;
    std::optional<int> allowedCpus;
    std::optional<int> machineCpus;
    // The process's CPU time over wall time times the CPUs its workers could use at once.
    std::optional<double> cpuShare;
    // Of the time its workers were ready to run, the part they waited for a CPU.
    std::optional<double> waitShare;
    // CPU time of all other work, over wall time: on the CPUs the benchmark was allowed, and on
    // the whole machine, in CPUs (1.0 is one CPU busy for the whole run).
    std::optional<double> otherCpusAllowed;
    std::optional<double> otherCpusMachine;
    // The part of the workers' CPUs that other work took: other work on the allowed CPUs beyond
    // those the workers left free, over the CPUs the workers could use. A busy loop sharing the
    // single worker's CPU takes about 0.5.
    std::optional<double> otherShareOfWorkerCpus;
    // Steal time over all time of the allowed CPUs (of the machine where per-CPU figures lack).
    std::optional<double> stealShare;
    std::optional<double> loadBefore;
};

// workerThreadsHint stands in for the count of workers where the threads' scheduler figures are
// unknown (Windows); 0 when the caller does not know it either.
RunConditions runConditions(const RunSnapshots& snapshots, int workerThreadsHint);
