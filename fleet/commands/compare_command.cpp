#include <QCommandLineParser>
#include <algorithm>
#include <cstdio>

#include "command_options.h"
#include "compare_drift.h"
#include "compare_format.h"
#include "compare_html.h"
#include "fleet_commands.h"
#include "fleet_compare.h"
#include "fleet_summary.h"
#include "record_files.h"
#include "safe_file.h"

namespace {

bool positiveNumber(const QString& text, double* value) {
    bool ok = false;
    *value = text.toDouble(&ok);
    return ok && *value > 0.0;
}

}  // namespace

int compareCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Compares records and flags slow nodes. Exit status 0: none flagged; "
                       "1: a node flagged; 2: bad input."));
    parser.addOptions({
        {QStringLiteral("format"), QStringLiteral("table (default), csv, json or html."),
         QStringLiteral("FORMAT"), QStringLiteral("table")},
        {QStringLiteral("floor"),
         QStringLiteral("Flag a score below this share of the group median."),
         QStringLiteral("RATIO"), QStringLiteral("0.90")},
        {QStringLiteral("z"), QStringLiteral("Flag a robust z below minus this."),
         QStringLiteral("Z"), QStringLiteral("3.5")},
        {QStringLiteral("summary"),
         QStringLiteral("Also write the verdict, for check, to FILE (JSON, atomically)."),
         QStringLiteral("FILE")},
    });
    parser.addPositionalArgument(QStringLiteral("PATH"),
                                 QStringLiteral("Records, or folders of them."),
                                 QStringLiteral("PATH..."));
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    CompareOptions options;
    const QString format = parser.value(QStringLiteral("format"));
    if (format != QLatin1String("table") && format != QLatin1String("csv") &&
        format != QLatin1String("json") && format != QLatin1String("html")) {
        printMessage(
            QStringLiteral("--format must be table, csv, json or html, not \"%1\"").arg(format));
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
    // The summary this run replaces may lie among the records it reads: it is no record.
    const QString summaryPath = parser.value(QStringLiteral("summary"));
    const RecordLoad load =
        loadRecords(parser.positionalArguments(), QDateTime::currentDateTimeUtc(),
                    summaryPath.isEmpty() ? QStringList() : QStringList{summaryPath});
    for (const QString& message : load.problems + load.notes) {
        printMessage(message);
    }
    if (load.records.empty() && load.problems.isEmpty()) {
        printMessage(QStringLiteral("no records found in %1")
                         .arg(parser.positionalArguments().join(QLatin1Char(' '))));
        return kStatusUsage;
    }
    std::vector<GroupStats> groups;
    std::vector<CompareRow> rows = compareRecords(load.records, options, &groups);
    QString error;
    // A summary of nothing (every record unreadable) would tell every node that it has no peers.
    // It holds the verdict against the group only: whether a node's own drift drains it is the
    // health check's setting, decided from the node's own records.
    if (!summaryPath.isEmpty() && !load.records.empty() &&
        !replaceFile(summaryPath,
                     summaryToJson(rows, groups, options, QDateTime::currentDateTimeUtc()),
                     &error)) {
        printMessage(error);
        return kStatusUnwritable;
    }
    // Each host's history is looked at once, for its row and its chart.
    const std::map<HistoryKey, HostHistory> histories = hostHistories(load.records);
    addDrift(histories, &rows);
    const QByteArray text = format == QLatin1String("csv")    ? formatCompareCsv(rows)
                            : format == QLatin1String("json") ? formatCompareJson(rows)
                            : format == QLatin1String("html")
                                ? formatCompareHtml(rows, histories, options)
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
