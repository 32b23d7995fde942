// corebench-fleet check, compare and history as programs on a records folder: which record is a
// host's newest, whose records a folder holds, the test table's names, limits of 0, and how far
// back check reads.

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <QDir>
#include <QTemporaryDir>

#include "fleet_test_support.h"

namespace {

class FleetNewest : public ::testing::Test {
  protected:
    QString path(const QString& name) const { return dir.filePath(name); }

    // Writes a record of host into records/<folder>/ (the host's folder unless named) under the
    // name run gives it, numbered copy when not 1; returns the file.
    QString add(const QString& host, double ps, const QDateTime& at, int copy = 1,
                const QString& model = "EPYC 7543", const QString& folder = QString(),
                const QJsonValue& disturbed = QJsonValue()) {
        QJsonObject record{{"schema", 1},
                           {"host", host},
                           {"test", "All"},
                           {"started_at", at.toString(Qt::ISODate)},
                           {"duration_s", 60},
                           {"threads", 2},
                           {"thread_ps", QJsonArray{ps / 2, ps / 2}},
                           {"ps_result", ps},
                           {"exit_value", QJsonValue()},
                           {"status", 0},
                           {"cpu_model", model},
                           {"logical_cpus", 2},
                           {"physical_cpus", 2},
                           {"hyperthreading", false},
                           {"mhz_current", 2800},
                           {"mhz_max", QJsonValue()},
                           {"ram_gib", 8},
                           {"os", "debian12"},
                           {"errors", QJsonArray()},
                           {"corebench_sha256", QJsonValue()},
                           {"source", "run"}};
        if (disturbed.isArray()) {
            record.insert("disturbed", disturbed);
        }
        return write(host, at, copy, QJsonDocument(record).toJson(), folder);
    }
    QString write(const QString& host, const QDateTime& at, int copy, const QByteArray& bytes,
                  const QString& folder = QString()) {
        const QString file =
            path("records/%1/%2-All-%3%4.json")
                .arg(folder.isEmpty() ? host : folder, host, at.toString("yyyyMMdd'T'HHmmss'Z'"),
                     copy == 1 ? QString() : QStringLiteral("-%1").arg(copy));
        QDir().mkpath(QFileInfo(file).path());
        writeFile(file, bytes);
        return file;
    }
    // Three like nodes at base, and the summary compare makes of them.
    void fleet() {
        for (int i = 1; i <= 3; ++i) {
            add(QStringLiteral("n%1").arg(i), 99.0 + i, base);
        }
        ASSERT_EQ(summarize().status, 0);
    }
    FleetResult summarize() {
        return runFleet(
            {"compare", "--format", "csv", "--summary", path("summary.json"), path("records")});
    }
    FleetResult check(const QString& host, const QStringList& options = {},
                      const QString& test = "All") {
        // The records are the test's user's own, so that user is the writer check trusts.
        const passwd* me = getpwuid(geteuid());
        return runFleet(QStringList{"check", "--summary", path("summary.json"), "--host", host,
                                    "--test", test, "--writer", me != nullptr ? me->pw_name : ""} +
                        options + QStringList{path("records")});
    }

