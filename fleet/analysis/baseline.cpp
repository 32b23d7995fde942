#include "baseline.h"

#include <algorithm>
#include <iterator>

#include "drift.h"
#include "statistics.h"

namespace {

// The runs of latest's host and test among records that started before it, in start order.
std::vector<DriftRun> earlierRuns(const Record& latest, const std::vector<Record>& records) {
    std::vector<DriftRun> earlier;
    for (const Record& record : records) {
        // Records keep the start to the second: the latest run's own record, or another of the
        // same second, is not earlier.
        if (record.host == latest.host && record.test == latest.test && !isDisturbed(record) &&
            record.startedAt.toSecsSinceEpoch() < latest.startedAt.toSecsSinceEpoch()) {
            earlier.push_back(driftRunOf(record));
        }
    }
    return orderedRuns(std::move(earlier));
}

}  // namespace

std::optional<double> baselineScore(const Record& latest, const std::vector<Record>& records) {
    std::vector<DriftRun> runs = earlierRuns(latest, records);
    // The latest run goes last whatever its score: it names the configuration.
    runs.push_back(driftRunOf(latest));
    const DriftSegment current = configurationSegments(runs).back();
    const int count = std::min(current.runs - 1, kBaselineMaxRuns);
    if (count < kBaselineMinRuns) {
        return std::nullopt;
    }
    const auto last = runs.begin() + current.firstRun + current.runs - 1;
    std::vector<double> scores;
    std::transform(last - count, last, std::back_inserter(scores),
                   [](const DriftRun& run) { return run.score; });
    return median(std::move(scores));
}

double driftRatio(const Record& latest, const std::vector<Record>& records) {
    std::vector<DriftRun> runs = earlierRuns(latest, records);
    // A disturbed run measured the disturbance: the verdict is that of the runs before it.
    if (!isDisturbed(latest)) {
        runs.push_back(driftRunOf(latest));
    }
    if (runs.empty()) {
        return 1;
    }
    const std::optional<ChangePoint> drift = currentDrift(driftSegments(std::move(runs)));
    return drift && drift->direction == DriftDirection::Down ? drift->ratio : 1;
}
