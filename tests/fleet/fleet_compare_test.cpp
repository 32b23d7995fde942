// Slow-node detection on planted fleets, and the three output formats.

#include "fleet_compare.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

#include "compare_drift.h"
#include "compare_format.h"
#include "fleet_summary.h"
#include "fleet_test_support.h"
#include "node_verdict.h"
#include "node_weights.h"

namespace {

LoadedRecord node(const QString& host, double ps, const QString& model = "EPYC 7543", int day = 1,
                  QVector<double> threads = {}) {
    LoadedRecord loaded;
    Record& r = loaded.record;
    r.host = host;
    r.test = QStringLiteral("All");
    r.startedAt = QDateTime(QDate(2026, 11, day), QTime(12, 0), Qt::UTC);
    r.psResult = ps;
    r.threadPs = threads.isEmpty() ? QVector<double>{ps / 2, ps / 2} : threads;
    r.cpuModel = model;
    r.logicalCpus = 2;
    loaded.file = QStringLiteral("/records/%1-%2.json").arg(host).arg(day);
    return loaded;
}

// node's record, disturbed by a busy loop beside the benchmark.
LoadedRecord disturbedNode(const QString& host, double ps, int day) {
    LoadedRecord loaded = node(host, ps, "EPYC 7543", day);
    loaded.record.disturbed = QStringList{"other work used 0.52 of the worker's CPU"};
    return loaded;
}

// node's record of a run whose power settings held the clock down.
LoadedRecord powersaveNode(const QString& host, double ps) {
    LoadedRecord loaded = node(host, ps);
    loaded.record.conditions = RecordConditions();
    loaded.record.conditions->likelyCauses << "governor powersave holds the clock at its lowest "
                                              "on CPUs 0-1";
    loaded.record.disturbed = QStringList();
    return loaded;
}

const CompareRow& rowOf(const std::vector<CompareRow>& rows, const QString& host,
                        const char* test = "All") {
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const CompareRow& r) {
        return r.host == host && r.test == QLatin1String(test);
    });
    EXPECT_TRUE(row != rows.end()) << "no row for " << host.toStdString();
    return row != rows.end() ? *row : rows.front();
}

TEST(FleetCompare, FlagsPlantedSlowNodesAndASlowCore) {
    std::vector<LoadedRecord> records;
    for (const double ps : {100.0, 101.0, 99.5, 100.5, 98.9, 100.2, 101.3, 99.8}) {
        records.push_back(node(QStringLiteral("n%1").arg(records.size()), ps));
    }
    records.push_back(node("zslow", 95.0));  // 5 % down: far outside this tight group's spread
    records.push_back(node("throttled", 80.0));
    records.push_back(node("onecore", 99.9, "EPYC 7543", 1, {25.0, 25.2, 20.0, 25.0}));
    records.push_back(node("single", 99.9, "EPYC 7543", 1, {99.9}));
    const std::vector<CompareRow> rows = compareRecords(records, CompareOptions());
    ASSERT_EQ(rows.size(), 12u);
    // Sorted by score within the group, the slowest first; above the floor only z flags.
    EXPECT_EQ(rows[0].host, QStringLiteral("throttled"));
    ASSERT_EQ(rows[0].reasons.size(), 2);
    EXPECT_TRUE(rows[0].reasons[1].contains(QLatin1String("of the group median (floor 0.9)")));
    EXPECT_DOUBLE_EQ(*rows[0].groupMedian, 99.9);
    EXPECT_DOUBLE_EQ(*rows[0].ratio, 80.0 / 99.9);
    EXPECT_EQ(rows[1].host, QStringLiteral("zslow"));
    ASSERT_EQ(rows[1].reasons.size(), 1);
    EXPECT_TRUE(rows[1].reasons[0].startsWith(QLatin1String("robust z")));
    EXPECT_LT(*rows[1].robustZ, -3.5);
    const CompareRow& slowCore = rowOf(rows, "onecore");
    EXPECT_EQ(slowCore.reasons,
              QStringList{"slow core: thread 2 at 0.800 of the median thread (floor 0.9)"});
    EXPECT_DOUBLE_EQ(*slowCore.minThreadPs, 20.0);
    EXPECT_DOUBLE_EQ(*slowCore.medianThreadPs, 25.0);
    for (const CompareRow& row : rows) {
        EXPECT_EQ(row.flagged, !row.reasons.isEmpty()) << row.host.toStdString();
        EXPECT_EQ(row.flagged,
                  row.host == "throttled" || row.host == "zslow" || row.host == "onecore")
            << row.host.toStdString();
    }
}

