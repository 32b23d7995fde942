#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <map>
#include <vector>

#include "command_options.h"
#include "fleet_commands.h"
#include "log_parser.h"
#include "prom_file.h"
#include "record_files.h"
#include "record_from_log.h"
#include "record_names.h"
#include "safe_file.h"
#include "test_names.h"

namespace {

// A log of 100 MB is already far beyond any corebench printed (a few KB); this bounds memory.
constexpr qint64 kMaxLogBytes = 256 << 20;

}  // namespace

int importCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Makes records of existing corebench logs; after a bad log it goes on "
                       "with the others and exits with the highest status met.\n") +
        exitStatusHelp({kStatusOk, kStatusUsage, kStatusUnparsed, kStatusUnwritable}));
    parser.addOptions({
        {QStringLiteral("host"),
         QStringLiteral("Host name (default: the log's name up to its first dot)."),
         QStringLiteral("NAME")},
        {QStringLiteral("test"),
         QStringLiteral("Test that printed the logs (default: read from the log)."),
         QStringLiteral("NAME")},
        {QStringLiteral("out"), QStringLiteral("Folder of the records (default: current folder)."),
         QStringLiteral("DIR"), QStringLiteral(".")},
        {QStringLiteral("prom"), QStringLiteral("Also write corebench.prom into this folder."),
         QStringLiteral("DIR")},
    });
    parser.addPositionalArgument(QStringLiteral("LOG"), QStringLiteral("corebench logs."),
                                 QStringLiteral("LOG..."));
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    QString out;
    QString prom;
    if (!folderOption(parser, QStringLiteral("out"), &out) ||
        !folderOption(parser, QStringLiteral("prom"), &prom)) {
        return kStatusUsage;
    }
    const QStringList logs = parser.positionalArguments();
    const QString host = parser.value(QStringLiteral("host"));
    if (parser.isSet(QStringLiteral("host")) && !isValidName(host)) {
        printMessage(invalidHostMessage(host));
        return kStatusUsage;
    }
    QString test;
    if (parser.isSet(QStringLiteral("test"))) {
        test = canonicalTestName(parser.value(QStringLiteral("test")));
        if (test.isEmpty()) {
            printMessage(
                QStringLiteral("unknown test \"%1\"").arg(parser.value(QStringLiteral("test"))));
            return kStatusUsage;
        }
    }
    if (logs.isEmpty()) {
        printMessage(QStringLiteral("import needs at least one LOG"));
        return kStatusUsage;
    }
    QString folderError;
    if (!makeFolders(out, &folderError)) {
        printMessage(folderError);
        return kStatusUnwritable;
    }
    std::vector<Record> imported;
    for (const QString& path : logs) {
        FileIdentity identity;
        QString error;
        const std::optional<QByteArray> bytes =
            readRegularFile(path, kMaxLogBytes, &identity, &error);
        if (!bytes) {
            printMessage(QStringLiteral("%1: %2").arg(path, error));
            status = std::max<int>(status, kStatusUnparsed);
            continue;
        }
        const ParsedLog log = parseCorebenchLog(*bytes);
        if (!log.ok) {
            printMessage(
                QStringLiteral("%1: corebench's output did not parse: %2").arg(path, log.problem));
            status = std::max<int>(status, kStatusUnparsed);
            continue;
        }
        const QFileInfo info(path);
        RecordOrigin origin;
        origin.host = parser.isSet(QStringLiteral("host")) ? host : shortHostName(info.fileName());
        if (!isValidName(origin.host)) {
            printMessage(QStringLiteral("%1: %2; name it with --host")
                             .arg(path, invalidHostMessage(origin.host)));
            status = std::max<int>(status, kStatusUsage);
            continue;
        }
        origin.test = test.isEmpty() ? inferTestName(log) : test;
        // A log says when it ended (its time stamps are local clock times without a date); the
        // run started the test's duration before.
        origin.durationS = log.timeExecS
                               ? std::optional<double>(static_cast<double>(*log.timeExecS))
                               : std::nullopt;
        origin.startedAt = info.lastModified().toUTC().addSecs(-log.timeExecS.value_or(0));
        origin.source = QStringLiteral("import");
        QString warning;
        const Record record = recordFromLog(log, origin, &warning);
        if (!warning.isEmpty()) {
            printMessage(QStringLiteral("%1: %2").arg(path, warning));
        }
        // What a reader would refuse is not written: the node would never be judged again.
        const std::optional<QByteArray> recordBytes =
            recordFileBytes(record, QDateTime::currentDateTimeUtc(), &error);
        if (!recordBytes) {
            printMessage(QStringLiteral("%1: no record written, as a reader would refuse it: %2")
                             .arg(path, error));
            status = std::max<int>(status, kStatusUsage);
            continue;
        }
        const QString folder = recordFolder(out, record.host, record.startedAt);
        const QString target =
            makeFolders(folder, &error)
                ? publishNewFile(QDir(folder).filePath(
                                     recordBaseName(record.host, record.test, record.startedAt) +
                                     QStringLiteral(".json")),
                                 *recordBytes, &error)
                : QString();
        if (target.isEmpty()) {
            printMessage(error);
            status = std::max<int>(status, kStatusUnwritable);
            continue;
        }
        printMessage(QStringLiteral("%1: recorded %2").arg(path, target));
        imported.push_back(record);
    }
    if (!prom.isEmpty()) {
        // The newest record of a test is the one its series show.
        std::stable_sort(imported.begin(), imported.end(), [](const Record& a, const Record& b) {
            return a.startedAt < b.startedAt;
        });
        // Each host's folder is read once, with every record just written in it.
        std::map<QString, std::vector<Record>> histories;
        for (const Record& record : imported) {
            auto history = histories.find(record.host);
            if (history == histories.end()) {
                history = histories.emplace(record.host, baselineHistory(out, record.host)).first;
            }
            if (!writePromFile(record, history->second, prom)) {
                return kStatusUnwritable;
            }
        }
    }
    return status;
}
