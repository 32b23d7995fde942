#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSysInfo>
#include <QThread>
#include <cstdio>

#include "command_options.h"
#include "conditions_probe.h"
#include "fleet_commands.h"
#include "log_parser.h"
#include "power_state_reader.h"
#include "prom_file.h"
#include "pseudo_terminal.h"
#include "record_conditions.h"
#include "record_files.h"
#include "record_from_log.h"
#include "record_names.h"
#include "safe_file.h"
#include "test_names.h"

namespace {

// How often the run's threads are looked at: a thread that ends keeps the figures of its last
// look, at most this old.
constexpr int kSampleIntervalMs = 250;
// A node that stays disturbed through this many reruns is for someone to look at.
constexpr int kMaxReruns = 10;
constexpr int kMaxPauseS = 3600;

// The end-to-end tests' stand-in for measuring: a file whose JSON object, in the record's
// "conditions" form, is taken as the conditions of each run, read as the run ends (so that a
// stand-in for corebench can write its own). Never set outside the tests.
const char kTestConditionsVariable[] = "COREBENCH_FLEET_TEST_CONDITIONS";

// What stays the same from one run to the next.
struct RunSettings {
    QString corebench;  // as given, for messages
    QString program;    // its absolute path
    QStringList arguments;
    RecordOrigin origin;  // host, test, build and source
    QString fileTest;     // the test as the files name it
    QString out;
    QString prom;  // empty without --prom
};

std::optional<RecordConditions> conditionsFromTestFile(const QString& path) {
    QFile file(path);
    QString error = QStringLiteral("cannot read it");
    std::optional<RecordConditions> conditions;
    if (file.open(QIODevice::ReadOnly) &&
        conditionsFromJson(QJsonDocument::fromJson(file.readAll()).object(), &conditions, &error) &&
        conditions) {
        return conditions;
    }
    printMessage(
        QStringLiteral("%1=%2: %3").arg(QLatin1String(kTestConditionsVariable), path, error));
    return std::nullopt;
}

std::optional<QString> sha256Of(const QString& path) {
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file)) {
        return std::nullopt;
    }
    return QString::fromLatin1(hash.result().toHex());
}

// Passes a chunk of corebench's output on to the terminal and into the log.
void passThrough(const QByteArray& chunk, QFile& log, bool* logFailed) {
    if (chunk.isEmpty()) {
        return;
    }
    fwrite(chunk.constData(), 1, static_cast<size_t>(chunk.size()), stdout);
    fflush(stdout);
    if (!*logFailed && log.write(chunk) != chunk.size()) {
        *logFailed = true;
    }
}

