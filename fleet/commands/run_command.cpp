#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSysInfo>
#include <cstdio>

#include "baseline.h"
#include "command_options.h"
#include "fleet_commands.h"
#include "log_parser.h"
#include "prom_file.h"
#include "pseudo_terminal.h"
#include "record_files.h"
#include "record_from_log.h"
#include "record_names.h"
#include "safe_file.h"
#include "test_names.h"

namespace {

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

}  // namespace

int runCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Runs corebench, shows its output and records the measurement.\n") +
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
    const QStringList corebenchArguments = parser.positionalArguments();
    const QString corebench = parser.isSet(QStringLiteral("corebench"))
                                  ? parser.value(QStringLiteral("corebench"))
                                  : QDir(QCoreApplication::applicationDirPath())
                                        .filePath(QStringLiteral(COREBENCH_PROGRAM_NAME));
    const QFileInfo corebenchInfo(corebench);
    if (!corebenchInfo.isFile() || !corebenchInfo.isExecutable()) {
        printMessage(QStringLiteral("corebench not found or not executable: %1").arg(corebench));
        return kStatusNotFound;
    }
    const std::optional<QString> sha256 = sha256Of(corebench);
    if (!sha256) {
        printMessage(QStringLiteral("cannot read corebench: %1").arg(corebench));
        return kStatusNotFound;
    }

    RecordOrigin origin;
    origin.host = shortHostName(QSysInfo::machineHostName());
    if (!isValidName(origin.host)) {
        printMessage(invalidHostMessage(origin.host));
        return kStatusUsage;
    }
    const QString out = parser.value(QStringLiteral("out"));
    const QString folder = hostFolder(out, origin.host);
    QString error;
    if (!makeFolders(out, &error) || !makeFolders(folder, &error)) {
        printMessage(error);
        return kStatusUnwritable;
    }
    const QString testWord = corebenchArguments.value(0);
    origin.test = canonicalTestName(testWord);
    origin.startedAt = QDateTime::currentDateTimeUtc();
    origin.corebenchSha256 = sha256;
    origin.source = QStringLiteral("run");
    // An unknown test name makes corebench print its usage, which then does not parse; the
    // files still carry the name that was asked for when it is a valid one.
    const QString fileTest = !origin.test.isEmpty()  ? origin.test
                             : isValidName(testWord) ? testWord
                                                     : QStringLiteral("unknown");
    QFile log;
    const QString logName = createNewFile(
        QDir(folder).filePath(recordBaseName(origin.host, fileTest, origin.startedAt) +
                              QStringLiteral(".log")),
        &log, &error);
    if (logName.isEmpty()) {
        printMessage(error);
        return kStatusUnwritable;
    }
    // The record takes the log's name, numbered as it was when another run had the same second.
    const QString recordPath = logName.left(logName.size() - 4) + QStringLiteral(".json");

    QProcess process;
    process.setProgram(corebenchInfo.absoluteFilePath());
    process.setArguments(corebenchArguments);
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
        printMessage(QStringLiteral("cannot start %1: %2").arg(corebench, process.errorString()));
        log.close();
        QFile::remove(logName);
        return kStatusNotFound;
    }
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
            const QByteArray chunk = terminal.read(1000, &ended);
            take(chunk);
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
            const bool more = process.waitForReadyRead(1000);
            take(process.readAllStandardOutput());
            if (!more && process.state() == QProcess::NotRunning) {
                break;
            }
        }
    }
    process.waitForFinished(-1);
    take(process.readAllStandardOutput());
    origin.durationS = static_cast<double>(timer.elapsed()) / 1000.0;
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
    const Record record = recordFromLog(parsed, origin, &warning);
    if (!warning.isEmpty()) {
        printMessage(warning);
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
    if (parser.isSet(QStringLiteral("prom")) &&
        !writePromFile(record, baselineScore(record, baselineHistory(out, record.host)),
                       parser.value(QStringLiteral("prom")))) {
        return kStatusUnwritable;
    }
    return kStatusOk;
}
