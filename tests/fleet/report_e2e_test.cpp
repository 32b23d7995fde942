// Drift in compare, history, and the HTML report as corebench-fleet prints them, the report loaded
// by the real Chromium (headless, offline, started and stopped by the test).

#include <gtest/gtest.h>

#include <QDir>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>
#include <QtEndian>
#include <array>
#include <functional>
#include <map>
#include <numeric>
#include <random>
#include <set>

#include "fleet_test_support.h"

namespace {

// Planted series: 40 runs at a level, then `after` runs changed by `change`, 1 % noise; or the
// scores of kDip.
struct Series {
    const char* host;
    double level;
    double change;
    int after;
    const char* cpuModelAfter;  // null: the same CPU
    const char* cpuModel;       // of every run, null: the captured log's
    const char* flagged;        // the CSV's flagged field, then the start of its reason
    const char* drift;          // its drift_at and drift_ratio to 2 places, "," when none
};
const Series kSeries[] = {
    {"steady", 400, 0, 0, nullptr, nullptr, "no,,", ","},
    {"dropped", 400, -0.06, 10, nullptr, nullptr, "yes,drift: -6.", "2026-02-10T00:00:00Z,0.94"},
    {"risen", 400, 0.06, 10, nullptr, nullptr, "no,,", "2026-02-10T00:00:00Z,1.06"},
    {"rebuilt", 400, -0.3, 10, "Other CPU", nullptr, "no,,", ","},
    {"slow", 300, 0, 0, nullptr, nullptr, "yes,score at", ","},
    {"odd", 401, 0, 40, "<i>odd</i>&CPU", nullptr, "no,,", ","},
    {"longago", 400, -0.06, 60, nullptr, "Old CPU", "no,,", ","},  // history, not current
    {"dipped", 0, 0, 0, nullptr, "Dip CPU", "no,,", ","},
};
// 25 runs around 400, 4 runs 10 % low, 6 back: the dip is a change point, its end is not one.
const double kDip[] = {400, 403, 398, 401, 396, 400, 403, 398, 401, 396, 400, 403,
                       398, 401, 396, 400, 403, 398, 401, 396, 400, 403, 398, 401,
                       396, 363, 367, 362, 356, 399, 368, 403, 399, 394, 402};

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
            const int runs =
                series.level > 0 ? 40 + series.after : static_cast<int>(std::size(kDip));
            for (int i = 0; i < runs; ++i) {
                const bool after = i >= 40;
                const QDateTime started(QDate(2026, 1, 1).addDays(i), QTime(0, 0), Qt::UTC);
                record["host"] = series.host;
                record["started_at"] = started.toString(Qt::ISODate);
                record["ps_result"] =
                    series.level > 0
                        ? series.level * (after ? 1 + series.change : 1) * (1 + noise(random))
                        : kDip[i];
                if (series.cpuModel) {
                    record["cpu_model"] = series.cpuModel;
                }
                if (after && series.cpuModelAfter) {
                    record["cpu_model"] = series.cpuModelAfter;
                }
                writeFile(path("records/%1-SingleSpeed-%2.json")
                              .arg(series.host, started.toString("yyyyMMdd'T'HHmmss'Z'")),
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
        {{"longago"}, 0, "change: -6."},
        {{"dipped"}, 0, "  2026-01-26T00:00:00Z     363.000        1  import  change: -"},
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

// Chromium, or a skip (a failure in the test stage for the browser, which sets
// COREBENCH_REQUIRE_BROWSER).
QString chromiumOrSkip() {
    const QString chromium = QStandardPaths::findExecutable("chromium");
    if (chromium.isEmpty() && qEnvironmentVariableIsSet("COREBENCH_REQUIRE_BROWSER")) {
        ADD_FAILURE() << "chromium is not installed (scripts/setup --browser)";
    }
    return chromium;
}

// Headless Chromium, offline (every host name resolving to nothing), in a window 1280 px wide,
// with a profile of its own, on a page of the test's folder.
FleetResult browse(const QTemporaryDir& dir, const QString& chromium, const QString& profile,
                   const QStringList& what, const QString& page) {
    QDir().mkpath(dir.filePath(profile));
    return runFleet(QStringList{"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                                "--no-first-run", "--disable-background-networking",
                                "--disable-component-update", "--disable-sync",
                                "--user-data-dir=" + dir.filePath(profile),
                                "--host-resolver-rules=MAP * ~NOTFOUND", "--enable-logging=stderr",
                                "--v=0", "--hide-scrollbars", "--window-size=1280,800"} +
                            what
                        << QUrl::fromLocalFile(dir.filePath(page)).toString(),
                    chromium, 90000);
}

// The report loaded with report_measure.js appended: its <body> as the page left it, and what the
// measuring script found (see there).
struct Measured {
    QString body;
    QJsonObject figures;
};
Measured measureInChromium(const QTemporaryDir& dir, const QString& chromium,
                           const QByteArray& page) {
    writeFile(dir.filePath("measured.html"),
              page + "<script>" + readFile(REPORT_MEASURE_JS) + "</script>\n");
    const FleetResult dom =
        browse(dir, chromium, "profile-measure", {"--dump-dom"}, "measured.html");
    EXPECT_EQ(dom.status, 0) << dom.err.toStdString();
    EXPECT_FALSE(dom.err.contains("Uncaught") || dom.err.contains("console("))
        << dom.err.toStdString();
    const QString text = QString::fromUtf8(dom.out);
    const QRegularExpressionMatch figures =
        QRegularExpression("<pre id=\"measured\">(.*)</pre>").match(text);
    EXPECT_TRUE(figures.hasMatch()) << text.right(300).toStdString();
    return {QRegularExpression("<body[^>]*>").match(text).captured(0),
            QJsonDocument::fromJson(figures.captured(1).toUtf8()).object()};
}

QStringList strings(const QJsonValue& array) {
    QStringList list;
    for (const QJsonValue& value : array.toArray()) {
        list << value.toString();
    }
    return list;
}

QString joined(const QJsonValue& cells) {
    QStringList list;
    for (const QJsonValue& cell : cells.toArray()) {
        list << cell.toString();
    }
    return list.join(',');
}

// What the page's table showed (report_measure.js's probe) against the CSV of the same records:
// page by page every row as the CSV has it; sorted by a column, the first page holds the rows that
// come first, numbers (also in text) compared as numbers, text by its characters, empty fields
// last, ties in the CSV's order; filtered, the matching rows. Text sorted by the page's natural
// order can differ from that only where numbers of different lengths stand inside text, which the
// reasons do: there only the empty fields' coming last is checked.
void expectTableMatchesCsv(const QJsonObject& table, const QByteArray& csv) {
    const QStringList lines = QString::fromUtf8(csv).split('\n', Qt::SkipEmptyParts);
    const QStringList columns = lines.front().split(',');
    std::vector<QStringList> rows;
    std::map<QString, size_t> byHost;
    for (const QString& line : lines.mid(1)) {
        rows.push_back(line.split(','));
        ASSERT_EQ(rows.back().size(), columns.size()) << line.toStdString();
        byHost[rows.back()[0]] = rows.size() - 1;
    }
    const auto status = [&](size_t first, size_t count, size_t matching) {
        return count == 0
                   ? QString("no node matches")
                   : QString("nodes %1 to %2 of %3")
                             .arg(first + 1)
                             .arg(first + count)
                             .arg(matching) +
                         (matching < rows.size() ? QString(" matching (%1 in all)").arg(rows.size())
                                                 : QString());
    };
    const auto expectRows = [&](const QJsonValue& shown, const std::vector<size_t>& expected,
                                size_t first, const char* what) {
        const QJsonArray cells = shown["rows"].toArray();
        const size_t count = std::min<size_t>(expected.size() - first, 100);
        ASSERT_EQ(static_cast<size_t>(cells.size()), count) << what;
        for (size_t i = 0; i < count; ++i) {
            EXPECT_EQ(joined(cells[static_cast<int>(i)]).toStdString(),
                      rows[expected[first + i]].join(',').toStdString())
                << what << " row " << first + i;
        }
        EXPECT_EQ(shown["status"].toString().toStdString(),
                  status(first, count, expected.size()).toStdString())
            << what;
    };
    std::vector<size_t> all(rows.size());
    std::iota(all.begin(), all.end(), 0);
    const QJsonArray pages = table["pages"].toArray();
    ASSERT_EQ(static_cast<size_t>(pages.size()), (rows.size() + 99) / 100);
    for (int p = 0; p < pages.size(); ++p) {
        expectRows(pages[p], all, 100 * static_cast<size_t>(p), "page");
    }

    EXPECT_EQ(joined(table["columns"]).toStdString(), lines.front().toStdString());
    std::vector<size_t> order;  // of the rows after the last sort, which the filters keep
    static const QRegularExpression number("^-?[0-9]+(\\.[0-9]+)?(e[-+]?[0-9]+)?$",
                                           QRegularExpression::CaseInsensitiveOption);
    for (int c = 0; c < columns.size(); ++c) {
        for (const bool up : {true, false}) {
            const auto before = [&](size_t a, size_t b) {
                const QString& x = rows[a][c];
                const QString& y = rows[b][c];
                if (x.isEmpty() || y.isEmpty()) {
                    return !x.isEmpty() && y.isEmpty();
                }
                const bool xn = number.match(x).hasMatch();
                const bool yn = number.match(y).hasMatch();
                if (xn != yn) {
                    return xn == up;
                }
                return xn ? (up ? x.toDouble() < y.toDouble() : x.toDouble() > y.toDouble())
                          : (up ? x < y : x > y);
            };
            order = all;
            std::stable_sort(order.begin(), order.end(), before);
            const QJsonArray shown = table["sorted"][c][QString(up ? "up" : "down")].toArray();
            const size_t page = std::min<size_t>(rows.size(), 100);
            ASSERT_EQ(static_cast<size_t>(shown.size()), page) << columns[c].toStdString();
            for (size_t i = 0; i < page; ++i) {
                const QStringList cell = strings(shown[static_cast<int>(i)]);
                const std::string where =
                    columns[c].toStdString() + (up ? " up " : " down ") + std::to_string(i);
                ASSERT_EQ(byHost.count(cell.value(0)), 1u) << where;
                EXPECT_EQ(cell.value(1).toStdString(), rows[byHost[cell.value(0)]][c].toStdString())
                    << where;
                if (columns[c] == "reason") {
                    EXPECT_EQ(cell.value(1).isEmpty(), rows[order[i]][c].isEmpty()) << where;
                } else {
                    EXPECT_EQ(cell.value(0).toStdString(), rows[order[i]][0].toStdString())
                        << where;
                }
            }
        }
    }
    const auto matching = [&](const std::function<bool(const QStringList&)>& test) {
        std::vector<size_t> expected;
        std::copy_if(order.begin(), order.end(), std::back_inserter(expected),
                     [&](size_t r) { return test(rows[r]); });
        return expected;
    };
    expectRows(table["host7"],
               matching([](const QStringList& row) { return row[0].contains('7'); }), 0, "host 7");
    const QString model = table["lastModel"]["model"].toString();
    const int cpu = columns.indexOf("cpu_model");
    expectRows(table["lastModel"]["shown"],
               matching([&](const QStringList& row) { return row[cpu] == model; }), 0,
               "last model");
    const int flagged = columns.indexOf("flagged");
    expectRows(table["flaggedOnly"],
               matching([&](const QStringList& row) { return row[flagged] == "yes"; }), 0,
               "flagged only");
}

TEST_F(FleetReport, HtmlPageLoadsOfflineInChromium) {
    // A node whose every run was disturbed is shown apart, not judged: a hollow mark, a grey row.
    QJsonObject busy = QJsonDocument::fromJson(readFile(path("records/steady-SingleSpeed-"
                                                             "20260101T000000Z.json")))
                           .object();
    busy["schema"] = 2;
    busy["host"] = "busy";
    busy["ps_result"] = 150.0;
    busy["conditions"] = QJsonValue();
    busy["disturbed"] = QJsonArray{"other work used 0.93 of the worker's CPU"};
    writeFile(path("records/busy-SingleSpeed-20260101T000000Z.json"), QJsonDocument(busy).toJson());
    const FleetResult page = runFleet({"compare", "--format", "html", path("records")});
    ASSERT_EQ(page.status, 1) << page.err.toStdString();
    EXPECT_TRUE(page.out.contains("&lt;i&gt;odd&lt;/i&gt;&amp;CPU"));
    EXPECT_FALSE(page.out.contains("<i>"));
    writeFile(path("report.html"), page.out);
    const QString chromium = chromiumOrSkip();
    if (chromium.isEmpty()) {
        GTEST_SKIP() << "chromium is not installed (scripts/setup --browser)";
    }
    const Measured measured = measureInChromium(dir, chromium, page.out);
    // The inline script counted errors and resources loaded: none of either.
    EXPECT_TRUE(
        QRegularExpression("^<body data-errors=\"0\" data-resources=\"0\" data-load-ms=\"\\d+\">$")
            .match(measured.body)
            .hasMatch())
        << measured.body.toStdString();
    expectJsonHas(measured.figures,
                  R"({"overlaps": 0, "scrollWidth": 1280, "viewportWidth": 1280, "marks": 9,
                      "flaggedMarks": 2, "named": 2, "listed": 0, "disturbedMarks": 1,
                      "disturbedFill": "none", "disturbedRows": ["busy"]})");
    expectTableMatchesCsv(measured.figures["table"].toObject(),
                          runFleet({"compare", "--format", "csv", path("records")}).out);

    const FleetResult shot = browse(dir, chromium, "profile-shot",
                                    {"--screenshot=" + path("report.png")}, "report.html");
    ASSERT_EQ(shot.status, 0) << shot.err.toStdString();
    EXPECT_GE(distinctImageBytes(readFile(path("report.png"))), 64u);
    // The charts of dropped, risen and dipped (its dip is over, but recent); not longago's.
    EXPECT_EQ(readFile(path("report.html")).count("class=\"change\""), 3);
}

// A farm of 1,000 nodes, most in four CPU models, every third slow (from half the median up), host
// names of 5 and 55 characters, a CPU model that tries to end the page's scripts and one of 300
// letters without a break, a node ten times as fast as its group (which crowds the median and the
// floor together), and a group of four where one node's robust z is "-0.00": no two texts of the
// plots overlap, every flagged node is named on its plot or listed beside it, the page is no
// wider than the window, the hostile model stays text, and the table shows every row as the CSV
// has it, sorts by every column and filters.
TEST_F(FleetReport, HtmlPageOfAFarmNamesWithoutOverlapAndFitsTheWindow) {
    const QDir records(path("records"));
    QJsonObject pattern =
        QJsonDocument::fromJson(readFile(records.filePath(records.entryList({"*.json"}).value(0))))
            .object();
    pattern["started_at"] = "2026-01-01T00:00:00Z";
    const QString models[] = {"AMD EPYC 7543 32-Core Processor",
                              "</script><script>window.reportErrors+=100</script><!--<b>",
                              "Intel(R) Xeon(R) Gold 6338 CPU @ 2.00GHz", QString(300, 'W')};
    QDir().mkpath(path("farm"));
    for (int h = 0; h < 1000; ++h) {
        QJsonObject record = pattern;
        const QString number = QString("%1").arg(h, 4, 10, QChar('0'));
        record["host"] = h % 50 == 1
                             ? "render-node-in-the-west-wing-with-a-long-name-rack-" + number
                             : "n" + number;
        record["cpu_model"] = h < 996 ? models[h % 4] : "Tiny";
        const double ratio = h >= 996 ? std::array{0.9975, 1.0024999, 1.0025001, 1.0075}[h - 996]
                             : h == 2 ? 10
                             : h % 3 == 0 ? 0.5 + 0.38 * ((h * 7) % 97) / 97.0
                                          : 1 + ((h * 37) % 21 - 10) / 1000.0;
        record["ps_result"] = 400 * ratio;
        writeFile(path("farm/%1-SingleSpeed-20260101T000000Z.json").arg(record["host"].toString()),
                  QJsonDocument(record).toJson());
    }
    const FleetResult page = runFleet({"compare", "--format", "html", path("farm")});
    ASSERT_EQ(page.status, 1) << page.err.toStdString();
    EXPECT_EQ(page.out.count("</script"), 3);  // the page's own: errors, data and script
    EXPECT_FALSE(page.out.contains("<!--"));
    const QByteArray csv = runFleet({"compare", "--format", "csv", path("farm")}).out;
    const qsizetype flagged = csv.count(",yes,");
    EXPECT_GT(flagged, 300);

    const QString chromium = chromiumOrSkip();
    if (chromium.isEmpty()) {
        GTEST_SKIP() << "chromium is not installed (scripts/setup --browser)";
    }
    const Measured measured = measureInChromium(dir, chromium, page.out);
    EXPECT_TRUE(measured.body.contains("data-errors=\"0\" data-resources=\"0\""))
        << measured.body.toStdString();
    const QJsonObject& figures = measured.figures;
    EXPECT_EQ(figures["overlaps"].toInt(-1), 0)
        << QJsonDocument(figures["overlapping"].toArray()).toJson().toStdString();
    EXPECT_GE(figures["named"].toInt(), 40);
    EXPECT_EQ(figures["named"].toInt() + figures["listed"].toInt(), flagged);
    EXPECT_EQ(figures["labels"].toInt(), figures["named"].toInt() + 5 * 4);  // and 4 per axis
    EXPECT_TRUE(csv.contains(",-0.00,"));
    EXPECT_LE(figures["scrollWidth"].toInt(), figures["viewportWidth"].toInt());
    EXPECT_EQ(figures["viewportWidth"].toInt(), 1280);
    EXPECT_EQ(figures["marks"].toInt(), 1000);
    EXPECT_EQ(figures["flaggedMarks"].toInt(), flagged);
    expectTableMatchesCsv(figures["table"].toObject(), csv);
}

}  // namespace
