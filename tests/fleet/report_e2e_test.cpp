// Drift in compare, history, and the HTML report as corebench-fleet prints them, the report loaded
// by the real Chromium (headless, offline, started and stopped by the test).

#include <gtest/gtest.h>

#include <QDir>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>
#include <QtEndian>
#include <random>
#include <set>

#include "fleet_test_support.h"

namespace {

// Planted series: 40 runs at a level, then `after` runs changed by `change`, 1 % noise.
struct Series {
    const char* host;
    double level;
    double change;
    int after;
    const char* cpuModelAfter;  // null: the same CPU
    const char* flagged;        // the CSV's flagged field, then the start of its reason
    const char* drift;          // its drift_at and drift_ratio to 2 places, "," when none
};
const Series kSeries[] = {
    {"steady", 400, 0, 0, nullptr, "no,,", ","},
    {"dropped", 400, -0.06, 10, nullptr, "yes,drift: -6.", "2026-02-10T00:00:00Z,0.94"},
    {"risen", 400, 0.06, 10, nullptr, "no,,", "2026-02-10T00:00:00Z,1.06"},
    {"rebuilt", 400, -0.3, 10, "Other CPU", "no,,", ","},
    {"slow", 300, 0, 0, nullptr, "yes,score at", ","},
    {"odd", 401, 0, 40, "<i>odd</i>&CPU", "no,,", ","},
};

class FleetReport : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(
            runFleet({"import", "--out", path("seed"), FLEET_TEST_DATA "/singlespeed-plain.log"})
                .status,
            0);
        const QJsonObject pattern =
            QJsonDocument::fromJson(
                readFile(path("seed/singlespeed-plain/") +
                         QDir(path("seed/singlespeed-plain")).entryList({"*.json"}).value(0)))
                .object();
        std::mt19937_64 random(17);
        std::normal_distribution<double> noise(0, 0.01);
        QDir().mkpath(path("records"));
        for (const Series& series : kSeries) {
            QJsonObject record = pattern;
            for (int i = 0; i < 40 + series.after; ++i) {
                const bool after = i >= 40;
                record["host"] = series.host;
                record["started_at"] = QDateTime(QDate(2026, 1, 1).addDays(i), QTime(0, 0), Qt::UTC)
                                           .toString(Qt::ISODate);
                record["ps_result"] =
                    series.level * (after ? 1 + series.change : 1) * (1 + noise(random));
                if (after && series.cpuModelAfter) {
                    record["cpu_model"] = series.cpuModelAfter;
                }
                writeFile(path("records/%1-%2.json").arg(&series - kSeries).arg(i),
                          QJsonDocument(record).toJson());
            }
        }
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    QTemporaryDir dir;
};

TEST_F(FleetReport, CompareAddsDriftColumnsAfterTheOthers) {
    const FleetResult csv = runFleet({"compare", "--format", "csv", path("records")});
    EXPECT_EQ(csv.status, 1) << csv.err.toStdString();
    EXPECT_EQ(csv.out.split('\n')[0],
              "host,test,started_at,flagged,reason,ps_result,group_median,ratio,robust_z,"
              "min_thread_ps,median_thread_ps,cv,records,logical_cpus,cpu_model,file,drift_at,"
              "drift_median_before,drift_median_after,drift_ratio,drift_p,newest_disturbed,"
              "likely_cause");
    for (const Series& series : kSeries) {
        // Its flagged and reason fields, then its drift_at and drift_ratio.
        const QRegularExpressionMatch row =
            QRegularExpression("\n" + QRegularExpression::escape(series.host) +
                               ",SingleSpeed,[^,]*,([^\n]*),([^,]*),[^,]*,[^,]*,([^,]*),[^,]*,,\n")
                .match(QString::fromUtf8(csv.out));
        EXPECT_TRUE(row.captured(1).startsWith(series.flagged)) << row.captured(0).toStdString();
        const QString ratio = row.captured(3).isEmpty()
                                  ? QString()
                                  : QString::number(row.captured(3).toDouble(), 'f', 2);
        EXPECT_EQ((row.captured(2) + "," + ratio).toStdString(), series.drift) << series.host;
    }
    const QJsonArray rows =
        QJsonDocument::fromJson(runFleet({"compare", "--format", "json", path("records")}).out)
            .object()["rows"]
            .toArray();
    for (const QJsonValue& row : rows) {
        EXPECT_EQ(row["drift_p"].isDouble(), row["drift_at"].isString());
        EXPECT_EQ(row["drift_p"].isDouble(), row["host"] == "dropped" || row["host"] == "risen");
    }
}

