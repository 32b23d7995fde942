// corebench-fleet compare as a program: exit statuses, every kind of bad input, the formats.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QTemporaryDir>

#include "fleet_test_support.h"

namespace {

class FleetCompareProgram : public ::testing::Test {
  protected:
    void SetUp() override {
        // One real record, imported from a captured log, is the pattern of the others; five
        // nodes close together stand in nested folders.
        const FleetResult seed =
            runFleet({"import", "--out", path("seed"), FLEET_TEST_DATA "/singlespeed-plain.log"});
        ASSERT_EQ(seed.status, 0) << seed.err.toStdString();
        pattern = QJsonDocument::fromJson(
                      readFile(path("seed/") + QDir(path("seed")).entryList({"*.json"}).value(0)))
                      .object();
        ASSERT_FALSE(pattern.isEmpty());
        for (int i = 0; i < 5; ++i) {
            addRecord(QStringLiteral("fleet/rack%1/n%2.json").arg(i % 2).arg(i),
                      QStringLiteral("n%1").arg(i), 21.4 + 0.05 * i);
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
    // Five nodes from nested folders, one also named on its own: each counts once (one record).
    const FleetResult clean =
        runFleet({"compare", "--format", "csv", path("fleet"), path("fleet/rack0/n0.json")});
    EXPECT_EQ(clean.status, 0) << clean.err.toStdString();
    EXPECT_TRUE(clean.err.isEmpty());
    EXPECT_EQ(clean.out.count('\n'), 6);
    EXPECT_EQ(clean.out.count(",no,,"), 5);
    EXPECT_EQ(clean.out.count(",1,2,"), 5) << clean.out.toStdString();

    addRecord("fleet/slow.json", "n9", 15.0);
    EXPECT_EQ(runFleet({"compare", path("fleet")}).status, 1);
    const FleetResult flagged = runFleet({"compare", "--format", "csv", path("fleet")});
    EXPECT_TRUE(flagged.out.split('\n').value(1).startsWith("n9,SingleSpeed,"))
        << flagged.out.toStdString();
    EXPECT_EQ(flagged.out.count(",yes,"), 1);
    EXPECT_EQ(runFleet({"compare", "--floor", "0.5", "--z", "100", path("fleet")}).status, 0);
    const FleetResult json = runFleet({"compare", "--format", "json", path("fleet")});
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
    writeFile(path("locked.json"), QJsonDocument(pattern).toJson(), QFile::Permissions());
    const bool root = geteuid() == 0;  // root reads every file
    const FleetResult result =
        runFleet({"compare", "--format", "csv", path("fleet"), path("nothing-here"),
                  path("pipe.json"), path("locked.json")},
                 COREBENCH_FLEET, 30000);
    EXPECT_EQ(result.status, 2);
    const QString err = QString::fromUtf8(result.err);
    for (const QString& message :
         {path("fleet/notjson.json") + ": invalid record: not JSON",
          path("fleet/incomplete.json") + ": invalid record: key \"cpu_model\" is missing",
          path("fleet/list.json") + ": invalid record: not a JSON object",
          path("nothing-here") + ": no such file or folder",
          path("pipe.json") + ": not a regular file",
          root ? QString() : path("locked.json") + ": cannot read"}) {
        EXPECT_TRUE(err.contains(message)) << err.toStdString();
    }
    EXPECT_FALSE(err.contains("n0.log"));
    EXPECT_EQ(result.out.count('\n'), root ? 7 : 6) << "the good records are still compared";
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
}

}  // namespace
