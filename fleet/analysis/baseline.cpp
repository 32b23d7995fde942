#include "baseline.h"

#include <algorithm>
#include <iterator>

#include "drift.h"
#include "statistics.h"

std::optional<double> baselineScore(const Record& latest, const std::vector<Record>& records) {
    std::vector<DriftRun> earlier;
    for (const Record& record : records) {
        // Records keep the start to the second: the latest run's own record, or another of the
        // same second, is not earlier.
        if (record.host == latest.host && record.test == latest.test &&
            record.startedAt.toSecsSinceEpoch() < latest.startedAt.toSecsSinceEpoch()) {
            earlier.push_back(driftRunOf(record));
        }
    }
    std::vector<DriftRun> runs = orderedRuns(std::move(earlier));
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
