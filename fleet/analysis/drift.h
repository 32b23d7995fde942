#pragma once

// Drift of one host's scores in one test over time: the runs cut into segments of one
// configuration (CPU model, logical CPU count, corebench build), in each segment the change points
// where the score moved to a new level and stayed there, and the change of level the newest of
// them leave the host in while its newest runs still show it (its current drift). A new
// configuration starts a new segment and is never a drift. Pure functions: they never throw, and
// every number they return is finite but the ratio of a rise from a median of 0 PS, which is
// infinite.

#include <QDateTime>
#include <QString>
#include <optional>
#include <vector>

#include "record.h"

// One run of the test on the host, as drift detection needs it.
struct DriftRun {
    QDateTime startedAt;
    double score = 0;  // runs whose score is not a finite number of 0 or more are left out
    std::optional<QString> cpuModel;
    std::optional<int> logicalCpus;
    std::optional<QString> corebenchSha256;
};

struct DriftOptions {
    int window = 50;           // runs the change point search looks at together
    double maxPValue = 0.001;  // Student's t-test between the runs before and after
    double minChange = 0.02;   // |ratio - 1| at least this
    int minRuns = 3;           // runs at least on each side, so a change counts after 3 runs
};

enum class DriftDirection { Down, Up };

struct ChangePoint {
    int index = 0;       // of the first run after the change, within its series or segment
    QDateTime at;        // when that run started (empty when found on bare scores)
    int runsBefore = 0;  // runs the test compared on each side: those up to the neighbouring
    int runsAfter = 0;   // change points or the segment's ends, at most half a window each (for
                         // a current drift, those before its first change and since its latest)
    double medianBefore = 0;
    double medianAfter = 0;
    // The level after over the level before: 1 + medianPairwiseDifference(before, after) /
    // medianBefore, at least 0. Steadier than medianAfter / medianBefore, which it is close to.
    // From a median of 0, infinite for a rise and 1 otherwise.
    double ratio = 1;
    // The score that three quarters of the runs after it reach or stay below: the ceil(3k/4)-th
    // lowest of the k runs after it.
    double upperQuartileAfter = 0;
    double pValue = 1;
    DriftDirection direction = DriftDirection::Down;
};

struct DriftSegment {
    int firstRun = 0;  // position in the runs ordered by start, left-out runs not counted
    int runs = 0;
    QDateTime firstStartedAt;
    QDateTime lastStartedAt;
    std::optional<QString> cpuModel;
    std::optional<int> logicalCpus;
    std::optional<QString> corebenchSha256;  // the last one known in the segment
    std::vector<ChangePoint> changePoints;   // oldest first; index and at within the segment
    std::optional<ChangePoint> current;      // its current drift (currentChange)
};

// The change points of one series of scores in time order, oldest first; none when a score is not
// a finite number of 0 or more.
std::vector<ChangePoint> findChangePoints(const std::vector<double>& scores,
                                          const DriftOptions& options = {});

// The drift of the series now, from the changes found in it: the change from the level before the
// first change point among the newest `window` runs to the level since the latest one (an older
// change is history, not a current drift; a drop found in two steps, or a dip and the way back,
// count as their sum), indexed at that first change point. It must pass the tests of a change
// point, and of the runs since the latest change, split into an older and a newer half (the newer
// one takes an odd run), the newer half's median must still differ from the median before by
// minChange or more in the drift's direction and lie nearer the older half's median than the
// median before (a dip the series came back from is over).
std::optional<ChangePoint> currentChange(const std::vector<double>& scores,
                                         const std::vector<ChangePoint>& changes,
                                         const DriftOptions& options = {});

// The health check's DRIFT setting (check --drift FRACTION) drains a node whose current drift is a
// drop of at least kDrainShare * fraction (the ratio at most 1 - kDrainShare * fraction), with at
// least kDrainMinRuns runs after it of which three quarters each scored at least fraction / 2
// below the median before it. So DRIFT=X drains a node that lost X although the ratio it measures
// varies by run-to-run noise, spares one that lost 0.6 X, and is not drained by a few runs slowed
// by other work (scripts/bench-drift measures all three).
constexpr double kDrainShare = 0.8;
constexpr int kDrainMinRuns = 5;
bool drainsOnDrift(const ChangePoint& drift, double fraction);

// A record as a run of its host's series (a record without a score gets NaN, which orderedRuns
// leaves out; a score of 0 stays).
DriftRun driftRunOf(const Record& record);

// The runs with a score (isUsableScore), ordered by start (runs that started together keep their
// order).
std::vector<DriftRun> orderedRuns(std::vector<DriftRun> runs);

// Cuts runs ordered by start into segments of one configuration, oldest first, without change
// points (scores play no part). A segment ends where the CPU model or the logical CPU count
// changes, or where the corebench build differs from the last one known in the segment (a run
// that knows none matches any, so an import between two runs of one build or of two builds
// neither joins nor hides the change).
std::vector<DriftSegment> configurationSegments(const std::vector<DriftRun>& ordered);

// Whether two neighbouring runs, or a segment and its next run, are of one configuration: the same
// CPU model and logical CPU count, and the same corebench build unless either names none.
template <typename A, typename B>
bool sameConfiguration(const A& a, const B& b) {
    return a.cpuModel == b.cpuModel && a.logicalCpus == b.logicalCpus &&
           (!a.corebenchSha256 || !b.corebenchSha256 || *a.corebenchSha256 == *b.corebenchSha256);
}

// The segments of orderedRuns(runs), each with its change points and its current one.
std::vector<DriftSegment> driftSegments(std::vector<DriftRun> runs,
                                        const DriftOptions& options = {});

// The current drift of the newest segment: whether the host drifted since its current
// configuration began and is still off, and how.
std::optional<ChangePoint> currentDrift(const std::vector<DriftSegment>& segments);
