#include "run_conditions.h"

#include <algorithm>
#include <cmath>

namespace {

// A thread that wanted a CPU (ran or waited for one) for at least this part of the run is a
// worker: corebench's main thread wakes twice a second to poll and wants about 1 % of the run, a
// worker wants all of it but its start-up pause, however much of its CPU other work takes.
constexpr double kWorkerDemandShare = 0.5;

// Summed times of a set of CPUs over the run, or nothing when a CPU lacks a figure or a counter
// went backwards (a CPU taken offline and back restarts its counters).
std::optional<CpuTimes> growth(const CpuTimes& before, const CpuTimes& after) {
    CpuTimes delta{after.busyS - before.busyS, after.idleS - before.idleS, std::nullopt};
    if (before.stealS && after.stealS) {
        delta.stealS = *after.stealS - *before.stealS;
    }
    if (delta.busyS < 0 || delta.idleS < 0 || delta.stealS.value_or(0) < 0) {
        return std::nullopt;
    }
    return delta;
}

const CpuTimes* findCpu(const MachineSnapshot& machine, int cpu) {
    for (const auto& [number, times] : machine.perCpu) {
        if (number == cpu) {
            return &times;
        }
    }
    return nullptr;
}

std::optional<CpuTimes> allowedCpusGrowth(const RunSnapshots& run, const std::vector<int>& cpus) {
    CpuTimes sum{0, 0, 0.0};
    for (const int cpu : cpus) {
        const CpuTimes* before = findCpu(run.before, cpu);
        const CpuTimes* after = findCpu(run.after, cpu);
        if (before == nullptr || after == nullptr) {
            return std::nullopt;
        }
        const std::optional<CpuTimes> delta = growth(*before, *after);
        if (!delta) {
            return std::nullopt;
        }
        sum.busyS += delta->busyS;
        sum.idleS += delta->idleS;
        sum.stealS = sum.stealS && delta->stealS
                         ? std::optional<double>(*sum.stealS + *delta->stealS)
                         : std::nullopt;
    }
    return sum;
}

std::optional<CpuTimes> machineGrowth(const RunSnapshots& run) {
    if (!run.before.allCpus || !run.after.allCpus) {
        return std::nullopt;
    }
    return growth(*run.before.allCpus, *run.after.allCpus);
}

// The process's whole CPU time: what its reaper saw end, or what the last snapshot of the
// running process said, whichever is more (the first is nothing until the process is reaped, the
// second misses the time after the last snapshot).
std::optional<double> processCpu(const RunSnapshots& run) {
    std::optional<double> cpu;
    if (run.before.endedChildrenCpuS && run.after.endedChildrenCpuS &&
        *run.after.endedChildrenCpuS >= *run.before.endedChildrenCpuS) {
        cpu = *run.after.endedChildrenCpuS - *run.before.endedChildrenCpuS;
    }
    if (run.during && run.during->cpuS && (!cpu || *run.during->cpuS > *cpu)) {
        cpu = run.during->cpuS;
    }
    return cpu;
}

struct Workers {
    int count = 0;
    std::optional<double> waitShare;
};

// The workers by what they wanted, and how much of that they waited; nothing when the scheduler
// gave no figures or the snapshots span no time. The threads that wanted the CPU for half the run
// are counted, and so are workers that ran one after another (Single10 starts a worker for
// each of its ten runs): all threads' wanted time over the run, rounded, is the least count.
std::optional<Workers> workersOf(const RunSnapshots& run) {
    if (!run.during || run.during->tasks.empty() || run.during->atS <= run.before.atS) {
        return std::nullopt;
    }
    const double spanS = run.during->atS - run.before.atS;
    Workers workers;
    double waitS = 0;
    double demandS = 0;
    for (const TaskTimes& task : run.during->tasks) {
        if (!task.runS || !task.waitS) {
            return std::nullopt;
        }
        const double taskDemandS = *task.runS + *task.waitS;
        if (taskDemandS >= kWorkerDemandShare * spanS) {
            ++workers.count;
        }
        waitS += *task.waitS;
        demandS += taskDemandS;
    }
    workers.count = std::max(workers.count, static_cast<int>(std::lround(demandS / spanS)));
    if (demandS > 0) {
        workers.waitShare = waitS / demandS;
    }
    return workers;
}

}  // namespace

