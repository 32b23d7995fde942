// How well drift detection does on simulated series of one host's scores: how often pure noise is
// flagged, how soon a planted drop is, and that a change of hardware never is. Fixed seeds, so
// every run of one build prints the same figures; exits 1 when a figure misses its target.
// A series is flagged when the latest change point of its current segment is a drop.

#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

#include "drift.h"

namespace {

constexpr int kSeries = 1000;
constexpr double kSigma = 0.02;  // run-to-run noise, relative to the level
constexpr int kMaxRunsAfter = 10;

struct Plan {
    double change = 0;         // relative change of the level after the planted point
    bool newCpuModel = false;  // the runs after it also name another CPU model
    int runsAfter = 0;
};

struct Outcome {
    bool flagged = false;
    bool atPlantedRun = false;  // the latest change point is exactly the first changed run
    bool cut = false;           // a new segment starts at the first changed run
    bool atChange = false;      // flagged for the planted change itself: the change point is the
                                // first changed run, or the runs it compares lie on both sides
};

Outcome simulate(std::mt19937_64& random, const Plan& plan) {
    std::uniform_int_distribution<int> runsBefore(20, 60);
    std::normal_distribution<double> noise(0, kSigma);
    const int before = runsBefore(random);
    std::vector<DriftRun> runs;
    const qint64 start = 1790000000;  // 2026, one run a day
    for (int i = 0; i < before + plan.runsAfter; ++i) {
        const bool after = i >= before;
        DriftRun run;
        run.startedAt = QDateTime::fromSecsSinceEpoch(start + i * 86400LL, Qt::UTC);
        run.score = 400 * (after ? 1 + plan.change : 1) * (1 + noise(random));
        run.cpuModel = after && plan.newCpuModel ? "Model B" : "Model A";
        run.logicalCpus = 64;
        runs.push_back(run);
    }
    const std::vector<DriftSegment> segments = driftSegments(runs);
    const std::optional<ChangePoint> latest = latestDrift(segments);
    Outcome outcome;
    outcome.flagged = latest && latest->direction == DriftDirection::Down;
    outcome.atPlantedRun =
        latest && plan.runsAfter > 0 && segments.size() == 1 && latest->index == before;
    outcome.cut = segments.size() == 2 && segments[1].firstRun == before;
    if (outcome.flagged && plan.runsAfter > 0) {
        const int at = segments.back().firstRun + latest->index;
        outcome.atChange =
            at == before || (at - latest->runsBefore < before && before < at + latest->runsAfter);
    }
    return outcome;
}

// Fraction of kSeries series flagged, of those at the planted run, of all cut there, and of all
// flagged for the planted change itself.
struct Rate {
    double flagged = 0;
    double atPlantedRun = 0;
    double cut = 0;
    double atChange = 0;
};

Rate rate(unsigned seed, const Plan& plan) {
    std::mt19937_64 random(seed);
    int flagged = 0;
    int exact = 0;
    int cut = 0;
    int atChange = 0;
    for (int s = 0; s < kSeries; ++s) {
        const Outcome outcome = simulate(random, plan);
        flagged += outcome.flagged;
        exact += outcome.flagged && outcome.atPlantedRun;
        cut += outcome.cut;
        atChange += outcome.atChange;
    }
    return {double(flagged) / kSeries, flagged ? double(exact) / flagged : 0, double(cut) / kSeries,
            double(atChange) / kSeries};
}

bool check(const char* what, double value, bool atMost, double target) {
    const bool met = atMost ? value <= target : value >= target;
    std::printf("  %-64s %6.1f %%  (target %s %.0f %%)  %s\n", what, 100 * value,
                atMost ? "<=" : ">=", 100 * target, met ? "met" : "MISSED");
    return met;
}

}  // namespace

int main() {
    std::printf("drift-bench: %d series per figure, noise sigma %.0f %%, 20 to 60 runs before\n",
                kSeries, 100 * kSigma);
    std::printf("  %-30s", "runs after the change:");
    for (int k = 1; k <= kMaxRunsAfter; ++k) {
        std::printf("%6d", k);
    }
    std::printf("\n");
    struct Row {
        const char* name;
        double change;
        bool newCpuModel;
    };
    const Row rows[] = {{"5 % drop, flagged (%)", -0.05, false},
                        {"10 % drop, flagged (%)", -0.10, false},
                        {"30 % drop, new CPU, noise (%)", -0.30, true},
                        {"30 % rise, new CPU, noise (%)", +0.30, true}};
    double table[4][kMaxRunsAfter + 1] = {};
    double exact[4][kMaxRunsAfter + 1] = {};
    double cut = 1;       // the fewest series of a new CPU model cut at the change
    double atChange = 0;  // the most flagged for the change of CPU model itself
    for (int r = 0; r < 4; ++r) {
        std::printf("  %-30s", rows[r].name);
        for (int k = 1; k <= kMaxRunsAfter; ++k) {
            const Rate found = rate(1000u * (r + 1) + k, {rows[r].change, rows[r].newCpuModel, k});
            table[r][k] = found.flagged;
            exact[r][k] = found.atPlantedRun;
            if (rows[r].newCpuModel) {
                // What is flagged there and not for the change itself is noise in the new,
                // short segment.
                cut = std::min(cut, found.cut);
                atChange = std::max(atChange, found.atChange);
                table[r][k] = found.flagged - found.atChange;
            }
            std::printf("%6.1f", 100 * table[r][k]);
        }
        std::printf("\n");
    }
    for (int r = 0; r < 2; ++r) {
        std::printf("  %-30s",
                    r == 0 ? "  5 %: found at the drop (%)" : " 10 %: found at the drop (%)");
        for (int k = 1; k <= kMaxRunsAfter; ++k) {
            std::printf("%6.1f", 100 * exact[r][k]);
        }
        std::printf("\n");
    }

    const Rate noise = rate(7, {0, false, 0});
    double newSegmentNoise = 0;
    for (int k = 1; k <= kMaxRunsAfter; ++k) {
        newSegmentNoise = std::max({newSegmentNoise, table[2][k], table[3][k]});
    }
    bool met = true;
    met &= check("pure noise, 20 to 60 runs, flagged", noise.flagged, true, 0.02);
    met &= check("5 % drop, 6 runs after it, flagged", table[0][6], false, 0.90);
    met &= check("10 % drop, 3 runs after it, flagged", table[1][3], false, 0.97);
    met &= check("30 % change with a new CPU model, cut there (fewest)", cut, false, 1.0);
    met &= check("30 % change with a new CPU model, flagged at the change (most)", atChange, true,
                 0.0);
    // Flags inside the new segment are noise false positives, like those of pure noise above.
    std::printf("  %-64s %6.1f %%  (noise false positives; pure noise: %.1f %%)\n",
                "new CPU model: noise flagged inside the new segment (most)", 100 * newSegmentNoise,
                100 * noise.flagged);
    return met ? 0 : 1;
}
