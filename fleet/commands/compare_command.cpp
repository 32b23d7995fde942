#include <QCommandLineParser>
#include <QFileInfo>
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

bool numberIn(const QString& text, double min, double max, double* value) {
    bool ok = false;
    *value = text.toDouble(&ok);
    return ok && *value >= min && *value <= max;
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
         QStringLiteral("Flag a score below this share of the group median (0.5 to 0.99)."),
         QStringLiteral("RATIO"), QStringLiteral("0.90")},
        {QStringLiteral("z"), QStringLiteral("Flag a robust z below minus this (1 to 100)."),
         QStringLiteral("Z"), QStringLiteral("3.5")},
        {QStringLiteral("summary"),
         QStringLiteral("Also write the verdict, for check, to FILE (JSON, atomically), when "
                        "every record was read; PATH is then the one records folder."),
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
    if (!numberIn(parser.value(QStringLiteral("floor")), kMinFloorRatio, kMaxFloorRatio,
                  &options.floor)) {
        printMessage(QStringLiteral("--floor must be a number from %1 to %2")
                         .arg(kMinFloorRatio)
                         .arg(kMaxFloorRatio));
        return kStatusUsage;
    }
    if (!numberIn(parser.value(QStringLiteral("z")), kMinZ, kMaxZ, &options.z)) {
        printMessage(QStringLiteral("--z must be a number from %1 to %2").arg(kMinZ).arg(kMaxZ));
        return kStatusUsage;
    }
    if (parser.positionalArguments().isEmpty()) {
        printMessage(QStringLiteral("compare needs at least one PATH"));
        return kStatusUsage;
    }
    // The summary names the one records folder it was made of, which check holds it to.
    const QString summaryPath = parser.value(QStringLiteral("summary"));
    const QFileInfo records(parser.positionalArguments().front());
    if (!summaryPath.isEmpty() && (parser.positionalArguments().size() != 1 || !records.isDir())) {
        printMessage(QStringLiteral("--summary needs one PATH, the records folder"));
        return kStatusUsage;
    }
    // The summary this run replaces may lie among the records it reads: it is no record.
    const RecordLoad load =
        loadRecords(parser.positionalArguments(), QDateTime::currentDateTimeUtc(), nullptr,
                    summaryPath.isEmpty() ? QStringList() : QStringList{summaryPath});
    for (const QString& message : load.problems + load.notes) {
        printMessage(message);
    }
    if (load.records.empty() && load.problems.isEmpty()) {
        printMessage(QStringLiteral("no records found in %1")
                         .arg(parser.positionalArguments().join(QLatin1Char(' '))));
        return kStatusBadInput;
    }
    std::vector<GroupStats> groups;
    std::vector<CompareRow> rows = compareRecords(load.records, options, &groups);
    QString error;
    // A summary of part of the records would judge the nodes whose records it missed by an
    // older record, or not at all; the last whole one stays as it was. The summary holds the
    // verdict against the group only: whether a node's own drift drains it is the health check's
    // setting, decided from the node's own records.
    if (!summaryPath.isEmpty() && !load.problems.isEmpty()) {
        printMessage(QStringLiteral("no summary written: %1 file(s) or folder(s) of the records "
                                    "could not be read")
                         .arg(load.problems.size()));
    } else if (!summaryPath.isEmpty() &&
               !replaceFile(summaryPath,
                            summaryToJson(rows, groups, options, records.canonicalFilePath(),
                                          QDateTime::currentDateTimeUtc()),
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
