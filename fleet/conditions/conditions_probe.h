#pragma once

// The seam between the conditions of a run and the operating system: one implementation per OS
// (conditions_probe_linux.cpp, conditions_probe_windows.cpp), which reads and converts and
// decides nothing; run_conditions.h does the arithmetic.

#include <cstdint>
#include <memory>
#include <optional>

#include "run_conditions.h"

class ConditionsProbe {
  public:
    virtual ~ConditionsProbe() = default;
    // The machine now. Linux gives every figure; Windows no per-CPU times, no steal and no load
    // average (it keeps none) and no children's times (the process's own stay readable instead).
    virtual MachineSnapshot machine() const = 0;
    // The watched process now; nothing once it cannot be read. Linux gives its threads' run and
    // wait times where the kernel keeps scheduler statistics; Windows its CPU time and affinity,
    // also after it ended.
    virtual std::optional<ProcessSnapshot> process() = 0;
    // A monotonic clock in seconds, which times the snapshots.
    virtual double nowS() const;
};

// This system's probe of the child process pid, made as soon as the child has started, before
// it is waited for.
std::unique_ptr<ConditionsProbe> systemConditionsProbe(int64_t pid);

// One run watched through a probe: what the caller of a benchmark does around it.
class ConditionsWatch {
  public:
    // Takes the machine's snapshot before the run.
    explicit ConditionsWatch(std::unique_ptr<ConditionsProbe> probe);
    // While the child runs, about once a second: threads that end between two samples keep
    // their figures of the earlier one.
    void sample();
    // Once the child has ended and been waited for; workerThreadsHint as for runConditions.
    RunConditions finish(int workerThreadsHint);
    const RunSnapshots& snapshots() const { return snapshots_; }

  private:
    std::unique_ptr<ConditionsProbe> probe_;
    RunSnapshots snapshots_;
};
