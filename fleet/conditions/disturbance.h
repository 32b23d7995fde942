#pragma once

// Whether a run was disturbed, and by what: the causes in words, from the run's conditions.

#include <optional>
#include <string>
#include <vector>

#include "run_conditions.h"

// The limits of a clean run. A score falls about in proportion to the CPU time its workers lose,
// so each limit is the loss a score may carry unmarked; scripts/bench-disturbed measures how the
// figures fall on this machine with and without a busy loop beside the benchmark.
//
// A hypervisor's steal is time the benchmark's virtual CPUs did not run at all.
constexpr double kMaxStealShare = 0.02;
// Other work on the benchmark's CPUs beyond those its workers left free.
constexpr double kMaxOtherShareOfWorkerCpus = 0.10;
// Time the workers were ready to run but waited for a CPU.
constexpr double kMaxWaitShare = 0.10;
// The benchmark's own CPU time against its workers' CPUs: lower than the other figures' limits,
// as it also counts the benchmark's own pauses (SingleSpeed waits 0.45 s before its worker
// measures, about a tenth of a quick run).
constexpr double kMinCpuShare = 0.75;

// The causes, each a short sentence such as "other work used 0.52 of the worker's CPU" or
// "steal 4.1% of the run"; empty for a clean run; nothing when it is unknown: no figure of the
// benchmark's own CPUs is known, and no steal to name.
std::optional<std::vector<std::string>> disturbanceCauses(const RunConditions& conditions);
