#include "drift.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

#include "statistics.h"

// The method is E-Divisive means with a Student's t-test in place of its permutation test, in
// sliding windows, in two passes:
//
// 1. Candidates. The series is looked at in windows of `window` runs, half a window apart, the
//    last one ending at the newest run. In each window the split that maximises the energy
//    divergence between the runs before and after it (the q-hat statistic of E-Divisive with
//    alpha = 1) is a candidate when a t-test between the two sides gives p <= maxPValue, and each
//    side is split again the same way until a split fails.
// 2. Pruning. Every candidate is tested against its neighbours: the runs back to the previous
//    candidate and up to the next one (each side at most half a window, the runs nearest the
//    candidate), with all the thresholds: p <= maxPValue, a change of the level (the ratio) of at
//    least minChange, at least minRuns runs on each side. While any candidate fails, the weakest
//    one (the highest p-value) is dropped and its neighbours are tested again over the longer
//    stretch it leaves them. This also merges the candidates that overlapping windows found.
//
// The windows keep the cost at O(n * window) per series and keep an old, long series from
// smoothing over a recent change; a change with fewer than minRuns runs after it is a candidate at
// most, and waits for more runs.
//
// Every window is a fresh chance for noise to pass the tests, so the longer the history, the more
// likely its latest change point is one that noise made, long ago (in scripts/bench-drift, a drop
// in 3.2 % of series of 1,000 runs of pure noise, against 0.8 % of 60 runs). Only a change in the
// newest window can be current drift, which keeps false alarms at what one window of noise gives.

namespace {

// A split needs two runs on each side for E-Divisive's within-side distances. Pruning asks for
// minRuns; a candidate with fewer runs after it is dropped until more runs come, so a noiseless
// step is found at its real place once enough runs follow it (instead of one run early, with a
// run of the old level counted after it).
constexpr int kMinSplitSide = 2;

int windowOf(const DriftOptions& options) {
    return std::max(options.window, 2 * kMinSplitSide);
}

double medianOf(const double* first, int count) {
    return median(std::vector<double>(first, first + count));
}

// The split of x[lo, hi) with the largest E-Divisive q-hat (eDivisiveQHat), each side at least
// kMinSplitSide long; -1 when the range is too short. The pairwise sums are updated as the split
// moves one run to the right, so a range of n runs costs O(n^2).
int bestSplit(const std::vector<double>& x, int lo, int hi) {
    if (hi - lo < 2 * kMinSplitSide) {
        return -1;
    }
    const int first = lo + kMinSplitSide;
    SplitDistances sums = splitDistances(x, lo, first, hi);
    int best = -1;
    double bestQ = 0;
    for (int split = first; split <= hi - kMinSplitSide; ++split) {
        const double q = eDivisiveQHat(sums, split - lo, hi - split);
        if (best < 0 || q > bestQ) {
            best = split;
            bestQ = q;
        }
        if (split == hi - kMinSplitSide) {
            break;
        }
        // Move x[split] from the runs after to the runs before.
        double toBefore = 0;
        double toAfter = 0;
        for (int i = lo; i < split; ++i) {
            toBefore += std::fabs(x[i] - x[split]);
        }
        for (int j = split + 1; j < hi; ++j) {
            toAfter += std::fabs(x[split] - x[j]);
        }
        sums.withinBefore += toBefore;
        sums.withinAfter -= toAfter;
        sums.across += toAfter - toBefore;
    }
    return best;
}

// Candidates need the strict p-value too: a looser one (0.01 or 0.05, to keep changes that a larger
// one hides within a window) found no more of the simulated drops and let more noise through in
// long series.
void collectCandidates(const std::vector<double>& x, int lo, int hi, double maxPValue,
                       std::vector<int>* out) {
    const int split = bestSplit(x, lo, hi);
    if (split < 0 ||
        tTestPValue(std::vector<double>(x.begin() + lo, x.begin() + split),
                    std::vector<double>(x.begin() + split, x.begin() + hi)) > maxPValue) {
        return;
    }
    out->push_back(split);
    collectCandidates(x, lo, split, maxPValue, out);
    collectCandidates(x, split, hi, maxPValue, out);
}

// The change from the runs x[begin, at) to the runs x[from, end), from >= at: the change point's
// index is at, the first run of the change.
ChangePoint measureSides(const std::vector<double>& x, int begin, int at, int from, int end) {
    ChangePoint change;
    change.index = at;
    change.runsBefore = at - begin;
    change.runsAfter = end - from;
    if (change.runsBefore < 1 || change.runsAfter < 1) {
        return change;
    }
    const std::vector<double> before(x.begin() + begin, x.begin() + at);
    const std::vector<double> after(x.begin() + from, x.begin() + end);
    change.medianBefore = median(before);
    change.medianAfter = median(after);
    std::vector<double> sorted = after;
    std::sort(sorted.begin(), sorted.end());
    change.upperQuartileAfter = sorted[(3 * sorted.size() + 3) / 4 - 1];
    const double shift = medianPairwiseDifference(before, after);
    if (change.medianBefore > 0) {
        // A level cannot fall below 0.
        change.ratio = std::max(0.0, 1 + shift / change.medianBefore);
    } else {
        change.ratio = shift > 0 ? std::numeric_limits<double>::infinity() : 1;
    }
    change.pValue = tTestPValue(before, after);
    change.direction = change.ratio < 1 ? DriftDirection::Down : DriftDirection::Up;
    return change;
}

// The change at x[at] against the runs from `from` up to `to` (the neighbouring candidates or the
// series' ends), each side at most `side` runs, those nearest the change.
ChangePoint measure(const std::vector<double>& x, int from, int at, int to, int side) {
    return measureSides(x, std::max(from, at - side), at, at, std::min(to, at + side));
}

bool isSignificant(const ChangePoint& change, const DriftOptions& options) {
    return change.runsBefore >= options.minRuns && change.runsAfter >= options.minRuns &&
           change.pValue <= options.maxPValue && std::fabs(change.ratio - 1) >= options.minChange;
}

}  // namespace

