#include <chrono>

#include "conditions_probe.h"

double ConditionsProbe::nowS() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

ConditionsWatch::ConditionsWatch(std::unique_ptr<ConditionsProbe> probe)
    : probe_(std::move(probe)) {
    snapshots_.before = probe_->machine();
    snapshots_.before.atS = probe_->nowS();
    sample();
}

void ConditionsWatch::sample() {
    if (std::optional<ProcessSnapshot> process = probe_->process()) {
        process->atS = probe_->nowS();
        mergeProcessSnapshot(&snapshots_.during, *process);
    }
}

RunConditions ConditionsWatch::finish(int workerThreadsHint) {
    // Windows still gives the ended process's times; on Linux it is gone and this adds nothing.
    sample();
    snapshots_.after = probe_->machine();
    snapshots_.after.atS = probe_->nowS();
    return runConditions(snapshots_, workerThreadsHint);
}