TEST(FleetCompare, MadOfZeroSmallGroupsAndNoScoreLeaveTheFloorToJudge) {
    // Groups are (CPU model, logical CPUs, test). In the first more than half share one score, so
    // the MAD is 0 and z undefined, and one record has no score; then a group of one and of two.
    std::vector<LoadedRecord> records{node("a", 100.0),
                                      node("b", 100.0),
                                      node("c", 100.0),
                                      node("d", 99.0),
                                      node("e", 85.0),
                                      node("noscore", 0.0),
                                      node("alone", 50.0, "Xeon Gold 6338"),
                                      node("pair-a", 100.0, "EPYC 9654"),
                                      node("pair-b", 80.0, "EPYC 9654")};
    records[5].record.psResult.reset();
    records[5].record.threadPs.clear();
    const std::vector<CompareRow> rows = compareRecords(records, CompareOptions());
    for (const CompareRow& row : rows) {
        EXPECT_FALSE(row.robustZ) << row.host.toStdString();
        // 85 of 100 and 80 of 90 are below the floor.
        EXPECT_EQ(row.flagged, row.host == "e" || row.host == "pair-b") << row.host.toStdString();
    }
    EXPECT_EQ(rows[5].host, QStringLiteral("noscore")) << "listed after its group, not judged";
    EXPECT_FALSE(rows[5].groupMedian);
    EXPECT_DOUBLE_EQ(*rows[0].groupMedian, 100.0);  // the middle five, the unscored left out
    EXPECT_DOUBLE_EQ(*rowOf(rows, "alone").groupMedian, 50.0);
    EXPECT_DOUBLE_EQ(*rowOf(rows, "pair-b").groupMedian, 90.0);
    CompareOptions loose;
    loose.floor = 0.85;
    EXPECT_FALSE(rowOf(compareRecords(records, loose), "pair-b").flagged);
}

TEST(FleetCompare, NewestRecordPerHostAndTestAndItsVariation) {
    std::vector<LoadedRecord> records{node("a", 90.0, "EPYC", 3), node("a", 100.0, "EPYC", 1),
                                      node("a", 110.0, "EPYC", 2), node("b", 100.0, "EPYC", 1),
                                      node("a", 10.0, "EPYC", 4)};
    records.back().record.test = QStringLiteral("SingleSpeed");
    const std::vector<CompareRow> rows = compareRecords(records, CompareOptions());
    ASSERT_EQ(rows.size(), 3u);
    const CompareRow& all = rowOf(rows, "a");
    EXPECT_DOUBLE_EQ(*all.psResult, 90.0);  // the newest, not the last read
    EXPECT_EQ(all.records, 3);
    EXPECT_EQ(all.file, QStringLiteral("/records/a-3.json"));
    ASSERT_TRUE(all.cv);
    EXPECT_NEAR(*all.cv, 10.0 / 100.0, 1e-12);  // sample standard deviation 10 over mean 100
    EXPECT_FALSE(rowOf(rows, "b").cv) << "one record has no variation";
    EXPECT_DOUBLE_EQ(*rowOf(rows, "a", "SingleSpeed").psResult, 10.0);
}

