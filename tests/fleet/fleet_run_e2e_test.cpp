// corebench-fleet run and import as programs, with stand-ins for corebench that replay captured
// output, crash, print nothing, cannot start or tell the conditions of their run, and once with
// the real corebench.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QSysInfo>
#include <QTemporaryDir>
#include <csignal>
#include <cstring>

#include "fleet_test_support.h"

namespace {

const QString kData = QStringLiteral(FLEET_TEST_DATA);
// run keeps a host's files in a folder of its own below --out.
const QString kHost = QSysInfo::machineHostName().section('.', 0, 0);

QStringList filesIn(const QString& dir, const QString& pattern = "*") {
    return QDir(newestMonthFolder(dir)).entryList({pattern}, QDir::Files, QDir::Name);
}

QJsonObject onlyRecord(const QString& dir) {
    const QStringList records = filesIn(dir, QStringLiteral("*.json"));
    EXPECT_EQ(records.size(), 1) << records.join(' ').toStdString();
    return QJsonDocument::fromJson(
               readFile(QDir(newestMonthFolder(dir)).filePath(records.value(0))))
        .object();
}

QString sha256(const QString& path) {
    return QCryptographicHash::hash(readFile(path), QCryptographicHash::Sha256).toHex();
}

// A stand-in measures nothing: its runs take the conditions of conditions.json, clean unless a
// test writes others.
class FleetRun : public ::testing::Test {
  protected:
    void SetUp() override {
        QFile::copy(kData + "/conditions-clean.json", path("conditions.json"));
        qputenv("COREBENCH_FLEET_TEST_CONDITIONS", path("conditions.json").toUtf8());
    }
    void TearDown() override { qunsetenv("COREBENCH_FLEET_TEST_CONDITIONS"); }

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
    EXPECT_EQ(readFile(newestMonthFolder(path("out/") + host) + "/" + base + ".log"), captured);
    EXPECT_EQ(record["host"].toString(), host);
    EXPECT_EQ(record["corebench_sha256"].toString(), sha256(corebench));
    expectJsonHas(record, R"({"source": "run", "status": 24, "ps_result": 24.488})");
    const FleetResult history = runFleet({"history", host, path("out")});
    EXPECT_TRUE(history.out.contains("      24.488        1  run     segment 1: "))
        << history.out.toStdString();

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
        // A record a reader would refuse (larger than 1 MiB) is not written.
        {"#!/bin/sh\nawk '/^CPU Description:/ { s = \"x\"; while (length(s) < 1100000) s = s s; "
         "$0 = \"CPU Description:     \" s } { print }' '" +
             kData.toUtf8() + "/singlespeed-divider1.log'\n",
         exec, 2, "a reader would refuse it: the record would be 209"},
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

// While the conditions say that other work took the worker's CPU, the run is marked and run again
// after the pause, up to --reruns times; every run keeps its record.
TEST_F(FleetRun, DisturbedRunsAreRunAgainAndEveryRecordKept) {
    QFile::copy(path("conditions.json"), path("clean.json"));
    writeFile(path("disturbed.json"), readFile(path("clean.json"))
                                          .replace("\"other_share_of_worker_cpus\": 0.01",
                                                   "\"other_share_of_worker_cpus\": 0.5"));
    // The stand-in's first runs (as many as the file "disturbed" says) are disturbed.
    writeFile(path("corebench"),
              QStringLiteral(
                  "#!/bin/sh\ncd '%1'\nn=$(cat runs 2>/dev/null || echo 0)\n"
                  "echo $((n + 1)) > runs\n"
                  "if [ \"$n\" -lt \"$(cat disturbed)\" ]; then cp disturbed.json conditions.json\n"
                  "else cp clean.json conditions.json; fi\ncat '%2/singlespeed-plain.log'\n")
                  .arg(dir.path(), kData)
                  .toUtf8(),
              QFile::ReadOwner | QFile::ExeOwner);
    const QString cause = "other work used 0.50 of the worker's CPU";
    const struct {
        const char* disturbed;
        const char* reruns;
        std::vector<bool> marked;  // each run's, in order
        const char* last;          // the last message
    } cases[] = {
        {"0", "2", {false}, "recorded"},
        {"1", "0", {true}, "the run was disturbed: other work used 0.50"},
        {"2", "2", {true, true, false}, "2 of 3 run(s) disturbed; the record of every run is kept"},
        {"9", "1", {true, true}, "2 of 2 run(s) disturbed; the record of every run is kept"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.disturbed);
        QDir(path("out")).removeRecursively();
        QFile::remove(path("runs"));
        writeFile(path("disturbed"), row.disturbed);
        const FleetResult result =
            runFleet({"run", "--corebench", path("corebench"), "--out", path("out"), "--reruns",
                      row.reruns, "--pause", "0", "--", "SingleSpeed"});
        ASSERT_EQ(result.status, 0) << result.err.toStdString();
        const QStringList lines = QString::fromUtf8(result.err).trimmed().split('\n');
        EXPECT_TRUE(lines.last().contains(row.last)) << result.err.toStdString();
        // In run order: a second's first record is "...Z.json", the next ones "...Z-2.json"...
        QStringList records = filesIn(path("out/") + kHost, "*.json");
        std::sort(records.begin(), records.end(), [](QString a, QString b) {
            return a.replace("Z.json", "Z-1.json") < b.replace("Z.json", "Z-1.json");
        });
        ASSERT_EQ(records.size(), static_cast<int>(row.marked.size())) << result.err.toStdString();
        for (size_t i = 0; i < row.marked.size(); ++i) {
            const QJsonObject record =
                QJsonDocument::fromJson(readFile(newestMonthFolder(path("out/") + kHost) + "/" +
                                                 records[static_cast<int>(i)]))
                    .object();
            EXPECT_EQ(record["disturbed"].toArray(),
                      row.marked[i] ? QJsonArray{cause} : QJsonArray())
                << i;
            EXPECT_EQ(
                result.err.contains(
                    QStringLiteral("rerun %1 of %2 in 0 s").arg(i + 1).arg(row.reruns).toUtf8()),
                row.marked[i] && i + 1 < row.marked.size())
                << i;
        }
    }
}

TEST_F(FleetRun, UnwritableFoldersRunNothing) {
    const QString corebench = replaying("singlespeed-divider1.log", 22);
    writeFile(path("plainfile"), "x");
    QDir().mkpath(path("linked"));
    QDir().mkpath(path("elsewhere"));
    // The host's folder or --out planted as a link: the records would go where it points.
    ASSERT_EQ(symlink(qPrintable(path("elsewhere")), qPrintable(path("linked/") + kHost)), 0);
    ASSERT_EQ(symlink(qPrintable(path("elsewhere")), qPrintable(path("out-link"))), 0);
    for (const char* out : {"plainfile/sub", "linked", "out-link"}) {
        EXPECT_EQ(runFleet({"run", "--corebench", corebench, "--out", path(out)}).status, 6);
    }
    EXPECT_FALSE(QFile::exists(path("args"))) << "nothing is run when nothing can be kept";
    EXPECT_TRUE(QDir(path("elsewhere")).isEmpty());
}

// --out, --prom and the host's folder are made one way: mode 0755 whatever the umask, and never
// a link where the folder written into should be.
TEST_F(FleetRun, MakesEveryFolderOneWay) {
    QDir().mkpath(path("elsewhere"));
    ASSERT_EQ(symlink(qPrintable(path("elsewhere")), qPrintable(path("prom-link"))), 0);
    const mode_t umaskBefore = umask(077);
    const FleetResult result =
        runFleet({"import", "--host", "n1", "--out", path("new/records"), "--prom",
                  path("prom-link"), kData + "/singlespeed-plain.log"});
    umask(umaskBefore);
    EXPECT_EQ(result.status, 6);
    EXPECT_TRUE(result.err.contains(path("prom-link").toUtf8() + " is not a folder but a symbolic"))
        << result.err.toStdString();
    EXPECT_TRUE(QDir(path("elsewhere")).isEmpty());
    for (const char* folder : {"new", "new/records", "new/records/n1"}) {
        EXPECT_EQ(QFileInfo(path(folder)).permissions(),
                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser |
                      QFile::WriteUser | QFile::ExeUser | QFile::ReadGroup | QFile::ExeGroup |
                      QFile::ReadOther | QFile::ExeOther)
            << folder;
    }
}

// A file that would pass the file size limit (ulimit -f) is a write that failed, as on a full
// disk: status 6, no temporary file left, no record that was not written whole. corebench itself
// runs with the system's default for the limit's signal.
TEST_F(FleetRun, FileSizeLimitIsAFailedWrite) {
    const QString log = kData + "/singlespeed-divider1.log";
    writeFile(path("corebench"),
              ("#!/bin/sh\nawk '/^SigIgn/ { print $2 }' /proc/$$/status > '" + path("ignored") +
               "'\ncat '" + log + "'\n")
                  .toUtf8(),
              QFile::ReadOwner | QFile::ExeOwner);
    const QString out = path("out");
    // 100 bytes: less than any log or record.
    const std::pair<QStringList, QString> cases[] = {
        {{"run", "--out", out, "--corebench", path("corebench")}, "cannot write the log"},
        {{"import", "--host", "n1", "--out", out, log},
         ".json: " + QString::fromLocal8Bit(strerror(EFBIG))},
    };
    for (const auto& [arguments, message] : cases) {
        SCOPED_TRACE(message.toStdString());
        const FleetResult result =
            runFleet(QStringList{"--fsize=100", fleetProgram()} + arguments, "prlimit");
        EXPECT_EQ(result.status, 6);
        EXPECT_TRUE(result.err.contains(message.toUtf8())) << result.err.toStdString();
        QStringList files;
        for (QDirIterator it(out, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
             it.hasNext();) {
            files << it.next();
        }
        EXPECT_EQ(files.filter(".tmp").size(), 0) << files.join(' ').toStdString();
        EXPECT_EQ(files.filter(".json").size(), 0) << files.join(' ').toStdString();
    }
    EXPECT_EQ(
        readFile(path("ignored")).trimmed().toULongLong(nullptr, 16) & (1ULL << (SIGXFSZ - 1)), 0u);
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
    EXPECT_TRUE(runFleet({"history", "node03", path("records")})
                    .out.contains("AllVerbose: 1 runs, 1 with a score, 1 segment(s)\n"
                                  "  started_at              ps_result  segment  source  note\n"
                                  "  2024-02-29T23:56:00Z"));

    // The writer refuses what every reader would: a record larger than 1 MiB, a start in the
    // future (the log's time is its modification time).
    writeFile(path("logs/big.log"),
              capturedLog("singlespeed-plain.log")
                  .replace("Intel(R) Xeon(R) Processor", QByteArray(1100000, 'x')));
    QFile::copy(kData + "/singlespeed-plain.log", path("logs/ahead.log"));
    QFile ahead(path("logs/ahead.log"));
    ASSERT_TRUE(ahead.open(QIODevice::ReadWrite));
    ahead.setFileTime(QDateTime::currentDateTimeUtc().addSecs(3600),
                      QFileDevice::FileModificationTime);
    ahead.close();
    const FleetResult refused = runFleet(
        {"import", "--out", path("refused"), path("logs/big.log"), path("logs/ahead.log")});
    EXPECT_EQ(refused.status, 2);
    for (const char* message :
         {"big.log: no record written, as a reader would refuse it: the record would be 1100",
          "ahead.log: no record written, as a reader would refuse it: \"started_at\""}) {
        EXPECT_TRUE(refused.err.contains(message)) << refused.err.toStdString();
    }
    EXPECT_EQ(filesIn(path("refused/big")) + filesIn(path("refused/ahead")), QStringList());

    // --host and --test override what the name and the log say.
    const FleetResult named = runFleet({"import", "--host", "render-9", "--test", "single5",
                                        "--out", path("named"), path("logs/node04.log")});
    EXPECT_EQ(named.status, 0);
    EXPECT_TRUE(named.err.contains("only its last run")) << named.err.toStdString();
    expectJsonHas(onlyRecord(path("named/render-9")), R"({"host": "render-9", "test": "Single5"})");
}

// Links another user could plant where the next runs' log and record and the .prom go: none is
// written through, the files take the next free name, the .prom link is replaced.
TEST_F(FleetRun, WritesNoFileThroughALink) {
    writeFile(path("victim"), "root only");
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QString folder = path("out/") + kHost + now.toString("/yyyy-MM");  // the run's month
    QDir().mkpath(folder);
    QDir().mkpath(path("prom"));
    for (int second = 0; second < 60; ++second) {
        for (const char* suffix : {".log", ".json"}) {
            const QString name = folder + "/" + kHost + "-SingleSpeed-" +
                                 now.addSecs(second).toString("yyyyMMdd'T'HHmmss'Z'") + suffix;
            ASSERT_EQ(symlink(qPrintable(path("victim")), qPrintable(name)), 0);
        }
    }
    ASSERT_EQ(symlink(qPrintable(path("victim")), qPrintable(path("prom/corebench.prom"))), 0);
    const FleetResult result =
        runFleet({"run", "--corebench", replaying("singlespeed-divider1.log", 22), "--out",
                  path("out"), "--prom", path("prom"), "--", "SingleSpeed"});
    ASSERT_EQ(result.status, 0) << result.err.toStdString();
    EXPECT_EQ(readFile(path("victim")), "root only");
    EXPECT_EQ(QDir(folder).entryList({"*-2.*"}, QDir::Files | QDir::NoSymLinks).size(), 2);
    EXPECT_FALSE(QFileInfo(path("prom/corebench.prom")).isSymLink());
    EXPECT_TRUE(readFile(path("prom/corebench.prom")).contains("test=\"SingleSpeed\"} 22.444"));
}

// Two tests ending together on a node both keep their series in the one .prom.
TEST(FleetProm, WritersEndingTogetherBothSurvive) {
    for (int round = 0; round < 5; ++round) {
        QTemporaryDir dir;
        QProcess writers[2];
        const char* logs[] = {"singlespeed-plain.log", "allverbose-divider0-houdini.log"};
        for (int i = 0; i < 2; ++i) {
            startProgram(writers[i], fleetProgram(),
                         {"import", "--host", "n1", "--out", dir.path(), "--prom", dir.path(),
                          kData + "/" + logs[i]});
        }
        for (QProcess& writer : writers) {
            ASSERT_TRUE(writer.waitForFinished(60000));
            EXPECT_EQ(writer.exitCode(), 0) << writer.readAllStandardError().toStdString();
        }
        const QByteArray prom = readFile(dir.filePath("corebench.prom"));
        EXPECT_TRUE(prom.contains("corebench_score_ps{test=\"SingleSpeed\"}")) << round;
        EXPECT_TRUE(prom.contains("corebench_score_ps{test=\"AllVerbose\"}")) << round;
    }
}

// The .prom is the same bytes from every build: UTF-8 without a byte-order mark, LF line ends, a
// final newline, text of the record (a CPU model) as UTF-8 (windows_exporter reads no other).
TEST(FleetProm, SameBytesOnEverySystem) {
    QTemporaryDir dir;
    const QByteArray model = "Intel\u00ae Xeon\u00ae \u00c9dition \u2013 8\u00d7\u00b2";
    writeFile(dir.filePath("node.log"),
              capturedLog("singlespeed-plain.log").replace("Intel(R) Xeon(R) Processor", model));
    QFile log(dir.filePath("node.log"));
    ASSERT_TRUE(log.open(QIODevice::ReadWrite));
    // The run started at 17:13:00 and took Time_Exec, 6 s.
    log.setFileTime(QDateTime(QDate(2026, 11, 23), QTime(17, 13, 6), Qt::UTC),
                    QFileDevice::FileModificationTime);
    log.close();
    const FleetResult result = runFleet({"import", "--out", dir.filePath("records"), "--prom",
                                         dir.filePath("prom"), dir.filePath("node.log")});
    ASSERT_EQ(result.status, 0) << result.err.toStdString();
    const QByteArray expected =
        R"(# HELP corebench_score_ps Score (PS) of the latest corebench run of the test.
# TYPE corebench_score_ps gauge
corebench_score_ps{test="SingleSpeed"} 21.505
# HELP corebench_thread_score_ps Score (PS) of each worker thread in the latest run of the test.
# TYPE corebench_thread_score_ps gauge
corebench_thread_score_ps{test="SingleSpeed",thread="0"} 10.753
# HELP corebench_last_run_timestamp_seconds Start of the latest corebench run of the test, in seconds since the epoch.
# TYPE corebench_last_run_timestamp_seconds gauge
corebench_last_run_timestamp_seconds{test="SingleSpeed"} 1795453980
# HELP corebench_run_duration_seconds Duration of the latest corebench run of the test.
# TYPE corebench_run_duration_seconds gauge
corebench_run_duration_seconds{test="SingleSpeed"} 6
# HELP corebench_run_disturbed 1 when other work, steal or waiting for a CPU disturbed the latest corebench run of the test, 0 when it was clean; absent where unknown.
# TYPE corebench_run_disturbed gauge
# HELP corebench_baseline_score_ps Median score (PS) of the node's last 20 earlier runs of the test in the same configuration; from 3 such runs on.
# TYPE corebench_baseline_score_ps gauge
# HELP corebench_drift_ratio Level of the node's runs of the test since its current drift over the level before it, found in its own records as compare finds it; 1 when they show no current drop.
# TYPE corebench_drift_ratio gauge
corebench_drift_ratio{test="SingleSpeed"} 1
# HELP corebench_info The CPU and corebench binary of the latest run; always 1.
# TYPE corebench_info gauge
corebench_info{cpu_model=")" +
        model + "\",corebench_sha256=\"\"} 1\n";
    // As text, so that a difference shows as a line rather than as a list of bytes.
    EXPECT_EQ(readFile(dir.filePath("prom/corebench.prom")).toStdString(), expected.toStdString());
}

// A full disk under the records, then under the .prom only: status 6, no "recorded" for what was
// not, nothing that looks like a record, the old .prom kept.
TEST(FleetFullDisk, NothingRecordedAndTheOldPromKept) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "a tmpfs in a private mount namespace needs root";
    }
    QTemporaryDir dir;
    const char* script = R"(cd "$1" || exit 90
mkdir full roomy && mount -t tmpfs -o size=64k tmpfs full && mount -t tmpfs tmpfs roomy || exit 91
for d in full roomy; do mkdir -p $d/records/n1 $d/prom && echo old > $d/prom/corebench.prom; done
head -c 1m /dev/zero > full/fill 2>/dev/null
"$2" import --host n1 --out full/records --prom full/prom "$3" 2> err1; echo $? > rc1
"$2" import --host n1 --out roomy/records --prom full/prom "$3" 2> err2; echo $? > rc2
find full roomy -type f ! -name fill | sort > files; cat full/prom/corebench.prom > prom)";
    const FleetResult result = runFleet({"-m", "bash", "-c", script, "_", dir.path(),
                                         COREBENCH_FLEET, kData + "/singlespeed-plain.log"},
                                        "unshare");
    ASSERT_EQ(result.status, 0) << result.err.toStdString();
    const QByteArray err1 = readFile(dir.filePath("err1"));
    EXPECT_EQ(readFile(dir.filePath("rc1")), "6\n") << err1.toStdString();
    EXPECT_FALSE(err1.contains("recorded"));
    EXPECT_EQ(readFile(dir.filePath("rc2")), "6\n");
    EXPECT_TRUE(readFile(dir.filePath("err2")).contains("recorded roomy/records/n1/"));
    const QStringList files = QString::fromUtf8(readFile(dir.filePath("files"))).split('\n');
    EXPECT_EQ(files.filter(".json").size(), 1) << files.join(' ').toStdString();
    EXPECT_TRUE(files.filter(".tmp").isEmpty()) << files.join(' ').toStdString();
    EXPECT_EQ(readFile(dir.filePath("prom")), "old\n");
}

// Called wrong (2) is told apart from records that are bad or missing (7) and from a check that
// lacks its evidence (8); nothing is written either way.
TEST(FleetProgram, StatusSaysWhetherItWasCalledWrongOrLacksInput) {
    QTemporaryDir dir;
    const QString log = kData + "/singlespeed-plain.log";
    const QStringList check{"check",  "--summary", dir.filePath("summary.json"), "--host", "n1",
                            "--test", "All"};
    const std::tuple<QStringList, int, const char*> cases[] = {
        {{"--help"}, 0, "\n  7  compare, history: a record unreadable or invalid"},
        {{"check", "--help"}, 0, "\n  8  check: cannot decide"},
        {{}, 2, "Usage:"},
        {{"frobnicate"}, 2, "unknown command"},
        {{"run", "--bogus"}, 2, "Unknown option"},
        {{"run", "--reruns", "11"}, 2, "--reruns takes a whole number from 0 to 10"},
        {{"run", "--pause", "-1"}, 2, "--pause one from 0 to 3600"},
        // An unset setting on a service's command line: no folder named "" or the current one.
        {{"run", "--out", "", "--prom", dir.path()}, 2, "--out is empty: it must name a folder"},
        {{"import", "--prom", "", log}, 2, "--prom is empty"},
        {{"idle", "--max-load", "1.5"}, 2, "--max-load takes a load per CPU from 0 to 1"},
        {{"idle", "--max-load", ""}, 2, "not \"\""},
        {{"idle", "0.1"}, 2, "idle takes no arguments"},
        // Windows keeps no load average.
        {{"idle", "--proc", dir.filePath("none")}, 8, "cannot tell whether the node is idle: "},
        {{"import"}, 2, "at least one LOG"},
        {{"import", "--test", "Quick", log}, 2, "unknown test"},
        // A name that would make CSV rows, start an option or leave the folder.
        {{"import", "--host", "n1\nn2,drain", log}, 2, "is not valid"},
        {{"import", "--host", "-rf", log}, 2, "is not valid"},
        {{"import", "--host", "node01\n", "--out", dir.path(), log}, 2, "is not valid"},
        {{"compare"}, 2, "at least one PATH"},
        {{"compare", "--format", "xml", dir.path()}, 2, "--format must be"},
        {{"compare", "--floor", "-1", dir.path()}, 2, "--floor must be"},
        {{"compare", "--z", "abc", dir.path()}, 2, "--z must be"},
        {{"compare", "--colour", dir.path()}, 2, "Unknown option"},
        {{"compare", dir.path()}, 7, "no records found"},
        {{"history", "n1", dir.path()}, 7, "no records of host \"n1\""},
        {{"check", dir.path()}, 2, "check needs --summary"},
        {check + QStringList{"--drift", "5", dir.path()}, 2, "--drift must be"},
        {check + QStringList{dir.filePath("none")}, 8, "cannot decide: cannot read the records"},
        // Linux names the missing file; elsewhere the trust rule cannot be checked at all.
        {check + QStringList{dir.path()}, 8, "cannot decide: "},
    };
    for (const auto& [arguments, status, message] : cases) {
        const FleetResult result = runFleet(arguments);
        EXPECT_EQ(result.status, status) << message;
        EXPECT_TRUE((result.err + result.out).contains(message))
            << message << ": " << result.err.toStdString() << result.out.toStdString();
    }
    EXPECT_TRUE(QDir(dir.path()).isEmpty()) << "nothing written";
}

// The real corebench once: its quickest test, a few seconds of one core (COREBENCH_TEST_PROGRAM
// names another build's).
TEST(FleetRealCorebench, SingleSpeedRecordMatchesItsLog) {
    QTemporaryDir dir;
    const QString corebench = qEnvironmentVariable("COREBENCH_TEST_PROGRAM", COREBENCH_BINARY);
    QProcess fleet;
    fleet.setStandardInputFile(QProcess::nullDevice());
    startProgram(fleet, fleetProgram(),
                 {"run", "--corebench", corebench, "--out", dir.path(), "--prom", dir.path(), "--",
                  "SingleSpeed", "exitCodeThreshold", "1"});
    // corebench's output is shown as it is printed: the summary comes before the test, which
    // sleeps 450 ms and polls every 500 ms whatever the machine's speed. Output held back to the
    // end would come a few milliseconds before the exit; the margin is for a loaded machine that
    // reads the summary late.
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
    EXPECT_GE(clock.elapsed() - summaryAt, 250) << "the summary came only with the end of the run";
    out += fleet.readAllStandardOutput();
    ASSERT_EQ(fleet.exitCode(), 0) << fleet.readAllStandardError().toStdString();
    const QString folder = dir.filePath(kHost);
    const QJsonObject record = onlyRecord(folder);
    const QByteArray log =
        readFile(QDir(newestMonthFolder(folder)).filePath(filesIn(folder, "*.log").value(0)));
    EXPECT_EQ(out, log);
    const QRegularExpressionMatch ps =
        QRegularExpression("\nPS_Result: (\\d+\\.\\d{3})\nReturning exit code (\\d+)\n")
            .match(QString::fromLatin1(log));
    ASSERT_TRUE(ps.hasMatch()) << log.toStdString();
    EXPECT_EQ(record["ps_result"].toDouble(), ps.captured(1).toDouble());
    EXPECT_EQ(record["exit_value"].toInt(), ps.captured(2).toInt());
    EXPECT_EQ(record["status"].toInt(), std::min(ps.captured(2).toInt(), 255));
    EXPECT_EQ(record["threads"].toInt(), 1);
    EXPECT_EQ(record["corebench_sha256"].toString(), sha256(corebench));
    EXPECT_FALSE(record["cpu_model"].toString().isEmpty());
    EXPECT_GE(record["logical_cpus"].toInt(), 1);
    EXPECT_GT(record["duration_s"].toDouble(), 0.9) << "corebench's sleeps alone take that";
    // The conditions are measured, the verdict known; which it is depends on the machine (under
    // Wine, which gives about 0.01 s for another process's CPU time, always disturbed).
    const QJsonObject conditions = record["conditions"].toObject();
    EXPECT_TRUE(conditions["cpu_share"].isDouble())
        << conditions["cpu_share"].toString().toStdString();
    EXPECT_GE(conditions["worker_threads"].toInt(), 1);
    EXPECT_TRUE(record["disturbed"].isArray());
    // The exposition format writes the shortest text of the number: 16.200 is 16.2 there.
    const QString promPs =
        QString::number(ps.captured(1).toDouble(), 'g', QLocale::FloatingPointShortest);
    EXPECT_TRUE(
        readFile(dir.filePath("corebench.prom"))
            .contains("corebench_score_ps{test=\"SingleSpeed\"} " + promPs.toUtf8() + "\n"));
}

}  // namespace
