// The baseline: which of a node's earlier runs count, and their median.

#include "baseline.h"

#include <gtest/gtest.h>

namespace {

TEST(Baseline, MedianOfTheEarlierRunsOfTheSameConfiguration) {
    // Earlier runs, oldest first, as configuration and score: a is the latest run's (CPU A, 8
    // CPUs, build s1), n a's of an unknown build, b CPU B, c 16 CPUs, o build s0, t another test,
    // l a later run, d a's disturbed; score -: none (a score of 0 is a score).
    const std::pair<const char*, std::optional<double>> cases[] = {
        {"a10 a20", std::nullopt},
        {"a10 a- a20", std::nullopt},
        {"a10 a0 a20", 10},
        {"a30 a10 a20", 20},
        {"a10 a40 a20 a30", 25},
        {"a10 a20 l1 t5", std::nullopt},
        {"n10 n20 n30", 20},
        {"a10 a10 a10 b99 a20 a30", std::nullopt},
        {"c99 o99 a10 a20 n40", 20},
        {"a10 d99 a20 d99 a30", 20},
        // The newest 20 are 6..25; 21 or 19 runs would give 15 or 16.
        {"a1 a2 a3 a4 a5 a6 a7 a8 a9 a10 a11 a12 a13 a14 a15 a16 a17 a18 a19 a20 a21 a22 a23 a24 "
         "a25",
         15.5},
    };
    const auto run = [](QChar kind, const QString& ps, int hour) {
        Record r;
        r.host = "node1";
        r.test = kind == 't' ? "Single" : "All";
        r.startedAt = QDateTime::fromSecsSinceEpoch((kind == 'l' ? 200 : hour) * 3600, Qt::UTC);
        r.psResult = ps == "-" ? std::nullopt : std::optional<double>(ps.toDouble());
        r.cpuModel = kind == 'b' ? "B" : "A";
        r.logicalCpus = kind == 'c' ? 16 : 8;
        if (kind == 'd') {
            r.disturbed = QStringList{"steal 4.1% of the run"};
        }
        if (kind != 'n') {
            r.corebenchSha256 = kind == 'o' ? "s0" : "s1";
        }
        return r;
    };
    for (const auto& [runs, want] : cases) {
        // Newest first, then the latest run's own record, which keeps whole seconds of its start.
        std::vector<Record> records;
        const QStringList words = QString(runs).split(' ');
        for (int i = words.size() - 1; i >= 0; --i) {
            records.push_back(run(words[i][0], words[i].mid(1), i + 1));
        }
        records.push_back(run('a', "5", 100));
        Record latest = records.back();
        latest.startedAt = latest.startedAt.addMSecs(500);
        EXPECT_EQ(baselineScore(latest, records), want) << runs;
    }
}

// What run and import export as corebench_drift_ratio: the current drift of the latest run and
// those of its host and test before it, when it is a drop; 1 otherwise; a disturbed latest run
// left out. Beside them, always, 3 runs
// of another test and 3 later runs, all at 10 PS.
TEST(Baseline, DriftRatioOfTheRunsUpToTheLatest) {
    const struct {
        int runs;      // before the latest, one an hour: 20 at 100 PS, then at the latest's score
        double score;  // of the latest
        double ratio;
        bool disturbed = false;  // the latest: it is left out, the runs before it decide
    } table[] = {
        {0, 100, 1},   {20, 100, 1},      {22, 90, 0.9},       {21, 90, 1},       {22, 110, 1},
        {30, 90, 0.9}, {22, 90, 1, true}, {23, 90, 0.9, true}, {0, 100, 1, true},
    };
    for (const auto& row : table) {
        std::vector<Record> records;
        const auto add = [&](double ps, int hour, const char* test = "All") {
            Record r;
            r.host = "node1";
            r.test = test;
            r.startedAt = QDateTime::fromSecsSinceEpoch(hour * 3600, Qt::UTC);
            r.psResult = ps;
            records.push_back(r);
        };
        for (int i = 0; i < row.runs; ++i) {
            add(i < 20 ? 100 : row.score, i);
        }
        add(row.score, row.runs);
        if (row.disturbed) {
            records.back().disturbed = QStringList{"steal 4.1% of the run"};
        }
        const Record latest = records.back();
        for (int i = 1; i <= 3; ++i) {
            add(10, row.runs - i, "Single");
            add(10, row.runs + i);
        }
        EXPECT_DOUBLE_EQ(driftRatio(latest, records), row.ratio) << row.runs << " " << row.score;
    }
}

}  // namespace