std::vector<ChangePoint> findChangePoints(const std::vector<double>& scores,
                                          const DriftOptions& options) {
    if (!std::all_of(scores.begin(), scores.end(), isUsableScore)) {
        return {};
    }
    const int n = static_cast<int>(scores.size());
    const int window = windowOf(options);
    std::vector<int> candidates;
    for (int start = 0;; start += window / 2) {
        const int end = std::min(start + window, n);
        collectCandidates(scores, std::max(0, end - window), end, options.maxPValue, &candidates);
        if (end == n) {
            break;
        }
    }
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());

    const int side = window / 2;
    std::vector<ChangePoint> changes;
    for (;;) {
        changes.clear();
        int weakest = -1;
        for (size_t k = 0; k < candidates.size(); ++k) {
            const int from = k > 0 ? candidates[k - 1] : 0;
            const int to = k + 1 < candidates.size() ? candidates[k + 1] : n;
            changes.push_back(measure(scores, from, candidates[k], to, side));
            if (!isSignificant(changes.back(), options) &&
                (weakest < 0 || changes.back().pValue >= changes[weakest].pValue)) {
                weakest = static_cast<int>(k);
            }
        }
        if (weakest < 0) {
            return changes;
        }
        candidates.erase(candidates.begin() + weakest);
    }
}

DriftRun driftRunOf(const Record& record) {
    DriftRun run;
    run.startedAt = record.startedAt;
    run.score = record.psResult.value_or(std::numeric_limits<double>::quiet_NaN());
    run.cpuModel = record.cpuModel;
    run.logicalCpus = record.logicalCpus;
    run.corebenchSha256 = record.corebenchSha256;
    return run;
}

