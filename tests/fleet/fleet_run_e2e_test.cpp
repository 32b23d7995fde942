// corebench-fleet run and import as programs, with stand-ins for corebench that replay captured
// output, crash, print nothing or cannot start, and once with the real corebench.

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSysInfo>
#include <QTemporaryDir>

#include "fleet_test_support.h"

namespace {

const QString kData = QStringLiteral(FLEET_TEST_DATA);
// run keeps a host's files in a folder of its own below --out.
const QString kHost = QSysInfo::machineHostName().section('.', 0, 0);

QStringList filesIn(const QString& dir, const QString& pattern = "*") {
    return QDir(dir).entryList({pattern}, QDir::Files, QDir::Name);
}

QJsonObject onlyRecord(const QString& dir) {
    const QStringList records = filesIn(dir, QStringLiteral("*.json"));
    EXPECT_EQ(records.size(), 1) << records.join(' ').toStdString();
    return QJsonDocument::fromJson(readFile(QDir(dir).filePath(records.value(0)))).object();
}

QString sha256(const QString& path) {
    return QCryptographicHash::hash(readFile(path), QCryptographicHash::Sha256).toHex();
}

class FleetRun : public ::testing::Test {
  protected:
    QString path(const QString& name) const { return dir.filePath(name); }

    // Replays a captured log and exits with the status that run had; records its arguments.
    QString replaying(const char* log, int status) {
        writeFile(
            path("corebench"),
            QStringLiteral("#!/bin/sh\nfor a in \"$@\"; do printf '[%s]' \"$a\"; done > '%1'\n"
                           "cat '%2/%3'\nexit %4\n")
                .arg(path("args"), kData, QLatin1String(log))
                .arg(status)
                .toUtf8(),
            QFile::ReadOwner | QFile::ExeOwner);
        return path("corebench");
    }

