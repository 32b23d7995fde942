// corebench-fleet compare as a program: exit statuses, every kind of bad input, the formats.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "fleet_test_support.h"

namespace {

class FleetCompareProgram : public ::testing::Test {
  protected:
    void SetUp() override {
        // One real record, imported from a captured log, is the pattern of the others; five
        // nodes close together stand in nested folders.
        ASSERT_EQ(
            runFleet({"import", "--out", path("seed"), FLEET_TEST_DATA "/singlespeed-plain.log"})
                .status,
            0);
        const QString seed = QDir(path("seed")).entryList({"*.json"}).value(0);
        pattern = QJsonDocument::fromJson(readFile(path("seed/") + seed)).object();
        ASSERT_FALSE(pattern.isEmpty());
        int i = 0;
        for (const double ps : {21.5, 21.6, 21.4, 21.55, 21.45}) {
            addRecord(QStringLiteral("fleet/rack%1/n%2.json").arg(i % 2).arg(i),
                      QStringLiteral("n%1").arg(i), ps);
            ++i;
        }
    }
    QString path(const QString& name) const { return dir.filePath(name); }

    void addRecord(const QString& file, const QString& host, double ps) {
        QJsonObject record = pattern;
        record.insert("host", host);
        record.insert("ps_result", ps);
        QDir().mkpath(QFileInfo(path(file)).path());
        writeFile(path(file), QJsonDocument(record).toJson());
    }

    QTemporaryDir dir;
    QJsonObject pattern;
};

TEST_F(FleetCompareProgram, ExitsZeroOrOneByWhatItFinds) {
    const FleetResult clean = runFleet({"compare", path("fleet")});
    EXPECT_EQ(clean.status, 0) << clean.err.toStdString();
    EXPECT_EQ(clean.out.count('\n'), 6);  // header and five nodes, read from nested folders
    EXPECT_TRUE(clean.err.isEmpty()) << clean.err.toStdString();
    // A record named twice, in its folder and on its own, counts once.
    const FleetResult twice =
        runFleet({"compare", "--format", "csv", path("fleet"), path("fleet/rack0/n0.json")});
    EXPECT_EQ(twice.out.count('\n'), 6);
    EXPECT_TRUE(twice.out.contains(",1,2,")) << twice.out.toStdString();
    EXPECT_FALSE(twice.out.contains(",2,2,")) << twice.out.toStdString();

    addRecord("fleet/slow.json", "n9", 15.0);
    const FleetResult flagged = runFleet({"compare", "--format", "csv", path("fleet")});
    EXPECT_EQ(flagged.status, 1) << flagged.err.toStdString();
    const QList<QByteArray> lines = flagged.out.split('\n');
    EXPECT_TRUE(lines.value(0).startsWith("host,test,started_at,flagged,reason,ps_result,"));
    EXPECT_TRUE(lines.value(1).startsWith("n9,SingleSpeed,")) << lines.value(1).toStdString();
    EXPECT_TRUE(lines.value(1).contains(",yes,")) << lines.value(1).toStdString();
    EXPECT_EQ(runFleet({"compare", "--floor", "0.5", "--z", "100", path("fleet")}).status, 0);
    const FleetResult json = runFleet({"compare", "--format", "json", path("fleet")});
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(QJsonDocument::fromJson(json.out).object().value("rows").toArray().size(), 6);
}

TEST_F(FleetCompareProgram, BadInputIsNamedAndTheRestStillCounts) {
    writeFile(path("fleet/notjson.json"), "{\"schema\": 1");
    QJsonObject incomplete = pattern;
    incomplete.remove("cpu_model");
    writeFile(path("fleet/incomplete.json"), QJsonDocument(incomplete).toJson());
    writeFile(path("fleet/list.json"), "[]");
    writeFile(path("fleet/n0.log"), "not a record, not read");  // only *.json in folders
    ASSERT_EQ(mkfifo(qPrintable(path("pipe.json")), 0644), 0);
    const FleetResult result = runFleet(
        {"compare", "--format", "csv", path("fleet"), path("nothing-here"), path("pipe.json")},
        COREBENCH_FLEET, 30000);
    EXPECT_EQ(result.status, 2);
    const QString err = QString::fromUtf8(result.err);
    for (const QString& message :
         {path("fleet/notjson.json") + ": invalid record: not JSON",
          path("fleet/incomplete.json") + ": invalid record: key \"cpu_model\" is missing",
          path("fleet/list.json") + ": invalid record: not a JSON object",
          path("nothing-here") + ": no such file or folder",
          path("pipe.json") + ": not a regular file"}) {
        EXPECT_TRUE(err.contains(message)) << err.toStdString();
    }
    EXPECT_FALSE(err.contains("n0.log"));
    EXPECT_EQ(result.out.count('\n'), 6) << "the good records are still compared";

    if (geteuid() != 0) {  // root reads every file
        writeFile(path("locked.json"), QJsonDocument(pattern).toJson(), QFile::Permissions());
        const FleetResult locked = runFleet({"compare", path("locked.json")});
        EXPECT_EQ(locked.status, 2);
        EXPECT_TRUE(locked.err.contains("locked.json: cannot read")) << locked.err.toStdString();
    }
}

TEST_F(FleetCompareProgram, UsageErrors) {
    QDir().mkpath(path("empty"));
    const std::pair<QStringList, const char*> cases[] = {
        {{"compare"}, "at least one PATH"},
        {{"compare", path("empty")}, "no records found"},
        {{"compare", "--format", "xml", path("seed")}, "--format must be"},
        {{"compare", "--floor", "-1", path("seed")}, "--floor must be"},
        {{"compare", "--z", "abc", path("seed")}, "--z must be"},
        {{"compare", "--colour", path("seed")}, "Unknown option"},
    };
    for (const auto& [arguments, message] : cases) {
        const FleetResult result = runFleet(arguments);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_TRUE(result.err.contains(message)) << result.err.toStdString();
    }
    EXPECT_EQ(runFleet({"compare", path("seed")}).status, 0);
}

}  // namespace
