#include "fleet_commands.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cstdio>

#include "compare_format.h"
#include "fleet_compare.h"
#include "log_parser.h"
#include "prom_export.h"
#include "record.h"
#include "record_files.h"
#include "test_names.h"

namespace {

// Parses the command's options; on an error prints it and returns false.
bool parseOptions(QCommandLineParser& parser, const QStringList& arguments, int* status) {
    parser.addHelpOption();
    if (!parser.parse(QStringList{QStringLiteral("corebench-fleet")} + arguments)) {
        printMessage(parser.errorText());
        *status = kStatusUsage;
        return false;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        fputs(qPrintable(parser.helpText()), stdout);
        *status = kStatusOk;
        return false;
    }
    return true;
}

bool positiveNumber(const QString& text, double* value) {
    bool ok = false;
    *value = text.toDouble(&ok);
    return ok && *value > 0.0;
}

}  // namespace

void printMessage(const QString& message) {
    fprintf(stderr, "corebench-fleet: %s\n", qPrintable(message));
    fflush(stderr);
}

bool exportToProm(const Record& record, const QString& promDir) {
    QString error;
    if (!QDir().mkpath(promDir)) {
        printMessage(QStringLiteral("cannot create the folder %1").arg(promDir));
        return false;
    }
    const QString path = QDir(promDir).filePath(QStringLiteral("corebench.prom"));
    QFile existing(path);
    const QByteArray before =
        existing.open(QIODevice::ReadOnly) ? existing.readAll() : QByteArray();
    if (!writeFileAtomically(path, promText(record, before), &error)) {
        printMessage(error);
        return false;
    }
    return true;
}

int importCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Makes records of existing corebench logs."));
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
    if (!parseOptions(parser, arguments.mid(1), &status)) {
        return status;
    }
    const QStringList logs = parser.positionalArguments();
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
    const QString out = parser.value(QStringLiteral("out"));
    if (!QDir().mkpath(out)) {
        printMessage(QStringLiteral("cannot create the folder %1").arg(out));
        return kStatusUnwritable;
    }
    std::vector<Record> imported;
    for (const QString& path : logs) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            printMessage(QStringLiteral("%1: cannot read: %2").arg(path, file.errorString()));
            status = std::max<int>(status, kStatusUnparsed);
            continue;
        }
        const ParsedLog log = parseCorebenchLog(file.readAll());
        if (!log.ok) {
            printMessage(
                QStringLiteral("%1: corebench's output did not parse: %2").arg(path, log.problem));
            status = std::max<int>(status, kStatusUnparsed);
            continue;
        }
        const QFileInfo info(path);
        RecordOrigin origin;
        origin.host = parser.isSet(QStringLiteral("host")) ? parser.value(QStringLiteral("host"))
                                                           : shortHostName(info.fileName());
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
        const QString target = QDir(out).filePath(
            recordBaseName(record.host, record.test, record.startedAt) + QStringLiteral(".json"));
        QString error;
        if (!writeFileAtomically(target, recordToBytes(record), &error)) {
            printMessage(error);
            status = std::max<int>(status, kStatusUnwritable);
            continue;
        }
        printMessage(QStringLiteral("%1: recorded %2").arg(path, target));
        imported.push_back(record);
    }
    if (parser.isSet(QStringLiteral("prom"))) {
        // The newest record of a test is the one its series show.
        std::stable_sort(imported.begin(), imported.end(), [](const Record& a, const Record& b) {
            return a.startedAt < b.startedAt;
        });
        for (const Record& record : imported) {
            if (!exportToProm(record, parser.value(QStringLiteral("prom")))) {
                return kStatusUnwritable;
            }
        }
    }
    return status;
}

int compareCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Compares records and flags slow nodes. Exit status 0: none flagged; "
                       "1: a node flagged; 2: bad input."));
    parser.addOptions({
        {QStringLiteral("format"), QStringLiteral("table (default), csv or json."),
         QStringLiteral("FORMAT"), QStringLiteral("table")},
        {QStringLiteral("floor"),
         QStringLiteral("Flag a score below this share of the group median."),
         QStringLiteral("RATIO"), QStringLiteral("0.90")},
        {QStringLiteral("z"), QStringLiteral("Flag a robust z below minus this."),
         QStringLiteral("Z"), QStringLiteral("3.5")},
    });
    parser.addPositionalArgument(QStringLiteral("PATH"),
                                 QStringLiteral("Records, or folders of them."),
                                 QStringLiteral("PATH..."));
    int status = kStatusOk;
    if (!parseOptions(parser, arguments.mid(1), &status)) {
        return status;
    }
    CompareOptions options;
    const QString format = parser.value(QStringLiteral("format"));
    if (format != QLatin1String("table") && format != QLatin1String("csv") &&
        format != QLatin1String("json")) {
        printMessage(QStringLiteral("--format must be table, csv or json, not \"%1\"").arg(format));
        return kStatusUsage;
    }
    if (!positiveNumber(parser.value(QStringLiteral("floor")), &options.floor)) {
        printMessage(QStringLiteral("--floor must be a positive number"));
        return kStatusUsage;
    }
    if (!positiveNumber(parser.value(QStringLiteral("z")), &options.z)) {
        printMessage(QStringLiteral("--z must be a positive number"));
        return kStatusUsage;
    }
    if (parser.positionalArguments().isEmpty()) {
        printMessage(QStringLiteral("compare needs at least one PATH"));
        return kStatusUsage;
    }
    const RecordLoad load = loadRecords(parser.positionalArguments());
    for (const QString& problem : load.problems) {
        printMessage(problem);
    }
    if (load.records.empty() && load.problems.isEmpty()) {
        printMessage(QStringLiteral("no records found in %1")
                         .arg(parser.positionalArguments().join(QLatin1Char(' '))));
        return kStatusUsage;
    }
    const std::vector<CompareRow> rows = compareRecords(load.records, options);
    const QByteArray text = format == QLatin1String("csv")    ? formatCompareCsv(rows)
                            : format == QLatin1String("json") ? formatCompareJson(rows)
                                                              : formatCompareTable(rows);
    fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    fflush(stdout);
    if (!load.problems.isEmpty()) {
        return kStatusUsage;
    }
    const bool flagged =
        std::any_of(rows.begin(), rows.end(), [](const CompareRow& row) { return row.flagged; });
    return flagged ? kStatusFlagged : kStatusOk;
}
