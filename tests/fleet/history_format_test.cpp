// history's three formats on one host's planted runs: a step down, a run without a score, a
// second test on another CPU with a disturbed run.

#include "history_format.h"

#include <gtest/gtest.h>

#include "fleet_test_support.h"

namespace {

std::vector<LoadedRecord> hostRuns() {
    std::vector<LoadedRecord> records;
    const auto add = [&](const char* test, int day, std::optional<double> ps, const char* model,
                         std::optional<QStringList> disturbed = std::nullopt) {
        LoadedRecord loaded;
        Record& r = loaded.record;
        r.host = "n1";
        r.test = test;
        r.startedAt = QDateTime(QDate(2026, 11, day), QTime(12, 0), Qt::UTC);
        r.psResult = ps;
        r.cpuModel = model;
        r.logicalCpus = 2;
        r.source = "run";
        r.disturbed = disturbed;
        loaded.file = QStringLiteral("/records/n1/%1-%2.json").arg(test).arg(day);
        records.push_back(loaded);
    };
    // Given newest first: each format puts them in start order.
    add("All", 9, std::nullopt, "EPYC, \"B\"");
    for (int day = 8; day >= 1; --day) {
        add("All", day, (day > 4 ? 90 : 100) + (day % 2 ? 0.5 : -0.5), "EPYC, \"B\"");
    }
    add("Single", 3, 20, "Other", QStringList());
    add("Single", 4, 10, "Other", QStringList{"other work used 0.52 of the worker's CPU"});
    return records;
}

TEST(HistoryFormat, CsvOneLinePerRunWithTheChangeOnItsFirstRun) {
    const std::vector<LoadedRecord> records = hostRuns();
    const QStringList lines =
        QString::fromUtf8(formatHistoryCsv(records, hostHistories(records))).split('\n');
    ASSERT_EQ(lines.size(), 13);
    EXPECT_EQ(lines[0],
              "host,test,started_at,ps_result,segment,change_median_before,"
              "change_median_after,change_ratio,change_p,cpu_model,logical_cpus,"
              "corebench_sha256,source,file,disturbed");
    EXPECT_EQ(lines[1],
              "n1,All,2026-11-01T12:00:00Z,100.500,1,,,,,\"EPYC, \"\"B\"\"\",2,,run,"
              "/records/n1/All-1.json,");
    EXPECT_TRUE(lines[5].startsWith("n1,All,2026-11-05T12:00:00Z,90.500,1,100.000,90.000,0.9000,"))
        << lines[5].toStdString();
    EXPECT_EQ(lines[9],
              "n1,All,2026-11-09T12:00:00Z,,,,,,,\"EPYC, \"\"B\"\"\",2,,run,"
              "/records/n1/All-9.json,");
    EXPECT_EQ(lines[10],
              "n1,Single,2026-11-03T12:00:00Z,20.000,1,,,,,Other,2,,run,"
              "/records/n1/Single-3.json,no");
    EXPECT_EQ(lines[11],
              "n1,Single,2026-11-04T12:00:00Z,10.000,,,,,,Other,2,,run,"
              "/records/n1/Single-4.json,other work used 0.52 of the worker's CPU");
    EXPECT_TRUE(lines[12].isEmpty());
}

TEST(HistoryFormat, TableAndJsonShowTheSameSegmentsAndChanges) {
    const std::vector<LoadedRecord> records = hostRuns();
    const auto histories = hostHistories(records);
    const QStringList table =
        QString::fromUtf8(formatHistoryTable("n1", records, histories)).split('\n');
    ASSERT_EQ(table.size(), 17);
    EXPECT_EQ(table[0], "host n1");
    EXPECT_EQ(table[1], "All: 9 runs, 8 with a score, 1 segment(s)");
    EXPECT_EQ(table[2], "  started_at              ps_result  segment  source  note");
    EXPECT_EQ(table[3],
              "  2026-11-01T12:00:00Z     100.500        1  run     segment 1: EPYC, "
              "\"B\", 2 logical CPUs, build unknown");
    EXPECT_TRUE(
        table[7].startsWith("  2026-11-05T12:00:00Z      90.500        1  run     change: "
                            "-10.0% from 100.000 to 90.000 (p "))
        << table[7].toStdString();
    EXPECT_EQ(table[11], "  2026-11-09T12:00:00Z                    -  run     no score");
    EXPECT_EQ(table[12], "Single: 2 runs, 1 with a score, 1 disturbed (left out), 1 segment(s)");
    EXPECT_EQ(table[15],
              "  2026-11-04T12:00:00Z      10.000        -  run     disturbed: other work used "
              "0.52 of the worker's CPU");

    const QJsonObject json =
        QJsonDocument::fromJson(formatHistoryJson("n1", records, histories)).object();
    expectJsonHas(json, R"({"schema": 1, "host": "n1"})");
    const QJsonArray tests = json["tests"].toArray();
    ASSERT_EQ(tests.size(), 2);
    const QJsonObject all = tests[0].toObject();
    EXPECT_EQ(all["test"], "All");
    EXPECT_EQ(all["runs"].toArray().size(), 9);
    expectJsonHas(all["runs"][4].toObject(),
                  R"({"started_at": "2026-11-05T12:00:00Z", "ps_result": 90.5, "segment": 1,
                      "change": true, "source": "run", "file": "/records/n1/All-5.json"})");
    expectJsonHas(all["runs"][8].toObject(),
                  R"({"ps_result": null, "segment": null, "disturbed": null})");
    expectJsonHas(
        tests[1]["runs"][1].toObject(),
        R"({"segment": null, "disturbed": ["other work used 0.52 of the worker's CPU"]})");
    const QJsonObject segment = all["segments"][0].toObject();
    expectJsonHas(segment, R"({"first_started_at": "2026-11-01T12:00:00Z", "runs": 8,
                               "cpu_model": "EPYC, \"B\"", "logical_cpus": 2,
                               "corebench_sha256": null})");
    expectJsonHas(segment["change_points"][0].toObject(),
                  R"({"at": "2026-11-05T12:00:00Z", "median_before": 100, "median_after": 90,
                      "ratio": 0.9, "direction": "down"})");
}

}  // namespace