    QTemporaryDir dir;
    // Ten days ago, to the second.
    const QDateTime base = QDateTime::fromSecsSinceEpoch(
        QDateTime::currentDateTimeUtc().addDays(-10).toSecsSinceEpoch(), Qt::UTC);
};

// Runs of one second are numbered "…Z.json", "…Z-2.json" … "…Z-10.json": the highest is the
// newest, for compare's row and for check.
TEST_F(FleetNewest, SameSecondRerunsAreNewestByTheirNumber) {
    fleet();
    const QDateTime later = base.addDays(1);
    const std::pair<int, double> copies[] = {{10, 101.0}, {1, 100.1}, {9, 100.9}, {2, 100.2}};
    for (const auto& [copy, ps] : copies) {
        add("n1", ps, later, copy);
    }
    const FleetResult checked = check("n1");
    EXPECT_EQ(checked.status, 0) << checked.err.toStdString();
    EXPECT_TRUE(checked.out.startsWith("healthy: All 101.000 PS at")) << checked.out.toStdString();
    const QByteArray csv = runFleet({"compare", "--format", "csv", path("records")}).out;
    const int at = csv.indexOf("\nn1,") + 1;
    const QByteArray row = csv.mid(at, csv.indexOf('\n', at) - at);
    EXPECT_TRUE(row.contains(",101.000,") && row.contains("Z-10.json")) << csv.toStdString();
}

// A record in node n2's folder that is named as n1's, or says it is, is named and counted for no
// one: not as n1's nor n2's by compare, and check of n2 cannot decide on it.
TEST_F(FleetNewest, ARecordOfAnotherHostInAFolderIsLeftOut) {
    fleet();
    const QString planted = add("n1", 5.0, base.addSecs(3600), 1, "EPYC 7543", "n2");
    const FleetResult compared = runFleet({"compare", "--format", "csv", path("records")});
    EXPECT_EQ(compared.status, 7);
    EXPECT_TRUE(compared.err.contains((planted + ": not named as a record of n2").toUtf8()))
        << compared.err.toStdString();
    EXPECT_FALSE(compared.out.contains(",5.000,")) << compared.out.toStdString();
    EXPECT_EQ(check("n1").status, 0);
    // Named as n2's but saying n1: n2's newest record is in doubt.
    const QString renamed =
        path("records/n2/n2-All-") + base.addSecs(3600).toString("yyyyMMdd'T'HHmmss'Z'") + ".json";
    QFile::rename(planted, renamed);
    const FleetResult n2 = check("n2");
    EXPECT_EQ(n2.status, 8);
    EXPECT_TRUE(n2.out.startsWith("cannot decide: ") &&
                n2.out.contains("a record of host \"n1\" in the records of \"n2\""))
        << n2.out.toStdString();
    const FleetResult again = runFleet({"compare", "--format", "csv", path("records")});
    EXPECT_EQ(again.status, 7);
    EXPECT_TRUE(again.err.contains(
        (renamed + ": a record of host \"n1\" in the records of \"n2\", left out").toUtf8()))
        << again.err.toStdString();
    EXPECT_FALSE(again.out.contains(",5.000,")) << again.out.toStdString();
}

// One test has one name: a record or option in another case is the table's test, and a name the
// table does not know is refused.
TEST_F(FleetNewest, TestNamesAreTheTablesSpelling) {
    add("n1", 100, base);
    add("n2", 101, base);
    QJsonObject lower = QJsonDocument::fromJson(readFile(add("n3", 102, base))).object();
    lower["test"] = "all";
    write("n3", base, 1, QJsonDocument(lower).toJson());
    const FleetResult compared = summarize();
    EXPECT_EQ(compared.status, 0) << compared.err.toStdString();
    EXPECT_EQ(compared.out.count(",All,"), 3) << compared.out.toStdString();
    EXPECT_EQ(compared.out.count(",101.000,1.000,"), 1) << "one group of three, median 101";

    const FleetResult checked = check("n3", {}, "all");
    EXPECT_EQ(checked.status, 0) << checked.err.toStdString();
    EXPECT_TRUE(checked.out.startsWith("healthy: All 102.000 PS")) << checked.out.toStdString();
    const FleetResult unknown = check("n3", {}, "Quick");
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(unknown.err.contains("unknown test \"Quick\"")) << unknown.err.toStdString();
    const FleetResult history = runFleet({"history", "--test", "ALL", "n3", path("records")});
    EXPECT_EQ(history.status, 0) << history.err.toStdString();
    EXPECT_TRUE(history.out.contains("All: 1 runs")) << history.out.toStdString();
}

// A limit of 0 is no limit, however the 0 is written.
TEST_F(FleetNewest, ALimitOfZeroIsNoLimit) {
    fleet();
    const FleetResult plain = check("n1");
    ASSERT_EQ(plain.status, 0);
    // A number (floor, drift) or an age.
    const std::pair<const char*, const char*> zeros[] = {
        {"0", "0"}, {"0.0", "0d"}, {"00", "00"}, {"0e0", "0m"}};
    for (const auto& [zero, age] : zeros) {
        const FleetResult result =
            check("n1", {"--floor", zero, "--max-age", age, "--drift", zero});
        EXPECT_EQ(result.status, 0) << zero << ": " << result.err.toStdString();
        EXPECT_EQ(result.out, plain.out) << zero;
    }
    EXPECT_EQ(check("n1", {"--floor", "-1"}).status, 2);
    EXPECT_EQ(check("n1", {"--drift", "1"}).status, 2);
}

// check reads the node's records newest first and stops once its verdict is known: without a
// drift setting at the newest, with one where the current configuration began or after 200
// records. What it reads must be what its name says; what it does not read cannot stop it.
TEST_F(FleetNewest, ReadsBackOnlyAsFarAsTheVerdictNeeds) {
    fleet();
    add("n1", 100.3, base.addDays(1), 1, "Old CPU");
    for (int day = 2; day <= 7; ++day) {
        add("n1", day % 2 ? 100.3 : 99.7, base.addDays(day));
    }
    write("n1", base.addDays(-1), 1, "{");  // before the CPU changed
    const QStringList drift{"--drift", "0.05"};
    EXPECT_EQ(check("n1").status, 0);
    EXPECT_EQ(check("n1", drift).status, 0);

    const QString broken = write("n1", base.addDays(3).addSecs(60), 1, "{");  // after it changed
    EXPECT_EQ(check("n1").status, 0);
    const FleetResult needed = check("n1", drift);
    EXPECT_EQ(needed.status, 8);
    EXPECT_TRUE(needed.out.startsWith(("cannot decide: " + broken + ": invalid record").toUtf8()))
        << needed.out.toStdString();
    QFile::remove(broken);

    // A score of 0 PS is a score: a node whose every run since its new CPU scored 0 is read back
    // to the change, not further.
    add("n5", 100, base.addDays(1), 1, "Old CPU");
    for (int day = 2; day <= 4; ++day) {
        add("n5", 0, base.addDays(day));
    }
    write("n5", base, 1, "{");
    const FleetResult zeros = check("n5", drift);
    EXPECT_EQ(zeros.status, 1);
    EXPECT_TRUE(zeros.out.startsWith("drain: ")) << zeros.out.toStdString();

    // The newest must say what its name says; a record named as another host's in the node's
    // folder is in doubt, a file not named as a record is passed over.
    const QString misdated = add("n1", 100, base.addDays(8));
    QFile::rename(misdated, path("records/n1/n1-All-") +
                                base.addDays(9).toString("yyyyMMdd'T'HHmmss'Z'") + ".json");
    EXPECT_TRUE(check("n1").out.contains("its name otherwise"));
    QFile::remove(path("records/n1/n1-All-") + base.addDays(9).toString("yyyyMMdd'T'HHmmss'Z'") +
                  ".json");
    const QString newest =
        path("records/n1/n1-All-") + base.addDays(7).toString("yyyyMMdd'T'HHmmss'Z'") + ".json";
    const QString stranger =
        path("records/n1/n2-All-") + base.addDays(7).toString("yyyyMMdd'T'HHmmss'Z'") + ".json";
    QFile::copy(newest, path("records/n1/notes.json"));
    EXPECT_EQ(check("n1").status, 0);
    QFile::rename(path("records/n1/notes.json"), stranger);
    EXPECT_TRUE(check("n1").out.contains("n2-All-") &&
                check("n1").out.contains(": not named as a record of n1"));
    QFile::remove(stranger);

    // One configuration for ever: the newest 200 records are read, not the 201st.
    for (int hour = 1; hour <= 200; ++hour) {
        add("n4", hour % 2 ? 100.3 : 99.7, base.addSecs(3600 * hour));
    }
    const QString oldest = write("n4", base, 1, "{");
    EXPECT_EQ(check("n4", drift).status, 0);
    QFile::remove(path("records/n4/n4-All-") + base.addSecs(3600).toString("yyyyMMdd'T'HHmmss'Z'") +
                  ".json");
    EXPECT_EQ(check("n4", drift).status, 8) << "the 200th from the newest is read";
}

// compare reads each host's records newest first by their names, only as far back as its verdicts
// look (CompareReading): what it leaves unread cannot fail it, records counts what it read, and
// history still reads everything. What it reads must say what its name says.
TEST_F(FleetNewest, CompareReadsBackOnlyAsFarAsItsVerdictsLook) {
    fleet();
    // Hourly up to an hour before the others: n4 150 runs of one configuration, n5 300 runs of
    // which the newest 249 were disturbed.
    const auto hoursBefore = [&](double hours) { return base.addSecs(qint64(-3600 * hours)); };
    const QJsonArray busy{"other work used 0.90 of the worker's CPU"};
    for (int hour = 1; hour <= 300; ++hour) {
        if (hour <= 150) {
            add("n4", 100 + hour % 2, hoursBefore(hour));
        }
        add("n5", hour == 250 ? 102.5 : 100, hoursBefore(hour), 1, "EPYC 7543", QString(),
            hour < 250 ? QJsonValue(busy) : QJsonValue());
    }
    // Just older than n4's newest 60 runs, which drift looks at.
    const QString old = write("n4", hoursBefore(60.5), 1, "{");
    const FleetResult compared = summarize();
    EXPECT_EQ(compared.status, 0) << compared.err.toStdString();
    const auto row = [&](const char* host) {
        const int at = compared.out.indexOf(QByteArray("\n") + host + ",") + 1;
        return QString::fromUtf8(compared.out.mid(at, compared.out.indexOf('\n', at) - at))
            .split(',');
    };
    // host, test, started_at, flagged, reason, ps_result, ..., records (the 13th), ...
    EXPECT_EQ(row("n4").value(12), "60") << "the records read";
    EXPECT_EQ(row("n5").value(5), "102.500") << "the newest undisturbed, 250 runs back";
    EXPECT_EQ(row("n5").value(2), hoursBefore(250).toString(Qt::ISODate));
    EXPECT_EQ(row("n5").value(12), "300");
    const FleetResult history = runFleet({"history", "n4", path("records")});
    EXPECT_EQ(history.status, 7);
    EXPECT_TRUE(history.err.contains((old + ": invalid record").toUtf8()));

    // Among the newest 60 it is read, and named; so is a record that is not what its name says.
    const QString stem = path("records/%1/%1-All-%2.json");
    QFile::rename(old, stem.arg("n4", hoursBefore(59.5).toString("yyyyMMdd'T'HHmmss'Z'")));
    QFile::copy(stem.arg("n3", base.toString("yyyyMMdd'T'HHmmss'Z'")),
                stem.arg("n3", base.addSecs(1).toString("yyyyMMdd'T'HHmmss'Z'")));
    const FleetResult again = runFleet({"compare", "--format", "csv", path("records")});
    EXPECT_EQ(again.status, 7);
    EXPECT_TRUE(again.err.contains("/n4-All-") && again.err.contains(": invalid record"))
        << again.err.toStdString();
    EXPECT_TRUE(again.err.contains("/n3-All-") && again.err.contains("its name otherwise"))
        << again.err.toStdString();
}

}  // namespace