// A disturbed run is shown, not judged: the host is judged on its newest undisturbed run, the
// group and the drift go without disturbed runs, a flagged node comes with its likely cause.
TEST(FleetCompare, JudgesTheNewestUndisturbedRunAndShowsTheNewest) {
    std::vector<LoadedRecord> records{node("a", 100.0),
                                      node("b", 101.0),
                                      node("c", 99.0),
                                      node("busy", 100.5),
                                      disturbedNode("busy", 50.0, 2),
                                      disturbedNode("onlybusy", 40.0, 2),
                                      powersaveNode("slow", 80)};
    // drifty: 40 runs at 100, then 5 disturbed at 50.
    for (int i = 0; i < 45; ++i) {
        records.push_back(i < 40 ? node("drifty", 100 + (i % 2 ? 0.5 : -0.5))
                                 : disturbedNode("drifty", 50, 1));
        records.back().record.startedAt = records.back().record.startedAt.addSecs(3600 * i);
    }
    std::vector<GroupStats> groups;
    std::vector<CompareRow> rows = compareRecords(records, CompareOptions(), &groups);
    addDrift(hostHistories(records), &rows);
    ASSERT_EQ(groups.size(), 1u);
    EXPECT_EQ(groups[0].members.size(), 6);      // not onlybusy
    EXPECT_DOUBLE_EQ(groups[0].median, 100.25);  // 89.5 with the disturbed scores
    const CompareRow& busy = rowOf(rows, "busy");
    EXPECT_EQ(busy.psResult, 100.5);
    EXPECT_FALSE(busy.flagged);
    EXPECT_FALSE(busy.disturbed);
    EXPECT_EQ(busy.records, 2);
    EXPECT_FALSE(busy.cv) << "a disturbed score is no variation of the node";
    EXPECT_EQ(busy.newestDisturbedAt, QDateTime(QDate(2026, 11, 2), QTime(12, 0), Qt::UTC));
    const CompareRow& onlyBusy = rowOf(rows, "onlybusy");
    EXPECT_TRUE(onlyBusy.disturbed);
    EXPECT_FALSE(onlyBusy.flagged);
    EXPECT_FALSE(onlyBusy.groupMedian);
    const CompareRow& drifty = rowOf(rows, "drifty");
    EXPECT_FALSE(drifty.flagged);
    EXPECT_FALSE(drifty.drift);
    const CompareRow& slow = rowOf(rows, "slow");
    EXPECT_TRUE(slow.flagged);

    const QStringList csv = QString::fromUtf8(formatCompareCsv(rows)).split('\n');
    const auto line = [&](const char* host) {
        return csv.filter(QRegularExpression(QStringLiteral("^%1,").arg(host))).value(0);
    };
    EXPECT_TRUE(
        line("busy").endsWith(",2026-11-02T12:00:00Z: other work used 0.52 of the worker's CPU,"));
    EXPECT_TRUE(
        line("slow").endsWith(",,governor powersave holds the clock at its lowest on CPUs 0-1"));
    // Only a flagged node has a likely cause to show.
    rows = compareRecords({node("a", 100.0), node("b", 101.0), powersaveNode("slow", 99)},
                          CompareOptions());
    EXPECT_TRUE(QString::fromUtf8(formatCompareCsv(rows)).contains(",99.000,"));
    EXPECT_FALSE(QString::fromUtf8(formatCompareCsv(rows)).contains("powersave"));
    // A clock under load well below the group's is a likely cause too.
    std::vector<LoadedRecord> clocked{node("a", 100), node("b", 101), node("c", 99),
                                      node("hot", 80)};
    for (LoadedRecord& loaded : clocked) {
        loaded.record.mhzCurrent = loaded.record.host == "hot" ? 2400 : 3000;
    }
    rows = compareRecords(clocked, CompareOptions());
    EXPECT_EQ(
        rowOf(rows, "hot").likelyCauses,
        QStringList{"the clock under load, 2400 MHz, is 0.80 of its group's median 3000 MHz"});
    EXPECT_TRUE(rowOf(rows, "a").likelyCauses.isEmpty());
}

TEST(NodeWeights, GoByTheNewestUndisturbedRun) {
    const Weighing weighing = weighNodes(
        {node("a", 100), disturbedNode("a", 10, 2), node("b", 50), disturbedNode("c", 200, 2)},
        "All", std::nullopt);
    ASSERT_EQ(weighing.nodes.size(), 2u);
    EXPECT_EQ(weighing.nodes[0].host, "a");
    EXPECT_EQ(weighing.nodes[1].weight, 200);
    EXPECT_EQ(weighing.skipped, QStringList{"c: every run of it was disturbed"});
}

std::vector<CompareRow> formatted() {
    const QString model = QStringLiteral("AMD EPYC 7543 32-Core, \"B\" stepping");
    return compareRecords({node("n1", 100.0, model), node("n2", 70.0, model)}, CompareOptions());
}

TEST(CompareFormat, CsvColumnsAndQuoting) {
    const QStringList lines = QString::fromUtf8(formatCompareCsv(formatted())).split('\n');
    ASSERT_EQ(lines.size(), 4);
    EXPECT_EQ(lines[0], QStringLiteral("host,test,started_at,flagged,reason,ps_result,group_median,"
                                       "ratio,robust_z,min_thread_ps,median_thread_ps,cv,records,"
                                       "logical_cpus,cpu_model,file,drift_at,drift_median_before,"
                                       "drift_median_after,drift_ratio,drift_p,newest_disturbed,"
                                       "likely_cause"));
    EXPECT_EQ(
        lines[1],
        QStringLiteral("n2,All,2026-11-01T12:00:00Z,yes,score at 0.824 of the group median "
                       "(floor 0.9),70.000,85.000,0.824,,35.000,35.000,,1,2,"
                       "\"AMD EPYC 7543 32-Core, \"\"B\"\" stepping\",/records/n2-1.json,,,,,,,"));
    EXPECT_TRUE(lines[2].startsWith(QLatin1String("n1,All,2026-11-01T12:00:00Z,no,,100.000,")));
    EXPECT_TRUE(lines[3].isEmpty());
}

