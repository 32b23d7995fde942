#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "command_options.h"
#include "fleet_commands.h"
#include "node_verdict.h"
#include "record_files.h"

namespace {

// A summary holds one short entry per host and test: 20,000 hosts take about 4 MiB.
constexpr qint64 kMaxSummaryBytes = 256LL * 1024 * 1024;

// No score a machine can reach comes near this; a larger floor is a typing error.
constexpr double kMaxFloorPs = 1e6;

// Reads a regular file, not through a symbolic link, and not one that keeps growing or blocks.
bool readSummaryFile(const QString& path, QByteArray* bytes, QString* error) {
    const int fd = open(QFile::encodeName(path).constData(),
                        O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        *error = QString::fromLocal8Bit(strerror(errno));
        return false;
    }
    struct stat info{};
    bool ok = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= kMaxSummaryBytes;
    if (!ok) {
        *error = QStringLiteral("not a regular file of at most %1 bytes").arg(kMaxSummaryBytes);
    }
    while (ok) {
        char buffer[65536];
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 || bytes->size() + got > kMaxSummaryBytes) {
            *error = got < 0 ? QString::fromLocal8Bit(strerror(errno))
                             : QStringLiteral("larger than %1 bytes").arg(kMaxSummaryBytes);
            ok = false;
        } else if (got == 0) {
            break;
        } else {
            bytes->append(buffer, static_cast<int>(got));
        }
    }
    close(fd);
    return ok;
}

// The host's folder and, from the old flat layout, the records named after the host.
bool hostRecordFiles(const QString& records, const QString& host, QStringList* files,
                     QString* error) {
    const QDir folder(records + QLatin1Char('/') + host);
    const QFileInfo info(folder.path());
    if (info.exists()) {
        if (!info.isDir() || !info.isReadable() || !info.isExecutable()) {
            *error = QStringLiteral("cannot read the folder %1").arg(folder.path());
            return false;
        }
        for (const QString& name : folder.entryList({QStringLiteral("*.json")}, QDir::Files)) {
            *files << folder.filePath(name);
        }
    }
    const QDir top(records);
    for (const QString& name :
         top.entryList({host + QStringLiteral("-*.json")}, QDir::Files | QDir::Hidden)) {
        *files << top.filePath(name);
    }
    return true;
}

int cannotDecide(const QString& why) {
    printf("cannot decide: %s\n", qPrintable(why));
    fflush(stdout);
    return kStatusUsage;
}

}  // namespace

int checkCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Decides about one node from the fleet's summary and the node's own records; prints one "
        "line. Exit status 0: healthy; 1: drain; 2: cannot decide (nothing to change)."));
    parser.addOptions({
        {QStringLiteral("summary"), QStringLiteral("The summary compare --summary wrote."),
         QStringLiteral("FILE")},
        {QStringLiteral("host"), QStringLiteral("The node's host name in the records."),
         QStringLiteral("HOST")},
        {QStringLiteral("test"), QStringLiteral("The corebench test."), QStringLiteral("TEST")},
        {QStringLiteral("floor"), QStringLiteral("Drain below this score."), QStringLiteral("PS")},
        {QStringLiteral("max-age"),
         QStringLiteral("Drain when the newest record is older (3600, 90m, 36h, 8d), or missing."),
         QStringLiteral("AGE")},
    });
    parser.addPositionalArgument(QStringLiteral("RECORDS"), QStringLiteral("The records folder."));
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    CheckRequest request;
    request.host = parser.value(QStringLiteral("host"));
    request.test = parser.value(QStringLiteral("test"));
    const QString summaryPath = parser.value(QStringLiteral("summary"));
    if (summaryPath.isEmpty() || request.host.isEmpty() || request.test.isEmpty() ||
        parser.positionalArguments().size() != 1) {
        printMessage(QStringLiteral("check needs --summary, --host, --test and one RECORDS folder"));
        return kStatusUsage;
    }
    if (request.host.contains(QLatin1Char('/')) || request.host.startsWith(QLatin1Char('.'))) {
        printMessage(QStringLiteral("--host is not a host name: \"%1\"").arg(request.host));
        return kStatusUsage;
    }
    if (parser.isSet(QStringLiteral("floor"))) {
        bool ok = false;
        const double floor = parser.value(QStringLiteral("floor")).toDouble(&ok);
        if (!ok || !(floor > 0.0 && floor <= kMaxFloorPs)) {
            printMessage(QStringLiteral("--floor must be a number of PS above 0, at most %1")
                             .arg(kMaxFloorPs));
            return kStatusUsage;
        }
        request.floorPs = floor;
    }
    if (parser.isSet(QStringLiteral("max-age"))) {
        request.maxAgeText = parser.value(QStringLiteral("max-age"));
        request.maxAgeS = parseAge(request.maxAgeText);
        if (!request.maxAgeS) {
            printMessage(QStringLiteral("--max-age must look like 3600, 90m, 36h or 8d, from 1 s "
                                        "to 3650d, not \"%1\"")
                             .arg(request.maxAgeText));
            return kStatusUsage;
        }
    }
    request.records = parser.positionalArguments().front();
    request.now = QDateTime::currentDateTimeUtc();

    // Whatever cannot be read leaves the node as it is: no evidence, no change.
    const QFileInfo folder(request.records);
    if (!folder.isDir() || !folder.isReadable() || !folder.isExecutable()) {
        return cannotDecide(QStringLiteral("cannot read the records folder %1").arg(request.records));
    }
    QByteArray bytes;
    QString error;
    if (!readSummaryFile(summaryPath, &bytes, &error)) {
        return cannotDecide(QStringLiteral("cannot read the summary %1: %2").arg(summaryPath, error));
    }
    const std::optional<FleetSummary> summary = summaryFromJson(bytes, &error);
    if (!summary) {
        return cannotDecide(QStringLiteral("summary %1: %2").arg(summaryPath, error));
    }
    QStringList files;
    if (!hostRecordFiles(request.records, request.host, &files, &error)) {
        return cannotDecide(error);
    }
    const RecordLoad load = loadRecords(files);
    if (!load.problems.isEmpty()) {
        return cannotDecide(load.problems.size() == 1
                                ? load.problems.front()
                                : QStringLiteral("%1 (and %2 more)")
                                      .arg(load.problems.front())
                                      .arg(load.problems.size() - 1));
    }
    const NodeVerdict verdict = decideNode(*summary, load.records, request);
    printf("%s\n", qPrintable(verdict.line));
    fflush(stdout);
    return verdict.verdict == Verdict::Drain ? kStatusFlagged : kStatusOk;
}