    QTemporaryDir dir;
};

TEST_F(FleetRun, RecordsWhatCorebenchPrintedAndPassesItThrough) {
    const QString corebench = replaying("singlespeed-divider1-filler.log", 24);
    const FleetResult result =
        runFleet({"run", "--corebench", corebench, "--out", path("out"), "--prom", path("prom"),
                  "--", "SingleSpeed", "exitCodeThreshold", "-1", "a b", "LoremIpsum"});
    ASSERT_EQ(result.status, 0) << result.err.toStdString();
    // The terminal sees exactly what corebench printed; the log beside the record holds it too.
    const QByteArray captured = capturedLog("singlespeed-divider1-filler.log");
    EXPECT_EQ(result.out, captured);
    // corebench's arguments go through unchanged, options and blanks included.
    EXPECT_EQ(readFile(path("args")), "[SingleSpeed][exitCodeThreshold][-1][a b][LoremIpsum]");

    // Record and log share their name: the short host name, the test and the UTC start.
    const QJsonObject record = onlyRecord(path("out/") + kHost);
    const QString host = kHost;
    const QDateTime started = QDateTime::fromString(record["started_at"].toString(), Qt::ISODate);
    EXPECT_LE(std::abs(started.secsTo(QDateTime::currentDateTimeUtc())), 120);
    const QString base = host + "-SingleSpeed-" + started.toUTC().toString("yyyyMMdd'T'HHmmss'Z'");
    EXPECT_EQ(filesIn(path("out/") + host), (QStringList{base + ".json", base + ".log"}));
    EXPECT_EQ(readFile(path("out/") + host + "/" + base + ".log"), captured);
    EXPECT_EQ(record["host"].toString(), host);
    EXPECT_EQ(record["corebench_sha256"].toString(), sha256(corebench));
    expectJsonHas(record, R"({"source": "run", "status": 24, "ps_result": 24.488})");

    EXPECT_TRUE(readFile(path("prom/corebench.prom"))
                    .contains("corebench_score_ps{test=\"SingleSpeed\"} 24.488\n"));
    EXPECT_TRUE(QFile::permissions(path("prom/corebench.prom")) & QFile::ReadOther)
        << "the node exporter runs as another user";
}

TEST_F(FleetRun, DefaultsToTheCorebenchBesideItAndTheAllTest) {
    // A copy of corebench-fleet beside a stand-in called corebench.
    ASSERT_TRUE(QFile::copy(COREBENCH_FLEET, path("corebench-fleet")));
    replaying("allverbose-divider0-houdini.log", 0);
    const FleetResult result = runFleet({"run", "--out", path("out")}, path("corebench-fleet"));
    ASSERT_EQ(result.status, 0) << result.err.toStdString();
    EXPECT_EQ(readFile(path("args")), QByteArray());
    // What corebench printed and what the shell saw differ for a zero divider.
    expectJsonHas(onlyRecord(path("out/") + kHost),
                  R"({"test": "All", "exit_value": -2147483648, "status": 0})");
}

TEST_F(FleetRun, FailuresGiveTheirStatusAndKeepTheLog) {
    const QFile::Permissions exec = QFile::ReadOwner | QFile::ExeOwner;
    // The program (none when empty), its permissions, the status and the message expected.
    const std::tuple<QByteArray, QFile::Permissions, int, const char*> cases[] = {
        {"#!/bin/sh\necho 'CPU PS Test...'\nkill -SEGV $$\n", exec, 4, "killed by a signal"},
        {"#!/bin/sh\nexit 0\n", exec, 5, "corebench printed nothing"},
        {"#!/bin/sh\nhead -c 900 '" + kData.toUtf8() + "/singlespeed-divider1.log'\n", exec, 5,
         "did not parse"},
        {QByteArray(), exec, 3, "corebench not found"},
        {"#!/bin/sh\n", QFile::ReadOwner, 3, "not executable"},
        {"\177ELF\001\002 not a program", exec, 3, "cannot start"},  // exec fails
    };
    for (const auto& [program, permissions, status, message] : cases) {
        SCOPED_TRACE(message);
        QTemporaryDir caseDir;
        const QString corebench = caseDir.filePath("corebench");
        if (!program.isEmpty()) {
            writeFile(corebench, program, permissions);
        }
        const QString out = caseDir.filePath("out");
        const FleetResult result = runFleet({"run", "--corebench", corebench, "--out", out});
        EXPECT_EQ(result.status, status);
        EXPECT_TRUE(result.err.contains(message)) << result.err.toStdString();
        // No record; a corebench that ran leaves its log, and the message names it.
        const QStringList files = filesIn(out + "/" + kHost);
        ASSERT_EQ(files.size(), status == 3 ? 0 : 1);
        EXPECT_TRUE(files.isEmpty() ||
                    (files[0].endsWith(".log") && result.err.contains(files[0].toUtf8())));
    }
}

TEST_F(FleetRun, UnwritableFoldersAndBadArguments) {
    const QString corebench = replaying("singlespeed-divider1.log", 22);
    writeFile(path("plainfile"), "x");
    EXPECT_EQ(runFleet({"run", "--corebench", corebench, "--out", path("plainfile/sub")}).status,
              6);
    EXPECT_FALSE(QFile::exists(path("args"))) << "nothing is run when nothing can be kept";
    EXPECT_EQ(runFleet({"run", "--corebench", corebench, "--out", path("o2"), "--prom",
                        path("plainfile/prom")})
                  .status,
              6);
    EXPECT_EQ(filesIn(path("o2/") + kHost, "*.json").size(), 1)
        << "the record is written before the .prom";
}

TEST_F(FleetRun, ImportsExistingLogs) {
    QDir().mkpath(path("logs"));
    QFile::copy(kData + "/allverbose-divider0-houdini.log", path("logs/node03.farm.log"));
    QFile::copy(kData + "/singlespeed-plain.log", path("logs/node04.log"));
    writeFile(path("logs/broken.log"), "12:00.00\nOperatingSystem: MAC\n");
    QFile aged(path("logs/node03.farm.log"));
    ASSERT_TRUE(aged.open(QIODevice::ReadWrite));
    aged.setFileTime(QDateTime(QDate(2024, 2, 29), QTime(23, 59, 59), Qt::UTC),
                     QFileDevice::FileModificationTime);
    aged.close();
    const FleetResult result =
        runFleet({"import", "--out", path("records"), path("logs/node03.farm.log"),
                  path("logs/broken.log"), path("logs/node04.log"), path("logs/missing.log")});
    // Two could not be read; the others are recorded all the same.
    EXPECT_EQ(result.status, 5);
    EXPECT_TRUE(result.err.contains("broken.log: corebench's output did not parse"));
    EXPECT_TRUE(result.err.contains("missing.log: cannot read")) << result.err.toStdString();
    // The run ended at the log's time and took Time_Exec (239 s).
    EXPECT_EQ(filesIn(path("records")), QStringList()) << "each host has its folder";
    EXPECT_TRUE(filesIn(path("records/node04")).value(0).startsWith("node04-SingleSpeed-"));
    EXPECT_EQ(filesIn(path("records/node03")),
              QStringList{"node03-AllVerbose-20240229T235600Z.json"});
    expectJsonHas(onlyRecord(path("records/node03")),
                  R"({"source": "import", "status": null, "corebench_sha256": null,
                      "duration_s": 239})");

