#include "node_load.h"

#include <cstdio>

namespace {

// The kernel writes the averages with two decimals; the product of the limit and the CPUs can
// come out a rounding below the decimal figure it stands for (0.29 × 100 < 29).
constexpr double kRounding = 1e-9;

}  // namespace

IdleVerdict idleVerdict(const NodeLoad& load, double maxLoadPerCpu) {
    IdleVerdict verdict;
    if (!load.load1 || !load.load5 || !load.cpus || *load.cpus < 1) {
        verdict.text = !load.cpus || *load.cpus < 1
                           ? "cannot tell whether the node is idle: no count of its CPUs"
                           : "cannot tell whether the node is idle: no load average";
        return verdict;
    }
    const double limit = maxLoadPerCpu * *load.cpus;
    verdict.idle = *load.load1 <= limit + kRounding && *load.load5 <= limit + kRounding;
    char text[200];
    snprintf(text, sizeof(text),
             "%s: load %.2f over 1 min and %.2f over 5 min on %d CPUs, %s %.2f (%.2f per CPU)",
             *verdict.idle ? "idle" : "busy", *load.load1, *load.load5, *load.cpus,
             *verdict.idle ? "at most" : "above", limit, maxLoadPerCpu);
    verdict.text = text;
    return verdict;
}
