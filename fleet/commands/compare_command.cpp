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

const QStringList kFormats{QStringLiteral("table"), QStringLiteral("csv"), QStringLiteral("json"),
                           QStringLiteral("html")};

bool positiveNumber(const QString& text, double* value) {
    bool ok = false;
    *value = text.toDouble(&ok);
    return ok && *value > 0.0;
}

}  // namespace

int compareCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Compares records and flags slow nodes.\n") +
                                     exitStatusHelp({kStatusOk, kStatusFlagged, kStatusUsage,
                                                     kStatusUnwritable, kStatusBadInput}));
    addFormatOption(parser, kFormats);
    parser.addOptions({
        {QStringLiteral("floor"),
         QStringLiteral("Flag a score below this share of the group median."),
         QStringLiteral("RATIO"), QStringLiteral("0.90")},
        {QStringLiteral("z"), QStringLiteral("Flag a robust z below minus this."),
         QStringLiteral("Z"), QStringLiteral("3.5")},
        {QStringLiteral("summary"),
         QStringLiteral("Also write the verdict, for check, to FILE (JSON, atomically)."),
         QStringLiteral("FILE")},
    });
    addRecordPaths(parser);
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    CompareOptions options;
    const QString format = chosenFormat(parser, kFormats);
    if (format.isEmpty()) {
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
        return kStatusBadInput;
    }
    std::vector<GroupStats> groups;
    std::vector<CompareRow> rows = compareRecords(load.records, options, &groups);
    const QString summaryPath = parser.value(QStringLiteral("summary"));
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
        return kStatusBadInput;
    }
    const bool flagged =
        std::any_of(rows.begin(), rows.end(), [](const CompareRow& row) { return row.flagged; });
    return flagged ? kStatusFlagged : kStatusOk;
}