// Runs corebench once and records the measurement with the conditions of the run; disturbed
// gets the verdict on them.
int runOnce(const RunSettings& settings, std::optional<QStringList>* disturbed) {
    RecordOrigin origin = settings.origin;
    origin.startedAt = QDateTime::currentDateTimeUtc();
    QString error;
    const QString folder = recordFolder(settings.out, origin.host, origin.startedAt);
    if (!makeFolders(folder, &error)) {
        printMessage(error);
        return kStatusUnwritable;
    }
    QFile log;
    const QString logName = createNewFile(
        QDir(folder).filePath(recordBaseName(origin.host, settings.fileTest, origin.startedAt) +
                              QStringLiteral(".log")),
        &log, &error);
    if (logName.isEmpty()) {
        printMessage(error);
        return kStatusUnwritable;
    }
    // The record takes the log's name, numbered as it was when another run had the same second.
    const QString recordPath = logName.left(logName.size() - 4) + QStringLiteral(".json");

    QProcess process;
    process.setProgram(settings.program);
    process.setArguments(settings.arguments);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardInputFile(QProcess::nullDevice());
    PseudoTerminal terminal;
    if (terminal.isOpen()) {
        process.setStandardOutputFile(terminal.childPath());
    }
    QElapsedTimer timer;
    timer.start();
    process.start();
    if (!process.waitForStarted(-1)) {
        printMessage(
            QStringLiteral("cannot start %1: %2").arg(settings.corebench, process.errorString()));
        log.close();
        QFile::remove(logName);
        return kStatusNotFound;
    }
    // The conditions over the span of the run, and the power settings of the CPUs it may use
    // at its start and end.
    ConditionsWatch watch(systemConditionsProbe(process.processId()));
    const std::vector<int> cpus =
        watch.snapshots().during ? watch.snapshots().during->allowedCpus : std::vector<int>();
    const PowerState powerBefore = systemPowerState(cpus);
    QElapsedTimer sinceSample;
    sinceSample.start();
    const auto sample = [&] {
        if (sinceSample.elapsed() >= kSampleIntervalMs) {
            watch.sample();
            sinceSample.restart();
        }
    };
    terminal.closeChildSide();
    // No time limit: a corebench that never ends is for the job's own time limit to stop.
    QByteArray output;
    bool logFailed = false;
    auto take = [&](const QByteArray& chunk) {
        output += chunk;
        passThrough(chunk, log, &logFailed);
    };
    if (terminal.isOpen()) {
        for (bool ended = false; !ended;) {
            const QByteArray chunk = terminal.read(kSampleIntervalMs, &ended);
            take(chunk);
            sample();
            // Something corebench started may hold the terminal open after it ended: what is
            // there is read, then the run is over.
            if (!ended && chunk.isEmpty() && process.waitForFinished(0)) {
                for (QByteArray rest; !ended && !(rest = terminal.read(0, &ended)).isEmpty();) {
                    take(rest);
                }
                break;
            }
        }
    } else {
        for (;;) {
            const bool more = process.waitForReadyRead(kSampleIntervalMs);
            take(process.readAllStandardOutput());
            sample();
            if (!more && process.state() == QProcess::NotRunning) {
                break;
            }
        }
    }
    process.waitForFinished(-1);
    take(process.readAllStandardOutput());
    origin.durationS = static_cast<double>(timer.elapsed()) / 1000.0;
    watch.finish(0);
    const PowerState powerAfter = systemPowerState(cpus);
    if (!syncFile(&log)) {
        logFailed = true;
    }
    log.close();

    if (process.exitStatus() == QProcess::CrashExit) {
        printMessage(QStringLiteral("corebench was killed by a signal or crashed after %1 s; no "
                                    "record written; its output is kept in %2")
                         .arg(*origin.durationS, 0, 'f', 1)
                         .arg(logName));
        return kStatusCrashed;
    }
    origin.status = process.exitCode();
    const ParsedLog parsed = parseCorebenchLog(output);
    if (!parsed.ok) {
        printMessage(QStringLiteral("corebench's output did not parse: %1 (exit status %2); no "
                                    "record written; the raw log is kept in %3")
                         .arg(parsed.problem)
                         .arg(*origin.status)
                         .arg(logName));
        return kStatusUnparsed;
    }
    if (logFailed) {
        printMessage(QStringLiteral("cannot write the log %1").arg(logName));
        return kStatusUnwritable;
    }
    QString warning;
    Record record = recordFromLog(parsed, origin, &warning);
    if (!warning.isEmpty()) {
        printMessage(warning);
    }
    // The workers the log names stand in for those the system did not show (Windows).
    const QString testConditions = qEnvironmentVariable(kTestConditionsVariable);
    record.conditions =
        testConditions.isEmpty()
            ? recordConditions(runConditions(watch.snapshots(), record.threadPs.size()),
                               powerBefore, powerAfter)
            : conditionsFromTestFile(testConditions);
    if (record.conditions) {
        record.disturbed = disturbedCauses(record.conditions->figures);
    }
    // What a reader would refuse is not written: the node would never be judged again.
    const std::optional<QByteArray> bytes =
        recordFileBytes(record, QDateTime::currentDateTimeUtc(), &error);
    if (!bytes) {
        printMessage(QStringLiteral("no record written, as a reader would refuse it: %1; the raw "
                                    "log is kept in %2")
                         .arg(error, logName));
        return kStatusUsage;
    }
    const QString written = publishNewFile(recordPath, *bytes, &error);
    if (written.isEmpty()) {
        printMessage(error);
        return kStatusUnwritable;
    }
    printMessage(QStringLiteral("recorded %1").arg(written));
    if (isDisturbed(record)) {
        printMessage(QStringLiteral("the run was disturbed: %1; compare, drift and check leave it "
                                    "out")
                         .arg(record.disturbed->join(QStringLiteral("; "))));
    }
    *disturbed = record.disturbed;
    if (!settings.prom.isEmpty() &&
        !writePromFile(record, baselineHistory(settings.out, record.host), settings.prom)) {
        return kStatusUnwritable;
    }
    return kStatusOk;
}

}  // namespace

int runCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Runs corebench, shows its output and records the measurement with the "
                       "conditions of the run; with --reruns, runs it again while they say that "
                       "something else disturbed it.\n") +
        exitStatusHelp({kStatusOk, kStatusUsage, kStatusNotFound, kStatusCrashed, kStatusUnparsed,
                        kStatusUnwritable}));
    parser.addOptions({
        {QStringLiteral("out"),
         QStringLiteral("Folder of the record and log (default: current folder)."),
         QStringLiteral("DIR"), QStringLiteral(".")},
        {QStringLiteral("prom"), QStringLiteral("Also write corebench.prom into this folder."),
         QStringLiteral("DIR")},
        {QStringLiteral("corebench"),
         QStringLiteral("corebench to run (default: the one beside corebench-fleet)."),
         QStringLiteral("PATH")},
        {QStringLiteral("reruns"),
         QStringLiteral("Run again, up to N times (0 to 10), while the run was disturbed; every "
                        "run's record is kept (default: 0)."),
         QStringLiteral("N"), QStringLiteral("0")},
        {QStringLiteral("pause"),
         QStringLiteral("Seconds to wait before a rerun (0 to 3600, default: 60)."),
         QStringLiteral("SECONDS"), QStringLiteral("60")},
    });
    parser.addPositionalArgument(QStringLiteral("args"),
                                 QStringLiteral("corebench's arguments, after -- (default: All)."),
                                 QStringLiteral("[-- args...]"));
    // Everything from corebench's first argument on is corebench's, options included.
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    bool rerunsOk = false;
    bool pauseOk = false;
    const int reruns = parser.value(QStringLiteral("reruns")).toInt(&rerunsOk);
    const int pauseS = parser.value(QStringLiteral("pause")).toInt(&pauseOk);
    if (!rerunsOk || reruns < 0 || reruns > kMaxReruns || !pauseOk || pauseS < 0 ||
        pauseS > kMaxPauseS) {
        printMessage(QStringLiteral("--reruns takes a whole number from 0 to %1, --pause one "
                                    "from 0 to %2")
                         .arg(kMaxReruns)
                         .arg(kMaxPauseS));
        return kStatusUsage;
    }
    RunSettings settings;
    if (!folderOption(parser, QStringLiteral("out"), &settings.out) ||
        !folderOption(parser, QStringLiteral("prom"), &settings.prom)) {
        return kStatusUsage;
    }
    settings.arguments = parser.positionalArguments();
    settings.corebench = parser.isSet(QStringLiteral("corebench"))
                             ? parser.value(QStringLiteral("corebench"))
                             : QDir(QCoreApplication::applicationDirPath())
                                   .filePath(QStringLiteral(COREBENCH_PROGRAM_NAME));
    const QFileInfo corebenchInfo(settings.corebench);
    if (!corebenchInfo.isFile() || !corebenchInfo.isExecutable()) {
        printMessage(
            QStringLiteral("corebench not found or not executable: %1").arg(settings.corebench));
        return kStatusNotFound;
    }
    settings.program = corebenchInfo.absoluteFilePath();
    RecordOrigin& origin = settings.origin;
    origin.corebenchSha256 = sha256Of(settings.corebench);
    if (!origin.corebenchSha256) {
        printMessage(QStringLiteral("cannot read corebench: %1").arg(settings.corebench));
        return kStatusNotFound;
    }
    origin.host = shortHostName(QSysInfo::machineHostName());
    if (!isValidName(origin.host)) {
        printMessage(invalidHostMessage(origin.host));
        return kStatusUsage;
    }
    QString error;
    if (!makeFolders(settings.out, &error) ||
        !makeFolders(hostFolder(settings.out, origin.host), &error)) {
        printMessage(error);
        return kStatusUnwritable;
    }
    const QString testWord = settings.arguments.value(0);
    origin.test = canonicalTestName(testWord);
    origin.source = QStringLiteral("run");
    // An unknown test name makes corebench print its usage, which then does not parse; the
    // files still carry the name that was asked for when it is a valid one.
    settings.fileTest = !origin.test.isEmpty()  ? origin.test
                        : isValidName(testWord) ? testWord
                                                : QStringLiteral("unknown");
    for (int rerun = 0;; ++rerun) {
        std::optional<QStringList> disturbed;
        status = runOnce(settings, &disturbed);
        const bool again = status == kStatusOk && disturbed && !disturbed->isEmpty();
        if (!again || rerun == reruns) {
            if (rerun > 0 && status == kStatusOk) {
                printMessage(
                    QStringLiteral("%1 of %2 run(s) disturbed; the record of every run is kept")
                        .arg(again ? rerun + 1 : rerun)
                        .arg(rerun + 1));
            }
            return status;
        }
        printMessage(
            QStringLiteral("rerun %1 of %2 in %3 s").arg(rerun + 1).arg(reruns).arg(pauseS));
        QThread::sleep(static_cast<unsigned long>(pauseS));
    }
}
