#pragma once

// A node's baseline in a test: what its own earlier runs of the same configuration scored, for the
// node's latest score to be compared with (corebench_baseline_score_ps).

#include <optional>
#include <vector>

#include "record.h"

// Fewer earlier runs say too little about the node; more reach back past changes long made.
constexpr int kBaselineMinRuns = 3;
constexpr int kBaselineMaxRuns = 20;

// The median score of the runs among records of latest's host and test that started before latest,
// in its configuration as drift detection cuts them (CPU model, logical CPU count, corebench
// build where both runs know it; a change leaves out every run before it), the newest
// kBaselineMaxRuns of them. Records without a score and disturbed runs are left out; none with
// fewer than kBaselineMinRuns runs.
std::optional<double> baselineScore(const Record& latest, const std::vector<Record>& records);

// The ratio of the current drift (currentDrift, drift.h) of latest's host and test, from latest and
// the runs among records that started before it, when it is a drop; 1 when there is none, or a
// rise; a disturbed latest run is left out. The verdict compare gives on the host, for Prometheus
// (corebench_drift_ratio).
double driftRatio(const Record& latest, const std::vector<Record>& records);