TEST(CompareFormat, JsonAndTableCarryTheSameColumns) {
    const QJsonObject first =
        QJsonDocument::fromJson(formatCompareJson(formatted()))["rows"][0].toObject();
    EXPECT_EQ(first.size(), 23);
    expectJsonHas(first, R"json({"host": "n2", "test": "All", "started_at": "2026-11-01T12:00:00Z",
        "flagged": true, "reason": "score at 0.824 of the group median (floor 0.9)",
        "ps_result": 70, "group_median": 85, "ratio": 0.824, "robust_z": null,
        "min_thread_ps": 35, "median_thread_ps": 35, "cv": null, "records": 1, "logical_cpus": 2,
        "cpu_model": "AMD EPYC 7543 32-Core, \"B\" stepping", "file": "/records/n2-1.json",
        "drift_at": null, "drift_median_before": null, "drift_median_after": null,
        "drift_ratio": null, "drift_p": null, "newest_disturbed": null,
        "likely_causes": []})json");

    // Aligned: every column starts at the same place on every line; an empty reason shows as -.
    const QStringList table = QString::fromUtf8(formatCompareTable(formatted())).split('\n');
    ASSERT_EQ(table.size(), 4);
    EXPECT_TRUE(table[0].startsWith("host  test  started_at            flagged  reason"));
    const int psColumn = table[0].indexOf(QLatin1String("ps_result"));
    EXPECT_EQ(table[1].mid(psColumn, 6), QStringLiteral("70.000"));
    EXPECT_EQ(table[2].mid(psColumn, 7), QStringLiteral("100.000"));
    EXPECT_GT(table[2].indexOf(QLatin1String(" - ")), 0);
}

// What compare writes for fleet, read back as check reads it (through its JSON).
struct Compared {
    std::vector<CompareRow> rows;
    std::vector<GroupStats> groups;
    std::optional<FleetSummary> summary;
};

Compared compareThroughJson(const std::vector<LoadedRecord>& fleet) {
    Compared compared;
    compared.rows = compareRecords(fleet, CompareOptions(), &compared.groups);
    QString error;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    compared.summary = summaryFromJson(
        summaryToJson(compared.rows, compared.groups, CompareOptions(), "/records", now), now,
        &error);
    EXPECT_TRUE(compared.summary) << error.toStdString();
    return compared;
}

}  // namespace