    // --host and --test override what the name and the log say.
    const FleetResult named = runFleet({"import", "--host", "render-9", "--test", "single5",
                                        "--out", path("named"), path("logs/node04.log")});
    EXPECT_EQ(named.status, 0);
    EXPECT_TRUE(named.err.contains("only its last run")) << named.err.toStdString();
    expectJsonHas(onlyRecord(path("named/render-9")), R"({"host": "render-9", "test": "Single5"})");
    // The same log again in the same second: a second record, the first one kept.
    runFleet({"import", "--host", "render-9", "--out", path("named"), path("logs/node04.log")});
    EXPECT_EQ(filesIn(path("named/render-9")).size(), 2);
}

TEST(FleetProgram, RefusesBadArgumentsWithStatus2) {
    QTemporaryDir dir;
    const QString log = kData + "/singlespeed-plain.log";
    const std::pair<QStringList, const char*> cases[] = {
        {{}, "Usage:"},
        {{"frobnicate"}, "unknown command"},
        {{"run", "--bogus"}, "Unknown option"},
        {{"import"}, "at least one LOG"},
        {{"import", "--test", "Quick", log}, "unknown test"},
        // A name that would make CSV rows, start an option or leave the folder.
        {{"import", "--host", "n1\nn2,drain", log}, "is not valid"},
        {{"import", "--host", "-rf", log}, "is not valid"},
        {{"import", "--host", "../etc", log}, "is not valid"},
        {{"import", "--host", QString(64, 'a'), log}, "is not valid"},
        {{"compare"}, "at least one PATH"},
        {{"compare", dir.path()}, "no records found"},
        {{"compare", "--format", "xml", dir.path()}, "--format must be"},
        {{"compare", "--floor", "-1", dir.path()}, "--floor must be"},
        {{"compare", "--z", "abc", dir.path()}, "--z must be"},
        {{"compare", "--colour", dir.path()}, "Unknown option"},
    };
    for (const auto& [arguments, message] : cases) {
        const FleetResult result = runFleet(arguments);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_TRUE(result.err.contains(message)) << result.err.toStdString();
    }
    EXPECT_TRUE(QDir(dir.path()).isEmpty()) << "nothing written";
}

// The real corebench once: its quickest test, a few seconds of one core.
TEST(FleetRealCorebench, SingleSpeedRecordMatchesItsLog) {
    QTemporaryDir dir;
    QProcess fleet;
    fleet.setStandardInputFile(QProcess::nullDevice());
    fleet.start(COREBENCH_FLEET, {"run", "--corebench", COREBENCH_BINARY, "--out", dir.path(), "--",
                                  "SingleSpeed", "exitCodeThreshold", "1"});
    // corebench's output is shown as it is printed: the summary comes before the test, which
    // sleeps 450 ms and polls every 500 ms whatever the machine's speed.
    QElapsedTimer clock;
    clock.start();
    QByteArray out;
    while (!out.contains("OperatingSystem: MAC\n") && fleet.waitForReadyRead(60000)) {
        out += fleet.readAllStandardOutput();
    }
    const qint64 summaryAt = clock.elapsed();
    if (fleet.state() != QProcess::NotRunning && !fleet.waitForFinished(300000)) {
        fleet.kill();
        fleet.waitForFinished(5000);
        FAIL() << "corebench-fleet did not finish in 300 s";
    }
    EXPECT_GE(clock.elapsed() - summaryAt, 500) << "the summary came only with the end of the run";
    out += fleet.readAllStandardOutput();
    ASSERT_EQ(fleet.exitCode(), 0) << fleet.readAllStandardError().toStdString();
    const QString folder = dir.filePath(kHost);
    const QJsonObject record = onlyRecord(folder);
    const QByteArray log = readFile(QDir(folder).filePath(filesIn(folder, "*.log").value(0)));
    EXPECT_EQ(out, log);
    const QRegularExpressionMatch ps =
        QRegularExpression("\nPS_Result: (\\d+\\.\\d{3})\nReturning exit code (\\d+)\n")
            .match(QString::fromLatin1(log));
    ASSERT_TRUE(ps.hasMatch()) << log.toStdString();
    EXPECT_EQ(record["ps_result"].toDouble(), ps.captured(1).toDouble());
    EXPECT_EQ(record["exit_value"].toInt(), ps.captured(2).toInt());
    EXPECT_EQ(record["status"].toInt(), std::min(ps.captured(2).toInt(), 255));
    EXPECT_EQ(record["threads"].toInt(), 1);
    EXPECT_EQ(record["corebench_sha256"].toString(), sha256(COREBENCH_BINARY));
    EXPECT_FALSE(record["cpu_model"].toString().isEmpty());
    EXPECT_GE(record["logical_cpus"].toInt(), 1);
    EXPECT_GT(record["duration_s"].toDouble(), 0.9) << "corebench's sleeps alone take that";
}

}  // namespace
