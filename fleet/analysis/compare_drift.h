#pragma once

// Drift in compare: each host's own history of each test, cut into segments with their change
// points, and the current drift of the newest segment added to the host's row.

#include <map>
#include <utility>
#include <vector>

#include "drift.h"
#include "fleet_compare.h"
#include "record.h"

// One host's scored runs of one test in start order (the order driftSegments uses, so a
// segment's firstRun indexes them) and their segments.
struct HostHistory {
    std::vector<DriftRun> runs;
    std::vector<DriftSegment> segments;
};

// Host and test.
using HistoryKey = std::pair<QString, QString>;

// Every host and test of the records, each looked at once; disturbed runs are left out.
std::map<HistoryKey, HostHistory> hostHistories(const std::vector<LoadedRecord>& records,
                                                const DriftOptions& options = {});

// Whether the newest segment has a change point among its newest options.window runs: a change
// recent enough to show even when it is no longer current (a dip the host came back from).
bool changedRecently(const HostHistory& history, const DriftOptions& options = {});

// Sets each row's drift to the current drift of its host's newest segment; a drop flags the
// row with a reason such as "drift: -6.1% since 2026-10-04 (p 0.0002)". A rise is only reported.
void addDrift(const std::map<HistoryKey, HostHistory>& histories, std::vector<CompareRow>* rows);

// "drift: -6.1% since 2026-10-04 (p 0.0002)"
QString driftReason(const ChangePoint& change);

// "p 0.0002", or "p < 0.0001" for smaller ones.
QString pValueText(double p);