// check's decision for one node, from the summary as compare writes it (through its JSON) and the
// node's own records.
TEST(NodeVerdict, DecidesFromTheSummaryAndNewerOwnRecords) {
    // n3 also has a stale record of "all", a group of its own, which must not stand for "All".
    LoadedRecord staleAll = node("n3", 10);
    staleAll.record.test = QStringLiteral("all");
    staleAll.record.startedAt = staleAll.record.startedAt.addDays(-1);
    std::vector<LoadedRecord> fleet{
        node("n1", 100), node("n2", 101),         node("n3", 99), node("n4", 100),
        node("n5", 102), powersaveNode("n6", 60), staleAll,       disturbedNode("nY", 10, 2)};
    for (LoadedRecord& loaded : fleet) {
        loaded.record.mhzCurrent = 3000;
    }
    const LoadedRecord n6 = fleet[5];
    const Compared compared = compareThroughJson(fleet);
    ASSERT_TRUE(compared.summary);
    LoadedRecord stranger = node("n2", 10, "EPYC 7543", 5);
    LoadedRecord single = node("nX", 20);
    single.record.test = QStringLiteral("SingleSpeed");
    const auto later = [](const char* host, double ps, const char* model = "EPYC 7543") {
        return node(host, ps, model, 2);
    };
    const qint64 kDays3 = 3 * 86400;
    const QDateTime now(QDate(2026, 11, 10), QTime(0, 0), Qt::UTC);
    struct Row {
        const char* host;
        const char* test;
        std::vector<LoadedRecord> own;
        std::optional<double> floor;
        std::optional<qint64> maxAgeS;
        const char* line;             // the start of the line
        const char* cause = nullptr;  // the likely cause a drain ends with
    };
    const char* const powersave = "governor powersave holds the clock at its lowest on CPUs 0-1";
    // n1's clock under load fell to two thirds of its group's.
    LoadedRecord hot = later("n1", 60);
    hot.record.mhzCurrent = 2000;
    const Row table[] = {
        {"n1", "All", {node("n1", 100)}, {}, {}, "healthy: All 100.000 PS at 2026-11-01T12:00:00Z"},
        {"n1", "all", {}, {}, {}, "healthy: all 100.000 PS at 2026-11-01T12:00:00Z"},
        {"n3", "All", {}, {}, {}, "healthy: All 99.000 PS at 2026-11-01T12:00:00Z"},
        {"n6", "All", {node("n6", 60)}, {}, {}, "drain: flagged by compare (robust z -", powersave},
        // Newer than the summary: judged against the summary's group.
        {"n6", "All", {later("n6", 100)}, {}, {}, "healthy: All 100.000 PS at 2026-11-02"},
        {"n1", "All", {later("n1", 60)}, {}, {}, "drain: flagged by compare (robust z -"},
        {"n1", "All", {later("n1", 10, "New CPU")}, {}, {}, "healthy: All 10.000 PS at 2026-11-02"},
        {"n1", "All", {stranger}, {}, {}, "healthy: All 100.000 PS at 2026-11-01"},
        {"n1", "All", {}, 150.5, {}, "drain: 100.000 PS below floor 150.5"},
        {"n1", "All", {}, 50, kDays3, "drain: newest record (2026-11-01T12:00:00Z) older than 3d"},
        {"n6", "All", {}, 90, kDays3, "drain: flagged by compare (robust z -", powersave},
        {"nX", "All", {}, 50, kDays3, "drain: no All record of nX in /records"},
        {"nX", "All", {}, 50, {}, "healthy: no All record of nX"},
        // A disturbed run is no evidence either way.
        {"n1",
         "All",
         {disturbedNode("n1", 10, 2)},
         50,
         {},
         "healthy: All 100.000 PS at 2026-11-01T12:00:00Z; the newer run at "
         "2026-11-02T12:00:00Z was disturbed, not judged"},
        {"n1",
         "All",
         {disturbedNode("n1", 10, 2)},
         50,
         kDays3,
         "cannot decide: the All run of n1 at 2026-11-02T12:00:00Z was disturbed (other work "
         "used 0.52 of the worker's CPU), and its newest undisturbed run (2026-11-01T12:00:00Z) "
         "is older than 3d"},
        {"nY",
         "All",
         {disturbedNode("nY", 10, 2)},
         50,
         {},
         "cannot decide: the All run of nY at 2026-11-02T12:00:00Z was disturbed (other work "
         "used 0.52 of the worker's CPU), and it has no undisturbed run"},
        // A slow node's drain names its likely cause, whether its own record or the summary
        // says it.
        {"n6", "All", {n6}, {}, {}, "drain: flagged by compare (robust z", powersave},
        {"n6", "All", {}, 90, {}, "drain: flagged by compare (robust z", powersave},
        {"n1",
         "All",
         {hot},
         {},
         {},
         "drain: flagged by compare (robust z",
         "the clock under load, 2000 MHz, is 0.67 of its group's median 3000 MHz"},
        // Records of other tests only: the check is set to another test than the sweep runs.
        {"nX", "All", {single}, 50, kDays3, "cannot decide: nX has records of SingleSpeed but"},
        {"n1", "Single", {single}, {}, {}, "cannot decide: n1 has records of All but none of"},
    };
    for (const Row& row : table) {
        const CheckRequest request{row.host,   row.test, row.floor, row.maxAgeS, "3d",
                                   "/records", now,      {},        "/records"};
        const NodeVerdict verdict = decideNode(*compared.summary, row.own, request);
        EXPECT_TRUE(verdict.line.startsWith(QLatin1String(row.line)))
            << row.host << " " << row.line << ": " << verdict.line.toStdString();
        EXPECT_EQ(verdict.verdict == Verdict::Drain, verdict.line.startsWith("drain"));
        EXPECT_EQ(verdict.verdict == Verdict::CannotDecide,
                  verdict.line.startsWith("cannot decide"));
        EXPECT_EQ(verdict.line.contains("likely cause"), row.cause != nullptr);
        EXPECT_TRUE(row.cause == nullptr ||
                    verdict.line.endsWith(QStringLiteral("; likely cause: ") + row.cause))
            << verdict.line.toStdString();
    }
    QString error;
    EXPECT_FALSE(summaryFromJson(R"({"kind":"corebench-summary","schema":1})", now, &error));
    EXPECT_FALSE(summaryFromJson(
        summaryToJson(compared.rows, compared.groups, {0.9, 3.5}, "/records", {}), now, &error));
}