TEST_F(FleetReport, HistoryListsRunsSegmentsAndChanges) {
    const std::tuple<QStringList, int, const char*> cases[] = {
        {{"dropped"}, 0, "  2026-02-10T00:00:00Z     37"},
        {{"dropped"}, 0, "change: -6."},
        {{"rebuilt", "--test", "SingleSpeed"}, 0, "segment 2: Other CPU, 2 logical CPUs"},
        {{"rebuilt", "--format", "csv"}, 0, "\nrebuilt,SingleSpeed,2026-02-10T00:00:00Z,"},
        {{"risen", "--format", "json"}, 0, "\"direction\": \"up\""},
        {{"nobody"}, 7, "no records of host \"nobody\""},
        {{"steady", "--test", "All"}, 7, "in test \"All\""},
        {{"steady", "--format", "xml"}, 2, "--format must be"},
    };
    for (const auto& [arguments, status, text] : cases) {
        const FleetResult result = runFleet(QStringList{"history"} + arguments << path("records"));
        EXPECT_EQ(result.status, status) << arguments.join(' ').toStdString();
        EXPECT_TRUE((result.out + result.err).contains(text))
            << text << "\n"
            << result.out.toStdString() << result.err.toStdString();
    }
    EXPECT_EQ(runFleet({"history", "steady"}).status, 2);
}

// The distinct byte values of a PNG's decompressed image data: a page drawn in one colour has a
// handful, a page with text and lines many.
size_t distinctImageBytes(const QByteArray& png) {
    QByteArray data;
    for (int at = 8; at + 12 <= png.size();) {
        const quint32 length = qFromBigEndian<quint32>(png.constData() + at);
        if (png.mid(at + 4, 4) == "IDAT") {
            data += png.mid(at + 8, static_cast<int>(length));
        }
        at += 12 + static_cast<int>(length);
    }
    const QByteArray pixels = qUncompress(QByteArray("\0\0\0\0", 4) + data);
    return std::set<char>(pixels.begin(), pixels.end()).size();
}

TEST_F(FleetReport, HtmlPageLoadsOfflineInChromium) {
    const FleetResult page = runFleet({"compare", "--format", "html", path("records")});
    ASSERT_EQ(page.status, 1) << page.err.toStdString();
    EXPECT_TRUE(page.out.contains("&lt;i&gt;odd&lt;/i&gt;&amp;CPU"));
    EXPECT_FALSE(page.out.contains("<i>"));
    writeFile(path("report.html"), page.out);

    const QString chromium = QStandardPaths::findExecutable("chromium");
    if (chromium.isEmpty()) {
        // The test stage for the browser sets COREBENCH_REQUIRE_BROWSER: there this is a failure.
        const char* message = "chromium is not installed (scripts/setup --browser)";
        ASSERT_FALSE(qEnvironmentVariableIsSet("COREBENCH_REQUIRE_BROWSER")) << message;
        GTEST_SKIP() << message;
    }
    const auto browse = [&](const QString& profile, const QStringList& what) {
        QDir().mkpath(path(profile));
        return runFleet(
            QStringList{"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                        "--no-first-run", "--disable-background-networking",
                        "--disable-component-update", "--disable-sync",
                        "--user-data-dir=" + path(profile), "--host-resolver-rules=MAP * ~NOTFOUND",
                        "--enable-logging=stderr", "--v=0"} +
                    what
                << QUrl::fromLocalFile(path("report.html")).toString(),
            chromium, 90000);
    };
    const FleetResult dom = browse("profile1", {"--dump-dom"});
    ASSERT_EQ(dom.status, 0) << dom.err.toStdString();
    EXPECT_FALSE(dom.err.contains("Uncaught") || dom.err.contains("console("))
        << dom.err.toStdString();
    // The inline script counted errors and resources loaded: none of either.
    EXPECT_TRUE(
        QRegularExpression("<body data-errors=\"0\" data-resources=\"0\" data-load-ms=\"\\d+\">")
            .match(QString::fromUtf8(dom.out))
            .hasMatch())
        << dom.out.left(300).toStdString();
    EXPECT_EQ(dom.out.count("class=\"mark\""),
              4);  // one mark per node, the slow and dropped flagged
    EXPECT_EQ(dom.out.count("class=\"mark flagged\""), 2);
    EXPECT_EQ(dom.out.count("class=\"change\""), 2);  // the charts of dropped and risen

    const FleetResult shot = browse("profile2", {"--hide-scrollbars", "--window-size=1000,800",
                                                 "--screenshot=" + path("report.png")});
    ASSERT_EQ(shot.status, 0) << shot.err.toStdString();
    EXPECT_GE(distinctImageBytes(readFile(path("report.png"))), 64u);
}

}  // namespace
