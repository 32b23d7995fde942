#include "drift.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

// Levels given as (runs, level) pieces; noise is relative, from mt19937 alone (whose sequence the
// standard fixes) as the sum of four uniforms, so every platform sees the same series.
std::vector<double> series(std::vector<std::pair<int, double>> pieces, double noise = 0,
                           unsigned seed = 12345) {
    std::mt19937 random(seed);
    std::vector<double> scores;
    for (const auto& [runs, level] : pieces) {
        for (int i = 0; i < runs; ++i) {
            double sum = 0;
            for (int u = 0; u < 4; ++u) {
                sum += random() / 4294967296.0 - 0.5;
            }
            scores.push_back(level * (1 + noise * sum * std::sqrt(3.0)));
        }
    }
    return scores;
}

struct Expected {
    int index;
    DriftDirection direction;
};

TEST(Drift, ChangePointsOfSeries) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        const char* name;
        std::vector<double> scores;
        std::vector<Expected> changes;
    } cases[] = {
        {"step down", series({{30, 100}, {5, 90}}), {{30, DriftDirection::Down}}},
        {"three runs after", series({{30, 100}, {3, 90}}), {{30, DriftDirection::Down}}},
        {"two runs after", series({{30, 100}, {2, 90}}), {}},
        {"noisy step up", series({{40, 100}, {6, 110}}, 0.02), {{40, DriftDirection::Up}}},
        {"down, then back up past a window",
         series({{30, 100}, {30, 90}, {10, 100}}, 0.02),
         {{30, DriftDirection::Down}, {60, DriftDirection::Up}}},
        {"noise", series({{60, 100}}, 0.02), {}},
        {"below the least change", series({{30, 100}, {10, 99}}), {}},
        {"constant", series({{40, 100}}), {}},
        {"empty", {}, {}},
        {"one run", {100}, {}},
        {"two runs", {100, 90}, {}},
        {"zero variance each side", series({{3, 100}, {3, 80}}), {{3, DriftDirection::Down}}},
        {"not finite", {nan, 100, nan, 100, 90, nan, 90, 90}, {}},
        {"down to 0 PS", series({{30, 100}, {3, 0}}, 0.02), {{30, DriftDirection::Down}}},
        {"up from 0 PS", series({{30, 0}, {3, 100}}, 0.02), {{30, DriftDirection::Up}}},
        // Candidates at 30 and 32 both fail, 2 runs apart; the weaker one (32, p 6e-7 against
        // 1e-20) is dropped first, and 30 then passes over the 8 runs after it. Dropping the
        // stronger one first would leave 32.
        {"two steps 2 runs apart",
         series({{30, 100}, {2, 90}, {6, 80}}, 0.005),
         {{30, DriftDirection::Down}}},
        // The window's best split (at 5) has p 0.004: no candidate. With a looser first pass, it
        // and its sides' splits would be, and pruning over other runs would keep two of them.
        {"noise, a split at p 0.004", series({{50, 100}}, 0.02, 9), {}},
        // The same runs on each side in both passes: p 0.0038, a ratio of 0.965.
        {"a step at p 0.004", series({{25, 100}, {4, 98.5}}, 0.02), {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<ChangePoint> found = findChangePoints(c.scores);
        ASSERT_EQ(found.size(), c.changes.size());
        for (size_t k = 0; k < found.size(); ++k) {
            EXPECT_EQ(found[k].index, c.changes[k].index);
            EXPECT_EQ(found[k].direction, c.changes[k].direction);
            EXPECT_LE(found[k].pValue, 0.001);
            EXPECT_GE(found[k].runsAfter, 3);
            EXPECT_GE(std::fabs(found[k].ratio - 1), 0.02);
        }
    }
    // The clean step in full: each side as far as half a window reaches.
    const ChangePoint step = findChangePoints(series({{30, 100}, {5, 90}})).at(0);
    EXPECT_EQ(step.runsBefore, 25);
    EXPECT_EQ(step.runsAfter, 5);
    EXPECT_DOUBLE_EQ(step.medianBefore, 100);
    EXPECT_DOUBLE_EQ(step.medianAfter, 90);
    EXPECT_DOUBLE_EQ(step.ratio, 0.9);
    EXPECT_DOUBLE_EQ(step.pValue, 0);
    // p alone keeps the step at p 0.004 out: it passes at a maximum of 0.01.
    DriftOptions looser;
    looser.maxPValue = 0.01;
    const std::vector<ChangePoint> weak =
        findChangePoints(series({{25, 100}, {4, 98.5}}, 0.02), looser);
    ASSERT_EQ(weak.size(), 1u);
    EXPECT_EQ(weak[0].index, 25);
    EXPECT_GT(weak[0].pValue, 0.001);
}

// The changes of the newest window, from the level before the first to the level since the
// latest, are the current drift while the newest runs still show them. Before it, 25 runs around
// 400 (spread 1 %); the runs after it are written out.
TEST(Drift, CurrentChangeOfSeries) {
    auto after = [](std::vector<double> tail) {
        std::vector<double> scores;
        for (int i = 0; i < 25; ++i) {
            scores.push_back(400 * (1 + 0.01 * ((i * 3) % 5 - 2) / 2));
        }
        scores.insert(scores.end(), tail.begin(), tail.end());
        return scores;
    };
    auto level = [&](int runs, double score) {
        std::vector<double> tail;
        for (int i = 0; i < runs; ++i) {
            tail.push_back(score * (1 + 0.01 * ((i * 2) % 5 - 2) / 2));
        }
        return after(tail);
    };
    const std::vector<double> dip = {363, 367, 362, 356};
    auto dipThen = [&](std::vector<double> since) {
        std::vector<double> tail = dip;
        tail.insert(tail.end(), since.begin(), since.end());
        return after(tail);
    };
    const struct {
        const char* name;
        std::vector<double> scores;
        int changes;   // change points found
        int current;   // index of the current one, -1 for none
        double ratio;  // its ratio
    } cases[] = {
        {"drop, 3 runs after", level(3, 360), 1, 25, 0.9},
        {"drop, 50 runs after: still in the newest window", level(50, 360), 1, 25, 0.9},
        {"drop, 51 runs after: history", level(51, 360), 1, -1, 0},
        {"3 % drop, the newer half back within 2 %",
         after({387, 388, 386, 387, 387, 393, 394, 393, 392, 393}), 1, -1, 0},
        {"dip, back since", dipThen({399, 368, 403, 399, 394, 402}), 1, -1, 0},
        {"dip, most of the way back", dipThen({389, 368, 391, 389, 384, 392}), 1, -1, 0},
        {"dip, the way back found", dipThen({400, 404, 398, 401, 399, 402}), 2, -1, 0},
        {"dip, part of the way back found: the rest", dipThen({389, 375, 391, 389, 384, 388}), 2,
         25, 0.9675},
        {"dip, still low", dipThen({369, 358, 363, 361, 364, 362}), 1, 25, 0.9063},
        {"drop in two steps", after({280, 282, 279, 281, 280, 268, 270, 267, 269, 268}), 2, 25,
         0.67},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<ChangePoint> found = findChangePoints(c.scores);
        ASSERT_EQ(found.size(), static_cast<size_t>(c.changes));
        EXPECT_EQ(found[0].index, 25);
        EXPECT_EQ(found[0].direction, DriftDirection::Down);
        const std::optional<ChangePoint> current = currentChange(c.scores, found);
        EXPECT_EQ(current ? current->index : -1, c.current);
        if (current) {
            EXPECT_NEAR(current->ratio, c.ratio, 0.00005);
        }
    }
    EXPECT_FALSE(currentChange({}, {}));
}

// DRIFT=X drains on a drop of 0.8 X, seen in 5 runs after it, three quarters of them X / 2 low.
TEST(Drift, DrainsOnDriftAtItsBounds) {
    ChangePoint drop;
    drop.direction = DriftDirection::Down;
    drop.runsAfter = 5;
    drop.medianBefore = 100;
    drop.ratio = 0.92;
    drop.upperQuartileAfter = 95;
    const struct {
        const char* name;
        void (*change)(ChangePoint&);
        double fraction;
        bool drains;
    } cases[] = {
        {"at every bound", [](ChangePoint&) {}, 0.1, true},
        {"a smaller setting", [](ChangePoint&) {}, 0.05, true},
        {"a drop just short of 0.8 X", [](ChangePoint& c) { c.ratio = 0.9201; }, 0.1, false},
        {"4 runs after", [](ChangePoint& c) { c.runsAfter = 4; }, 0.1, false},
        {"a quarter of the runs and one more above X / 2",
         [](ChangePoint& c) { c.upperQuartileAfter = 95.01; }, 0.1, false},
        {"a rise", [](ChangePoint& c) { c.direction = DriftDirection::Up; }, 0.1, false},
        {"0.05 in binary", [](ChangePoint& c) { c.ratio = 0.96, c.upperQuartileAfter = 97.5; },
         0.05, true},
    };
    for (const auto& c : cases) {
        ChangePoint drift = drop;
        c.change(drift);
        EXPECT_EQ(drainsOnDrift(drift, c.fraction), c.drains) << c.name;
    }
    // As measured, at DRIFT=0.2: 25 runs at 100, then 5 runs (median 83, a ratio of 0.83) of
    // which 4, three quarters rounded up, must be 90 or lower.
    for (const auto& [fourth, drains] : {std::pair{90.0, true}, std::pair{90.5, false}}) {
        std::vector<double> scores = series({{25, 100}});
        scores.insert(scores.end(), {80, 92, 82, fourth, 83});
        const std::optional<ChangePoint> drift = currentChange(scores, findChangePoints(scores));
        ASSERT_TRUE(drift);
        EXPECT_DOUBLE_EQ(drift->upperQuartileAfter, fourth);
        EXPECT_EQ(drainsOnDrift(*drift, 0.2), drains) << fourth;
    }
}

TEST(Drift, SegmentsEndWhereTheConfigurationChanges) {
    const struct {
        const char* name;
        void (*change)(DriftRun&);
        size_t segments;
    } cases[] = {
        {"cpu model", [](DriftRun& r) { r.cpuModel = "B"; }, 2},
        {"logical cpus", [](DriftRun& r) { r.logicalCpus = 32; }, 2},
        {"build", [](DriftRun& r) { r.corebenchSha256 = "bb"; }, 2},
        {"build unknown", [](DriftRun& r) { r.corebenchSha256.reset(); }, 1},
    };
    const qint64 day = 86400;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<DriftRun> runs;
        const std::vector<double> scores = series({{30, 100}, {4, 70}}, 0.02);
        for (size_t i = 0; i < scores.size(); ++i) {
            DriftRun run{QDateTime::fromSecsSinceEpoch(1790000000 + day * i, Qt::UTC), scores[i],
                         QString("A"), 64, QString("aa")};
            if (i >= 30) {
                c.change(run);
            }
            runs.insert(runs.begin(), run);  // newest first: the order is by start time
        }
        for (double bad : {std::numeric_limits<double>::infinity(), -1.0}) {
            runs.push_back(runs[0]);  // left out: no score to compare
            runs.back().score = bad;
        }

        const std::vector<DriftSegment> segments = driftSegments(runs);
        ASSERT_EQ(segments.size(), c.segments);
        const DriftSegment& last = segments.back();
        EXPECT_EQ(last.firstRun + last.runs, 34);
        EXPECT_EQ(last.lastStartedAt, runs[0].startedAt);
        const std::optional<ChangePoint> latest = currentDrift(segments);
        if (c.segments == 2) {
            EXPECT_EQ(last.firstRun, 30);
            EXPECT_EQ(segments[0].corebenchSha256, QString("aa"));
            EXPECT_FALSE(latest);
        } else {
            ASSERT_TRUE(latest);
            EXPECT_EQ(latest->index, 30);
            EXPECT_EQ(latest->at, runs[3].startedAt);
            EXPECT_EQ(latest->direction, DriftDirection::Down);
        }
    }
    EXPECT_FALSE(currentDrift(driftSegments({})));
}

}  // namespace