void mergeProcessSnapshot(std::optional<ProcessSnapshot>* seen, const ProcessSnapshot& next) {
    if (!*seen) {
        *seen = next;
        return;
    }
    ProcessSnapshot& merged = **seen;
    merged.atS = next.atS;
    if (next.cpuS && (!merged.cpuS || *next.cpuS > *merged.cpuS)) {
        merged.cpuS = next.cpuS;
    }
    for (const TaskTimes& task : next.tasks) {
        auto known = std::find_if(merged.tasks.begin(), merged.tasks.end(),
                                  [&](const TaskTimes& old) { return old.id == task.id; });
        if (known != merged.tasks.end()) {
            *known = task;
        } else {
            merged.tasks.push_back(task);
        }
    }
    if (!next.allowedCpus.empty()) {
        merged.allowedCpus = next.allowedCpus;
    }
}

RunConditions runConditions(const RunSnapshots& run, int workerThreadsHint) {
    RunConditions conditions;
    conditions.loadBefore = run.before.load1;
    conditions.machineCpus = run.after.cpuCount ? run.after.cpuCount : run.before.cpuCount;
    conditions.wallS = run.after.atS - run.before.atS;
    if (conditions.wallS <= 0) {
        conditions.wallS = 0;
        return conditions;
    }
    const double wallS = conditions.wallS;
    conditions.processCpuS = processCpu(run);

    if (const std::optional<Workers> workers = workersOf(run)) {
        conditions.workerThreads = workers->count;
        conditions.waitShare = workers->waitShare;
    } else if (workerThreadsHint > 0) {
        conditions.workerThreads = workerThreadsHint;
    }
    // An affinity may name CPUs that are not online (the possible ones); they run nothing.
    std::vector<int> allowed;
    for (const int cpu : run.during ? run.during->allowedCpus : std::vector<int>{}) {
        if (run.after.perCpu.empty() || findCpu(run.after, cpu) != nullptr) {
            allowed.push_back(cpu);
        }
    }
    if (!allowed.empty()) {
        conditions.allowedCpus = static_cast<int>(allowed.size());
    }
    // The CPUs the workers can use at once.
    std::optional<int> usable = conditions.workerThreads;
    if (usable && conditions.allowedCpus) {
        usable = std::min(*usable, *conditions.allowedCpus);
    }
    if (usable && *usable > 0 && conditions.processCpuS) {
        conditions.cpuShare = *conditions.processCpuS / (wallS * *usable);
    }

    const std::optional<CpuTimes> machine = machineGrowth(run);
    std::optional<CpuTimes> allowedTimes;
    if (!allowed.empty()) {
        allowedTimes = allowedCpusGrowth(run, allowed);
        // Without per-CPU figures (Windows) the machine's stand for an affinity of every CPU.
        if (!allowedTimes && run.after.perCpu.empty() &&
            conditions.allowedCpus == conditions.machineCpus) {
            allowedTimes = machine;
        }
    }
    const double ownS = conditions.processCpuS.value_or(0);
    if (machine) {
        conditions.otherCpusMachine = std::max(0.0, machine->busyS - ownS) / wallS;
    }
    const std::optional<CpuTimes> stealBase = allowedTimes ? allowedTimes : machine;
    if (stealBase && stealBase->stealS) {
        const double allS = stealBase->busyS + stealBase->idleS + *stealBase->stealS;
        if (allS > 0) {
            conditions.stealShare = *stealBase->stealS / allS;
        }
    }
    if (allowedTimes && conditions.processCpuS) {
        const double other = std::max(0.0, allowedTimes->busyS - ownS) / wallS;
        conditions.otherCpusAllowed = other;
        if (usable && *usable > 0) {
            const double spare = *conditions.allowedCpus - *usable;
            conditions.otherShareOfWorkerCpus = std::clamp((other - spare) / *usable, 0.0, 1.0);
        }
    }
    return conditions;
}