std::vector<DriftRun> orderedRuns(std::vector<DriftRun> runs) {
    runs.erase(std::remove_if(runs.begin(), runs.end(),
                              [](const DriftRun& run) { return !isUsableScore(run.score); }),
               runs.end());
    std::stable_sort(runs.begin(), runs.end(), [](const DriftRun& a, const DriftRun& b) {
        return a.startedAt < b.startedAt;
    });
    return runs;
}

std::vector<DriftSegment> configurationSegments(const std::vector<DriftRun>& ordered) {
    std::vector<DriftSegment> segments;
    for (size_t i = 0; i < ordered.size(); ++i) {
        const DriftRun& run = ordered[i];
        if (segments.empty() || !sameConfiguration(segments.back(), run)) {
            DriftSegment segment;
            segment.firstRun = static_cast<int>(i);
            segment.firstStartedAt = run.startedAt;
            segment.cpuModel = run.cpuModel;
            segment.logicalCpus = run.logicalCpus;
            segments.push_back(segment);
        }
        DriftSegment& segment = segments.back();
        ++segment.runs;
        segment.lastStartedAt = run.startedAt;
        if (run.corebenchSha256) {
            segment.corebenchSha256 = run.corebenchSha256;
        }
    }
    return segments;
}

std::vector<DriftSegment> driftSegments(std::vector<DriftRun> runs, const DriftOptions& options) {
    const std::vector<DriftRun> ordered = orderedRuns(std::move(runs));
    std::vector<DriftSegment> segments = configurationSegments(ordered);
    for (DriftSegment& segment : segments) {
        std::vector<double> scores;
        for (int i = segment.firstRun; i < segment.firstRun + segment.runs; ++i) {
            scores.push_back(ordered[i].score);
        }
        segment.changePoints = findChangePoints(scores, options);
        for (ChangePoint& change : segment.changePoints) {
            change.at = ordered[segment.firstRun + change.index].startedAt;
        }
        segment.current = currentChange(scores, segment.changePoints, options);
    }
    return segments;
}

std::optional<ChangePoint> currentChange(const std::vector<double>& scores,
                                         const std::vector<ChangePoint>& changes,
                                         const DriftOptions& options) {
    const int n = static_cast<int>(scores.size());
    auto recent = changes.begin();
    while (recent != changes.end() && n - recent->index > options.window) {
        ++recent;
    }
    if (recent == changes.end()) {
        return std::nullopt;
    }
    const int side = windowOf(options) / 2;
    const int latest = changes.back().index;
    const int from = recent == changes.begin() ? 0 : std::prev(recent)->index;
    ChangePoint drift = measureSides(scores, std::max(from, recent->index - side), recent->index,
                                     latest, std::min(n, latest + side));
    drift.at = recent->at;
    if (!isSignificant(drift, options)) {
        return std::nullopt;
    }
    const int after = n - latest;
    const int older = after / 2;
    if (older > 0) {
        const double early = medianOf(&scores[latest], older);
        const double now = medianOf(&scores[latest + older], after - older);
        const double before = drift.medianBefore;
        const bool stillOff = drift.direction == DriftDirection::Down
                                  ? now <= before * (1 - options.minChange)
                                  : now >= before * (1 + options.minChange);
        if (!stillOff || !(std::fabs(now - early) < std::fabs(now - before))) {
            return std::nullopt;
        }
    }
    return drift;
}

bool drainsOnDrift(const ChangePoint& drift, double fraction) {
    // A tiny allowance, so that a setting and a change of the same decimal value meet in binary.
    constexpr double kAllowance = 1e-9;
    return drift.direction == DriftDirection::Down && drift.runsAfter >= kDrainMinRuns &&
           drift.ratio <= 1 - kDrainShare * fraction + kAllowance &&
           drift.upperQuartileAfter <= drift.medianBefore * (1 - fraction / 2) + kAllowance;
}

std::optional<ChangePoint> currentDrift(const std::vector<DriftSegment>& segments) {
    return segments.empty() ? std::nullopt : segments.back().current;
}
