// How many nodes compare flags in a fleet of alike, healthy nodes whose runs were sometimes
// disturbed: once with the records' verdicts on their runs unknown (as before runs were judged),
// once with them. Every node is the same machine, so every flag is a false one.
//   disturbed-fleet < RUNS
// RUNS holds measured runs, one a line: "CONDITION MARKED PS ...", as scripts/bench-disturbed
// writes them (MARKED is 1 for a run the verdict found disturbed). The undisturbed runs of the
// simulation are drawn from the "idle" lines, the disturbed ones from the "worker-cpu" lines (a
// busy loop on the benchmark's CPU), each with its own score and verdict. Fixed seed.

#include <cstdio>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "compare_drift.h"
#include "fleet_compare.h"

namespace {

constexpr int kNodes = 100;
constexpr int kRunsPerNode = 30;  // a month of nightly sweeps
// Each run is disturbed with this chance (a render job that did not end, a backup)...
constexpr double kDisturbedShare = 0.10;
// ...and these nodes had a job running beside the benchmark for their last runs.
constexpr int kBusyNodes = 10;
constexpr int kBusyRuns = 5;

struct Run {
    bool marked = false;
    double ps = 0;
};

struct Flags {
    int group = 0;  // flagged against the group (score, robust z, slow core)
    int drift = 0;  // flagged for a drop in its own runs
};

Flags flaggedNodes(const std::vector<LoadedRecord>& records) {
    std::vector<CompareRow> rows = compareRecords(records, CompareOptions());
    Flags flags;
    for (const CompareRow& row : rows) {
        flags.group += row.flagged ? 1 : 0;
    }
    addDrift(hostHistories(records), &rows);
    for (const CompareRow& row : rows) {
        flags.drift += row.drift && row.drift->direction == DriftDirection::Down ? 1 : 0;
    }
    return flags;
}

}  // namespace

int main() {
    std::vector<Run> idle;
    std::vector<Run> busy;
    std::string condition;
    Run run;
    std::string rest;
    while (std::cin >> condition >> run.marked >> run.ps && std::getline(std::cin, rest)) {
        if (condition == "idle" && run.ps > 0) {
            idle.push_back(run);
        } else if (condition == "worker-cpu" && run.ps > 0) {
            busy.push_back(run);
        }
    }
    if (idle.empty() || busy.empty()) {
        fprintf(stderr, "disturbed-fleet: needs idle and worker-cpu runs with a score\n");
        return 2;
    }
    std::mt19937_64 random(24);
    std::uniform_int_distribution<size_t> pickIdle(0, idle.size() - 1);
    std::uniform_int_distribution<size_t> pickBusy(0, busy.size() - 1);
    std::bernoulli_distribution disturbed(kDisturbedShare);
    std::vector<LoadedRecord> withVerdict;
    int disturbedRuns = 0;
    int markedRuns = 0;
    for (int node = 0; node < kNodes; ++node) {
        for (int i = 0; i < kRunsPerNode; ++i) {
            const bool isBusy =
                disturbed(random) || (node < kBusyNodes && i >= kRunsPerNode - kBusyRuns);
            const Run& drawn = isBusy ? busy[pickBusy(random)] : idle[pickIdle(random)];
            disturbedRuns += isBusy ? 1 : 0;
            markedRuns += drawn.marked ? 1 : 0;
            LoadedRecord loaded;
            Record& record = loaded.record;
            record.host = QStringLiteral("node%1").arg(node, 3, 10, QLatin1Char('0'));
            record.test = QStringLiteral("SingleSpeed");
            record.startedAt = QDateTime::fromSecsSinceEpoch(1790000000 + i * 86400LL, Qt::UTC);
            record.psResult = drawn.ps;
            record.threadPs = {drawn.ps};
            record.cpuModel = QStringLiteral("Model A");
            record.logicalCpus = 2;
            record.disturbed = drawn.marked ? QStringList{QStringLiteral("marked")} : QStringList();
            loaded.file = record.host + QString::number(i);
            withVerdict.push_back(loaded);
        }
    }
    std::vector<LoadedRecord> withoutVerdict = withVerdict;
    for (LoadedRecord& loaded : withoutVerdict) {
        loaded.record.disturbed.reset();
    }
    const Flags before = flaggedNodes(withoutVerdict);
    const Flags after = flaggedNodes(withVerdict);
    printf(
        "%d alike nodes, %d runs each (%d measured idle and %d worker-cpu runs drawn from): "
        "%d runs disturbed (%.0f%% at random, the last %d of %d nodes), %d marked\n",
        kNodes, kRunsPerNode, static_cast<int>(idle.size()), static_cast<int>(busy.size()),
        disturbedRuns, kDisturbedShare * 100, kBusyRuns, kBusyNodes, markedRuns);
    printf("%-24s %8s %8s\n", "nodes flagged", "without", "with");
    printf("%-24s %8d %8d\n", "group comparison", before.group, after.group);
    printf("%-24s %8d %8d\n", "drift detection", before.drift, after.drift);
    return 0;
}
