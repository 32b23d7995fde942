#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <cstdio>

#include "command_options.h"
#include "fleet_commands.h"
#include "node_verdict.h"
#include "record_files.h"
#include "record_names.h"
#include "safe_file.h"
#include "test_names.h"
#include "writer_trust.h"

namespace {

// A summary holds one short entry per host and test: 20,000 hosts take about 4 MiB.
constexpr qint64 kMaxSummaryBytes = 256LL * 1024 * 1024;

// No score a machine can reach comes near this; a larger floor is a typing error.
constexpr double kMaxFloorPs = 1e6;

int cannotDecide(const QString& why) {
    printf("%s\n", qPrintable(oneLine(QStringLiteral("cannot decide: ") + why, kMaxVerdictChars)));
    fflush(stdout);
    return kStatusCannotDecide;
}

}  // namespace

int checkCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral(
            "Decides about one node from the fleet's summary and the node's own "
            "records; prints one line. It decides only on files and folders that root and the "
            "writer alone could write, and never on a disturbed run.\n") +
        exitStatusHelp({kStatusOk, kStatusFlagged, kStatusUsage, kStatusCannotDecide}));
    parser.addOptions({
        {QStringLiteral("summary"), QStringLiteral("The summary compare --summary wrote."),
         QStringLiteral("FILE")},
        {QStringLiteral("host"), QStringLiteral("The node's host name in the records."),
         QStringLiteral("HOST")},
        {QStringLiteral("test"), QStringLiteral("The corebench test."), QStringLiteral("TEST")},
        {QStringLiteral("floor"), QStringLiteral("Drain below this score (0: no floor)."),
         QStringLiteral("PS")},
        {QStringLiteral("max-age"),
         QStringLiteral("Drain when the newest record is older (3600, 90m, 36h, 8d), or missing "
                        "(0: no limit)."),
         QStringLiteral("AGE")},
        {QStringLiteral("drift"),
         QStringLiteral("Drain when the node's own scores dropped by this fraction since its "
                        "configuration last changed (0.06 is 6 %): a drop measured at 0.8 of it "
                        "or more, in 5 runs or more, three quarters of them half of it low."),
         QStringLiteral("FRACTION")},
        {QStringLiteral("writer"),
         QStringLiteral("The user besides root who writes the records and the summary (default: "
                        "root alone)."),
         QStringLiteral("USER")},
    });
    parser.addPositionalArgument(QStringLiteral("RECORDS"), QStringLiteral("The records folder."));
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    CheckRequest request;
    request.host = parser.value(QStringLiteral("host"));
    const QString test = parser.value(QStringLiteral("test"));
    const QString summaryPath = parser.value(QStringLiteral("summary"));
    if (summaryPath.isEmpty() || request.host.isEmpty() || test.isEmpty() ||
        parser.positionalArguments().size() != 1) {
        printMessage(
            QStringLiteral("check needs --summary, --host, --test and one RECORDS folder"));
        return kStatusUsage;
    }
    if (!isValidName(request.host)) {
        printMessage(invalidHostMessage(request.host));
        return kStatusUsage;
    }
    // As corebench takes it: "all" is All, and a name it does not know is no test at all.
    request.test = canonicalTestName(test);
    if (request.test.isEmpty()) {
        printMessage(QStringLiteral("unknown test \"%1\"").arg(test));
        return kStatusUsage;
    }
    // A limit of 0, however it is written, is no limit.
    if (parser.isSet(QStringLiteral("floor"))) {
        bool ok = false;
        const double floor = parser.value(QStringLiteral("floor")).toDouble(&ok);
        if (!ok || !(floor >= 0.0 && floor <= kMaxFloorPs)) {
            printMessage(QStringLiteral("--floor must be a number of PS from 0 (none) to %1")
                             .arg(kMaxFloorPs, 0, 'f', 0));
            return kStatusUsage;
        }
        if (floor > 0.0) {
            request.floorPs = floor;
        }
    }
    if (parser.isSet(QStringLiteral("max-age"))) {
        request.maxAgeText = parser.value(QStringLiteral("max-age"));
        request.maxAgeS = parseAge(request.maxAgeText);
        if (!request.maxAgeS) {
            printMessage(QStringLiteral("--max-age must look like 3600, 90m, 36h or 8d, from 0 "
                                        "(none) to 3650d, not \"%1\"")
                             .arg(request.maxAgeText));
            return kStatusUsage;
        }
        if (*request.maxAgeS == 0) {
            request.maxAgeS.reset();
        }
    }
    if (parser.isSet(QStringLiteral("drift"))) {
        bool ok = false;
        const double drift = parser.value(QStringLiteral("drift")).toDouble(&ok);
        if (!ok || !(drift >= 0.0 && drift < 1.0)) {
            printMessage(QStringLiteral(
                "--drift must be a fraction from 0 (none) to below 1, such as 0.05"));
            return kStatusUsage;
        }
        if (drift > 0.0) {
            request.driftFraction = drift;
        }
    }
    QString error;
    const std::optional<WriterTrust> trust =
        writerTrust(parser.value(QStringLiteral("writer")), &error);
    if (!trust) {
        printMessage(QStringLiteral("--writer: ") + error);
        return kStatusUsage;
    }
    request.records = parser.positionalArguments().front();
    request.now = QDateTime::currentDateTimeUtc();

    // Whatever cannot be read leaves the node as it is: no evidence, no change.
    const QFileInfo folder(request.records);
    if (!folder.isDir() || !folder.isReadable() || !folder.isExecutable()) {
        return cannotDecide(
            QStringLiteral("cannot read the records folder %1").arg(request.records));
    }
    // Whoever else could write what is read would decide which nodes drain. Reading goes on from
    // the folders checked, by their paths without links.
    const QString records = trustedFolder(request.records, *trust, &error);
    if (records.isEmpty()) {
        return cannotDecide(error);
    }
    request.recordsCanonical = QFileInfo(records).canonicalFilePath();
    const QFileInfo summaryName(summaryPath);
    const QString summaryFolder = trustedFolder(summaryName.path(), *trust, &error);
    const QString own = hostFolder(records, request.host);
    if (summaryFolder.isEmpty() || ((QFileInfo::exists(own) || QFileInfo(own).isSymLink()) &&
                                    trustedFolder(own, *trust, &error).isEmpty())) {
        return cannotDecide(error);
    }
    FileIdentity identity;
    const std::optional<QByteArray> bytes =
        readRegularFile(QDir(summaryFolder).filePath(summaryName.fileName()), kMaxSummaryBytes,
                        &identity, &error, &*trust);
    if (!bytes) {
        return cannotDecide(
            QStringLiteral("cannot read the summary %1: %2").arg(summaryPath, error));
    }
    const std::optional<FleetSummary> summary = summaryFromJson(*bytes, request.now, &error);
    if (!summary) {
        return cannotDecide(QStringLiteral("summary %1: %2").arg(summaryPath, error));
    }
    const QString doubt = summaryDoubt(*summary, request);
    if (!doubt.isEmpty()) {
        return cannotDecide(QStringLiteral("summary %1: %2").arg(summaryPath, doubt));
    }
    // The node's records newest first, only as far back as the verdict needs.
    const RecordLoad load =
        loadNewestRecords(records, request.host, request.test, request.now, &*trust,
                          [&request](const std::vector<LoadedRecord>& newestFirst) {
                              return needsOlderRecords(newestFirst, request);
                          });
    if (!load.problems.isEmpty()) {
        return cannotDecide(load.problems.size() == 1 ? load.problems.front()
                                                      : QStringLiteral("%1 (and %2 more)")
                                                            .arg(load.problems.front())
                                                            .arg(load.problems.size() - 1));
    }
    const NodeVerdict verdict = decideNode(*summary, load.records, request);
    printf("%s\n", qPrintable(verdict.line));
    fflush(stdout);
    return verdict.verdict == Verdict::Drain          ? kStatusFlagged
           : verdict.verdict == Verdict::CannotDecide ? kStatusCannotDecide
                                                      : kStatusOk;
}
