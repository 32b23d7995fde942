#pragma once

// How far back compare reads a host's records of a test, newest first by their names: as far as
// its verdicts look and no further, so that a sweep costs the same after years of records.

#include <optional>
#include <vector>

#include "drift.h"
#include "record.h"

// The runs of the current configuration that compare gives drift detection: two of its windows
// (100 runs). A current drift begins among the newest window of runs, and the windows of runs
// that can find a change there, and the half window before it that its level before is measured
// on, all lie within the newest two (scripts/bench-drift: the same current drift as the whole
// history's in every simulated series, where one window and a half, 75 runs, gave another ratio in
// up to 1 % of them).
int compareDriftRuns(const DriftOptions& options = {});

// Whether compare needs a host's records of a test older than those read, newest first
// (NeedsOlder, record_files.h); one object for each host and test, given one record more each
// time. It needs them until it has read
// - an undisturbed run, the one judged, however far back;
// - kCvRuns undisturbed runs with a score, for cv;
// - compareDriftRuns() undisturbed runs with a score in the newest one's configuration, or one in
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
    bool newest_ = false;  // the newest scored run's configuration is known
    bool began_ = false;   // a run of another configuration was read
    std::optional<QString> cpuModel_;
    std::optional<int> logicalCpus_;
    std::optional<QString> build_;  // the corebench build of the nearest newer run that names one
};
