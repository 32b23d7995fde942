#include <QCommandLineParser>
#include <QFile>
#include <cstdio>

#include "command_options.h"
#include "fleet_commands.h"
#include "node_weights.h"
#include "record_files.h"
#include "record_names.h"
#include "safe_file.h"

namespace {

// A node name a line: 64 bytes each for a million nodes.
constexpr qint64 kMaxNodeListBytes = 64LL << 20;

// The names of the file, or of standard input for "-", one a line; nothing when it cannot be
// read or holds something other than names.
std::optional<QSet<QString>> readNodeList(const QString& path) {
    QString error;
    std::optional<QByteArray> bytes;
    if (path == QLatin1String("-")) {
        QFile input;
        if (input.open(stdin, QIODevice::ReadOnly)) {
            bytes = input.read(kMaxNodeListBytes + 1);
        }
        error = bytes && bytes->size() <= kMaxNodeListBytes
                    ? QString()
                    : QStringLiteral("cannot read it, or it is larger than %1 bytes")
                          .arg(kMaxNodeListBytes);
    } else {
        FileIdentity identity;
        bytes = readRegularFile(path, kMaxNodeListBytes, &identity, &error);
    }
    if (!error.isEmpty()) {
        printMessage(QStringLiteral("--nodes %1: %2").arg(path, error));
        return std::nullopt;
    }
    QSet<QString> nodes;
    for (const QByteArray& line : bytes->split('\n')) {
        const QString name = QString::fromUtf8(line.trimmed());
        if (!name.isEmpty() && !isValidName(name)) {
            printMessage(invalidHostMessage(name));
            return std::nullopt;
        }
        if (!name.isEmpty()) {
            nodes.insert(name);
        }
    }
    return nodes;
}

}  // namespace

int weightsCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Weighs nodes for Slurm by their newest score: prints \"NODE WEIGHT TIER "
                       "PS\" a line, the fastest first; a record that cannot be read is named and "
                       "the others are still weighed.\n") +
        exitStatusHelp({kStatusOk, kStatusUsage, kStatusBadInput}));
    parser.addOptions({
        {QStringLiteral("test"), QStringLiteral("The corebench test whose scores weigh the nodes."),
         QStringLiteral("NAME"), QStringLiteral("All")},
        {QStringLiteral("nodes"),
         QStringLiteral("Weigh only the nodes named in FILE, one a line (- for standard input)."),
         QStringLiteral("FILE")},
    });
    addRecordPaths(parser);
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    const QString test = parser.value(QStringLiteral("test"));
    if (!isValidName(test)) {
        printMessage(QStringLiteral("--test takes a test name, not \"%1\"").arg(test));
        return kStatusUsage;
    }
    if (parser.positionalArguments().isEmpty()) {
        printMessage(QStringLiteral("weights needs at least one PATH"));
        return kStatusUsage;
    }
    std::optional<QSet<QString>> nodes;
    if (parser.isSet(QStringLiteral("nodes"))) {
        nodes = readNodeList(parser.value(QStringLiteral("nodes")));
        if (!nodes) {
            return kStatusUsage;
        }
    }
    const RecordLoad load = loadRecords(parser.positionalArguments());
    for (const QString& problem : load.problems) {
        printMessage(problem);
    }
    const Weighing weighing = weighNodes(load.records, test, nodes);
    for (const QString& skipped : weighing.skipped) {
        printMessage(QStringLiteral("skipped ") + skipped);
    }
    if (weighing.nodes.empty()) {
        printMessage(QStringLiteral("no node to weigh by its %1 score").arg(test));
        return kStatusBadInput;
    }
    // One node a line by construction: a node is a valid name, the rest are numbers and a tier.
    QByteArray text;
    for (const NodeWeight& node : weighing.nodes) {
        text += QStringLiteral("%1 %2 %3 %4\n")
                    .arg(node.host)
                    .arg(node.weight)
                    .arg(node.tier)
                    .arg(node.psResult, 0, 'f', 3)
                    .toUtf8();
    }
    fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    fflush(stdout);
    return load.problems.isEmpty() ? kStatusOk : kStatusBadInput;
}