// run keeps a host's records in a folder per month. compare lists a host's months newest first,
// only as far back as it reads: an older month is not even listed. A record in the host's own
// folder, as older versions kept them, takes its place among the months by its time; one filed
// under another month than its name's is named. check and history list every month.
TEST_F(FleetNewest, MonthFoldersAreListedNewestFirst) {
    const auto at = [](int month, int hour) {
        return QDateTime(QDate(2026, month, 1), QTime(0, 0), Qt::UTC).addSecs(3600 * hour);
    };
    for (int hour = 0; hour < 40; ++hour) {
        add("m1", 100 + hour % 2, at(10, hour), 1, "EPYC 7543", "m1/2026-10");
        add("m1", 100 + hour % 2, at(9, hour), 1, "EPYC 7543", "m1/2026-09");
    }
    // Were August listed, this would fail compare: it is named as a run of July.
    const QString misplaced = write("m1", at(7, 0), 1, "{", "m1/2026-08");
    add("m1", 150, at(10, 24 * 14), 1, "EPYC 7543");  // the newest, straight in m1's folder
    const FleetResult compared = summarize();
    ASSERT_EQ(compared.status, 0) << compared.err.toStdString();
    const QString row = QString::fromUtf8(compared.out).section("\nm1,", 1).section('\n', 0, 0);
    // test, started_at, flagged, reason, ps_result, ..., records (the 12th after the host)
    EXPECT_EQ(row.section(',', 1, 1), "2026-10-15T00:00:00Z");
    EXPECT_EQ(row.section(',', 4, 4), "150.000");
    EXPECT_EQ(row.section(',', 11, 11), "60") << "the newest and 59 of the months'";
    // check lists every month of the node, and a record misplaced in any is named.
    const QStringList recent{"--max-age", "100d"};
    const QByteArray misplacedNamed = (misplaced + ": named as a run of another month").toUtf8();
    EXPECT_TRUE(check("m1", recent).out.contains("cannot decide: " + misplacedNamed));
    EXPECT_TRUE(runFleet({"history", "m1", path("records")}).err.contains(misplacedNamed));
    QFile::remove(misplaced);
    EXPECT_EQ(check("m1", recent).status, 0) << check("m1", recent).out.toStdString();

    const QString misfiled = path("records/m1/2026-10/m1-All-20260905T000000Z.json");
    QFile::copy(add("m1", 100, at(9, 96), 1, "EPYC 7543", "m1/2026-09"), misfiled);
    const FleetResult again = runFleet({"compare", path("records")});
    EXPECT_EQ(again.status, 7);
    EXPECT_TRUE(again.err.contains((misfiled + ": named as a run of another month").toUtf8()));
}
