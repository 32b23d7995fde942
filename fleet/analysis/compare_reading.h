#pragma once

// How far back compare reads a host's records of a test, newest first by their names: as far as
// its verdicts look and no further, so that a sweep costs the same after years of records.

#include <optional>
#include <vector>

#include "drift.h"
#include "record.h"

// The runs of the current configuration that compare gives drift detection, and so judges a
// host's drift on: drift's window of 50 runs and 10 before it, the shortest history that
// scripts/bench-drift measures the goals on (noise seldom flagged, drops found, a recovered dip
// spared, DRIFT=X as calibrated), and which it measures them on as compare sees a long history. A
// drift that began 35 to 50 runs back has fewer than the 25 runs before it that the whole history
// gives it, so its ratio may come out otherwise (bench-drift prints how often). compare reads
// these same 60 whether a host has 60 runs or 1,000, which keeps its cost from growing with the
// years; `history` reads all.
constexpr int kCompareDriftRuns = 60;

// Whether compare needs a host's records of a test older than those read, newest first
// (NeedsOlder, record_files.h); one object for each host and test, given one record more each
// time. It needs them until it has read
// - an undisturbed run, the one judged, however far back;
// - kCvRuns undisturbed runs with a score, for cv;
// - kCompareDriftRuns undisturbed runs with a score in the newest one's configuration, or one in
//   another (before the current configuration began: a CPU model or logical CPU count other than
//   the newest's, or a corebench build other than the next newer one known).
class CompareReading {
  public:
    bool operator()(const std::vector<LoadedRecord>& newestFirst);

  private:
    void add(const Record& record);

    size_t seen_ = 0;
    bool judged_ = false;
    int scored_ = 0;
    bool began_ = false;  // a run of another configuration was read
    // The newest scored run's configuration, with the corebench build of the nearest newer run
    // that names one, as configurationSegments follows it.
    std::optional<DriftRun> configuration_;
};
