// The textfile exporter's file: series per test kept across runs, label values escaped.

#include "prom_export.h"

#include <gtest/gtest.h>

namespace {

Record record(const QString& test, double ps) {
    Record r;
    r.test = test;
    r.startedAt = QDateTime(QDate(2026, 11, 23), QTime(17, 13, 0), Qt::UTC);
    r.durationS = 5.25;
    r.threadPs = {ps / 2, ps / 2};
    r.psResult = ps;
    r.cpuModel = QStringLiteral("AMD EPYC 7543");
    r.corebenchSha256 = QStringLiteral("ab12");
    return r;
}

TEST(PromExport, WritesEverySeriesWithHelpAndType) {
    const QByteArray single =  // kept
        "corebench_baseline_score_ps{test=\"Single\"} 6\ncorebench_drift_ratio{test=\"Single\"} "
        "1\ncorebench_run_disturbed{test=\"Single\"} 0\n";
    Record all = record("All", 25.5);
    all.disturbed = QStringList{"steal 4.1% of the run"};
    EXPECT_EQ(QString::fromUtf8(promText(all, 24.75, single, 0.9375)),
              R"(# HELP corebench_score_ps Score (PS) of the latest corebench run of the test.
# TYPE corebench_score_ps gauge
corebench_score_ps{test="All"} 25.5
# HELP corebench_thread_score_ps Score (PS) of each worker thread in the latest run of the test.
# TYPE corebench_thread_score_ps gauge
corebench_thread_score_ps{test="All",thread="0"} 12.75
corebench_thread_score_ps{test="All",thread="1"} 12.75
# HELP corebench_last_run_timestamp_seconds Start of the latest corebench run of the test, in seconds since the epoch.
# TYPE corebench_last_run_timestamp_seconds gauge
corebench_last_run_timestamp_seconds{test="All"} 1795453980
# HELP corebench_run_duration_seconds Duration of the latest corebench run of the test.
# TYPE corebench_run_duration_seconds gauge
corebench_run_duration_seconds{test="All"} 5.25
# HELP corebench_run_disturbed 1 when other work, steal or waiting for a CPU disturbed the latest corebench run of the test, 0 when it was clean; absent where unknown.
# TYPE corebench_run_disturbed gauge
corebench_run_disturbed{test="All"} 1
corebench_run_disturbed{test="Single"} 0
# HELP corebench_baseline_score_ps Median score (PS) of the node's last 20 earlier runs of the test in the same configuration; from 3 such runs on.
# TYPE corebench_baseline_score_ps gauge
corebench_baseline_score_ps{test="All"} 24.75
corebench_baseline_score_ps{test="Single"} 6
# HELP corebench_drift_ratio Level of the node's runs of the test since its current drift over the level before it, found in its own records as compare finds it; 1 when they show no current drop.
# TYPE corebench_drift_ratio gauge
corebench_drift_ratio{test="All"} 0.9375
corebench_drift_ratio{test="Single"} 1
# HELP corebench_info The CPU and corebench binary of the latest run; always 1.
# TYPE corebench_info gauge
corebench_info{cpu_model="AMD EPYC 7543",corebench_sha256="ab12"} 1
)");
}

// Merged with the file as it was: the series of other tests kept (the node exporter test has two
// tests in one file), those of this test replaced, a damaged file healed.
TEST(PromExport, ReplacesItsOwnSeriesEscapesAndHealsADamagedFile) {
    Record odd = record("Odd\"Test\\", 10.0);
    odd.cpuModel = QStringLiteral("CPU \"X\"\nrev\\2");
    odd.corebenchSha256.reset();  // imports do not know their binary
    odd.durationS.reset();
    odd.psResult.reset();
    odd.threadPs = {5.0};  // fewer threads than before: the old thread series go
    const QByteArray damaged =
        "corebench_score_ps{test=\"Single\"} 7\ngarbage {{{\ncorebench_score_ps{test=\"Sin\n"
        "other_metric{test=\"x\"} 1\ncorebench_score_ps 3\n";
    const QByteArray first =
        promText(odd, {}, promText(record("Odd\"Test\\", 30.0), 29.0, damaged));
    const QString text = QString::fromUtf8(first);
    for (const char* line :
         {"corebench_info{cpu_model=\"CPU \\\"X\\\"\\nrev\\\\2\",corebench_sha256=\"\"} 1\n",
          "corebench_thread_score_ps{test=\"Odd\\\"Test\\\\\",thread=\"0\"} 5\n",
          "corebench_score_ps{test=\"Single\"} 7\n"}) {
        EXPECT_TRUE(text.contains(QLatin1String(line))) << line << text.toStdString();
    }
    // Unknown values are left out; of the damaged file only the series of another test stays.
    for (const char* gone :
         {"corebench_score_ps{test=\"Odd", "corebench_run_duration_seconds{", "thread=\"1\"",
          "_baseline_score_ps{", "garbage", "other_metric", "corebench_score_ps 3", "\"Sin\n"}) {
        EXPECT_FALSE(text.contains(QLatin1String(gone))) << gone;
    }
    EXPECT_EQ(text.count("corebench_info{"), 1);
    EXPECT_EQ(text.count("thread=\"0\"}"), 1);
    EXPECT_EQ(text.count("# TYPE corebench_score_ps gauge"), 1);
    EXPECT_EQ(promText(odd, {}, first), first) << "writing the same again changes nothing";
}

}  // namespace
