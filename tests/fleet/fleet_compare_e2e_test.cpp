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
        const QDir seedDir(path("seed/singlespeed-plain"));
        pattern = QJsonDocument::fromJson(
                      readFile(seedDir.filePath(seedDir.entryList({"*.json"}).value(0))))
                      .object();
        ASSERT_FALSE(pattern.isEmpty());
        for (int i = 0; i < 5; ++i) {
            addRecord(
                QStringLiteral("fleet/rack%1/").arg(i % 2) + fileOf(QStringLiteral("n%1").arg(i)),
                QStringLiteral("n%1").arg(i), 21.4 + 0.05 * i);
        }
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    // A record's file name, as run gives it (compare reads no other), and such a file planted
    // in the fleet folder.
    static QString fileOf(const QString& host) {
        return host + QStringLiteral("-SingleSpeed-20261120T020000Z.json");
    }
    QString planted(const QString& host) const { return path("fleet/" + fileOf(host)); }

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
    // How rows are judged and formatted is FleetCompare's and CompareFormat's.
    const FleetResult clean = runFleet(
        {"compare", "--format", "csv", path("fleet"), path("fleet/rack0/" + fileOf("n0"))});
    EXPECT_EQ(clean.status, 0) << clean.err.toStdString();
    EXPECT_TRUE(clean.err.isEmpty());
    EXPECT_EQ(clean.out.count(",no,,"), 5) << clean.out.toStdString();

    addRecord("fleet/" + fileOf("n9"), "n9", 15.0);
    EXPECT_EQ(runFleet({"compare", path("fleet")}).status, 1);
    EXPECT_EQ(runFleet({"compare", "--floor", "0.5", "--z", "100", path("fleet")}).status, 0);
}

// What the sweep leaves beside the records (compare's summary, the report, the jobs' output) is
// no record: a second sweep's compare and history read the records only. Another *.json is
// named and not read, and changes no status.
TEST_F(FleetCompareProgram, ReadsRecordsByNameNotTheSweepsOwnFiles) {
    const QStringList sweep{
        "compare",    "--format", "csv", "--summary", path("fleet/corebench-summary.json"),
        path("fleet")};
    ASSERT_EQ(runFleet(sweep).status, 0);
    QJsonObject slow = pattern;  // counted, it would flag n9
    slow.insert("host", "n9");
    slow.insert("ps_result", 15.0);
    writeFile(path("fleet/n9-copy.json"), QJsonDocument(slow).toJson());
    writeFile(path("fleet/corebench-report-20261120T030000Z.csv"), "host,test\n");
    QDir().mkpath(path("fleet/jobs"));
    writeFile(path("fleet/jobs/corebench-report-2.out"), "{}");
    const QStringList weekly{"compare", "--summary", path("fleet/weekly.json"), path("fleet")};
    for (const QStringList& arguments :
         {sweep, QStringList{"history", "n1", path("fleet")}, weekly, weekly}) {
        const FleetResult result = runFleet(arguments);
        EXPECT_EQ(result.status, 0) << result.err.toStdString();
        EXPECT_EQ(result.err.toStdString(),
                  ("corebench-fleet: " + path("fleet/n9-copy.json") +
                   ": not a record's file name (HOST-TEST-YYYYMMDDTHHMMSSZ.json), not read\n")
                      .toStdString())
            << arguments.join(' ').toStdString();
    }
    EXPECT_TRUE(QFile::exists(path("fleet/weekly.json")));
}

// Files anyone with write access to the folder could plant: each is named with its reason, none
// is followed, waited on or read whole, and the good records are still compared.
TEST_F(FleetCompareProgram, BadInputIsNamedAndTheRestStillCounts) {
    writeFile(planted("notjson"), "{\"schema\": 1");
    QJsonObject incomplete = pattern;
    incomplete.remove("cpu_model");
    writeFile(planted("incomplete"), QJsonDocument(incomplete).toJson());
    writeFile(planted("list"), "[]");
    writeFile(path("fleet/n0.log"), "not a record, not read");  // only records in folders
    QJsonObject future = pattern;
    future.insert("started_at", "2099-01-01T00:00:00Z");  // would stay its host's newest
    writeFile(planted("future"), QJsonDocument(future).toJson());
    // A pipe and a device block a reader; a large sparse file costs its size in memory; a link
    // to a root-only file would be read as root.
    ASSERT_EQ(mkfifo(qPrintable(path("pipe")), 0644), 0);
    ASSERT_EQ(symlink(qPrintable(path("pipe")), qPrintable(planted("kmsg"))), 0);
    ASSERT_EQ(mkfifo(qPrintable(planted("pipe")), 0644), 0);
    writeFile(path("shadow"), QJsonDocument(pattern).toJson());
    ASSERT_EQ(symlink(qPrintable(path("shadow")), qPrintable(planted("shadow"))), 0);
    writeFile(planted("sparse"), "{");
    ASSERT_TRUE(QFile::resize(planted("sparse"), 3LL << 30));
    QDir().mkpath(path("fleet/closed"));
    QFile::setPermissions(path("fleet/closed"), QFile::Permissions());
    writeFile(path("locked.json"), QJsonDocument(pattern).toJson(), QFile::Permissions());
    const bool root = geteuid() == 0;  // root reads every file and folder
    const FleetResult result = runFleet(
        {"compare", "--format", "csv", path("fleet"), path("nothing-here"), path("locked.json")},
        fleetProgram(), 30000);
    EXPECT_EQ(result.status, 2);
    const QString err = QString::fromUtf8(result.err);
    for (const QString& message :
         {planted("notjson") + ": invalid record: not JSON",
          planted("incomplete") + ": invalid record: key \"cpu_model\" is missing",
          planted("list") + ": invalid record: not a JSON object",
          planted("future") + ": invalid record: \"started_at\" 2099-01-01T00:00:00Z is "
                              "in the future",
          planted("kmsg") + ": a symbolic link, not read",
          planted("shadow") + ": a symbolic link, not read",
          planted("pipe") + ": not a regular file",
          planted("sparse") + ": larger than 1048576 bytes",
          path("nothing-here") + ": no such file or folder",
          root ? QString() : path("fleet/closed") + ": cannot read the folder",
          root ? QString() : path("locked.json") + ": cannot read"}) {
        EXPECT_TRUE(err.contains(message)) << err.toStdString();
    }
    EXPECT_FALSE(err.contains("n0.log"));
    EXPECT_EQ(result.out.count('\n'), root ? 7 : 6) << "the good records are still compared";
}

}  // namespace
