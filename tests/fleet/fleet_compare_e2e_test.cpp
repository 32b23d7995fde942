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
        // nodes close together stand in their host folders, nested in rack folders.
        const FleetResult seed =
            runFleet({"import", "--out", path("seed"), FLEET_TEST_DATA "/singlespeed-plain.log"});
        ASSERT_EQ(seed.status, 0) << seed.err.toStdString();
        const QDir seedDir(path("seed/singlespeed-plain"));
        pattern = QJsonDocument::fromJson(
                      readFile(seedDir.filePath(seedDir.entryList({"*.json"}).value(0))))
                      .object();
        ASSERT_FALSE(pattern.isEmpty());
        for (int i = 0; i < 5; ++i) {
            addRecord(QStringLiteral("fleet/rack%1/n%2/n%2.json").arg(i % 2).arg(i),
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
    // How rows are judged and formatted is FleetCompare's and CompareFormat's.
    const FleetResult clean =
        runFleet({"compare", "--format", "csv", path("fleet"), path("fleet/rack0/n0/n0.json")});
    EXPECT_EQ(clean.status, 0) << clean.err.toStdString();
    EXPECT_TRUE(clean.err.isEmpty());
    EXPECT_EQ(clean.out.count(",no,,"), 5) << clean.out.toStdString();

    addRecord("fleet/slow.json", "n9", 15.0);
    EXPECT_EQ(runFleet({"compare", path("fleet")}).status, 1);
    EXPECT_EQ(runFleet({"compare", "--floor", "0.5", "--z", "100", path("fleet")}).status, 0);
}

// Files anyone with write access to the folder could plant: each is named with its reason, none
// is followed, waited on or read whole, and the good records are still compared.
TEST_F(FleetCompareProgram, BadInputIsNamedAndTheRestStillCounts) {
    writeFile(path("fleet/notjson.json"), "{\"schema\": 1");
    QJsonObject incomplete = pattern;
    incomplete.remove("cpu_model");
    writeFile(path("fleet/incomplete.json"), QJsonDocument(incomplete).toJson());
    writeFile(path("fleet/list.json"), "[]");
    writeFile(path("fleet/n0.log"), "not a record, not read");  // only *.json in folders
    QJsonObject future = pattern;
    future.insert("started_at", "2099-01-01T00:00:00Z");  // would stay its host's newest
    writeFile(path("fleet/future.json"), QJsonDocument(future).toJson());
    // A pipe and a device block a reader; a large sparse file costs its size in memory; a link
    // to a root-only file would be read as root.
    ASSERT_EQ(mkfifo(qPrintable(path("pipe")), 0644), 0);
    ASSERT_EQ(symlink(qPrintable(path("pipe")), qPrintable(path("fleet/kmsg.json"))), 0);
    ASSERT_EQ(mkfifo(qPrintable(path("fleet/pipe.json")), 0644), 0);
    writeFile(path("shadow"), QJsonDocument(pattern).toJson());
    ASSERT_EQ(symlink(qPrintable(path("shadow")), qPrintable(path("fleet/shadow.json"))), 0);
    writeFile(path("fleet/sparse.json"), "{");
    ASSERT_TRUE(QFile::resize(path("fleet/sparse.json"), 3LL << 30));
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
         {path("fleet/notjson.json") + ": invalid record: not JSON",
          path("fleet/incomplete.json") + ": invalid record: key \"cpu_model\" is missing",
          path("fleet/list.json") + ": invalid record: not a JSON object",
          path("fleet/future.json") + ": invalid record: \"started_at\" 2099-01-01T00:00:00Z is "
                                      "in the future",
          path("fleet/kmsg.json") + ": a symbolic link, not read",
          path("fleet/shadow.json") + ": a symbolic link, not read",
          path("fleet/pipe.json") + ": not a regular file",
          path("fleet/sparse.json") + ": larger than 1048576 bytes",
          path("nothing-here") + ": no such file or folder",
          root ? QString() : path("fleet/closed") + ": cannot read the folder",
          root ? QString() : path("locked.json") + ": cannot read"}) {
        EXPECT_TRUE(err.contains(message)) << err.toStdString();
    }
    EXPECT_FALSE(err.contains("n0.log"));
    EXPECT_EQ(result.out.count('\n'), root ? 7 : 6) << "the good records are still compared";
}

}  // namespace