// With a drift setting, a drop in the node's own runs drains it, however it compares with its
// group: 3 % (its ratio 0.9701) drains at a setting of 0.037 (0.8 of it 2.96 %), not 0.038.
TEST(NodeVerdict, DrainsOnOwnDriftOnlyWhenAsked) {
    const Compared compared =
        compareThroughJson({node("n1", 100), node("n2", 101), node("n3", 99)});
    ASSERT_TRUE(compared.summary);
    const struct {
        int runsAfter;  // after 40 runs at 100, at 97, hourly from 2 November
        std::optional<double> drift;
        const char* line;
    } table[] = {
        {10, {}, "healthy: All 97.300 PS"},
        {10, 0.038, "healthy: All 97.300 PS"},
        {10, 0.037, "drain: drift: -3.0% since 2026-11-03 (p < 0.0001)"},
        {5, 0.037, "drain: drift: -3.0% since 2026-11-03 (p < 0.0001)"},
        {4, 0.01, "healthy: All 97.300 PS"},  // flagged by compare from 3 runs, drained from 5
    };
    for (const auto& row : table) {
        std::vector<LoadedRecord> own;
        for (int i = 0; i < 40 + row.runsAfter; ++i) {
            own.push_back(node("n1", (i < 40 ? 100 : 97) + (i % 2 ? 0.3 : -0.3)));
            own.back().record.startedAt =
                QDateTime(QDate(2026, 11, 2), QTime(0, 0), Qt::UTC).addSecs(3600 * i);
        }
        CheckRequest request{"n1", "All", {}, {}, "", "/records", {}, row.drift, "/records"};
        const QString got = decideNode(*compared.summary, own, request).line;
        EXPECT_TRUE(got.startsWith(QLatin1String(row.line))) << got.toStdString();
    }
}

// A node alone in its group whose last 5 runs scored 0 PS drains with a drift setting, as one
// whose runs fell to 0.5 PS does; 5 runs without a score are no fall, and no drift.
TEST(NodeVerdict, ZeroScoreIsAFallAMissingOneIsNot) {
    const struct {
        std::optional<double> last;
        std::optional<double> drift;
        const char* line;
    } table[] = {
        {0.0, 0.05, "drain: drift: -100.0% since 2026-11-03"},
        {0.5, 0.05, "drain: drift: -99.5% since 2026-11-03"},
        {std::nullopt, 0.05, "healthy: All no score PS"},
        {0.0, {}, "healthy: All 0.000 PS"},
    };
    for (const auto& row : table) {
        std::vector<LoadedRecord> own;  // hourly from noon on 2 November
        for (int i = 0; i < 25; ++i) {
            own.push_back(node("n1", 100 + (i % 2 ? 0.3 : -0.3)));
            own.back().record.startedAt =
                QDateTime(QDate(2026, 11, 2), QTime(12, 0), Qt::UTC).addSecs(3600 * i);
            if (i >= 20) {
                own.back().record.psResult = row.last;
            }
        }
        const Compared alone = compareThroughJson({own.back()});
        ASSERT_TRUE(alone.summary);
        CheckRequest request{"n1", "All", {}, {}, "", "/records", {}, row.drift, "/records"};
        const QString got = decideNode(*alone.summary, own, request).line;
        EXPECT_TRUE(got.startsWith(QLatin1String(row.line))) << got.toStdString();
    }
}

TEST(NodeVerdict, AgesWithinTenYears) {
    for (const char* bad : {"3651d", "8w", "", "-1", "999999999999999d", "8d\n"}) {
        EXPECT_FALSE(parseAge(bad)) << bad;
    }
    const std::pair<const char*, qint64> good[] = {
        {"0", 0},        {"0d", 0},      {"3600", 3600},      {"90m", 5400},
        {"36h", 129600}, {"8d", 691200}, {"3650d", 315360000}};
    for (const auto& row : good) {
        EXPECT_EQ(parseAge(row.first), row.second) << row.first;
    }
}
