#include <QCommandLineParser>
#include <cstdio>

#include "command_options.h"
#include "fleet_commands.h"
#include "node_load.h"

int idleCommand(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral(
            "Says whether the node is idle enough to be benchmarked: its load averages over one "
            "and five minutes both at most MAX_LOAD per online CPU. Prints one line; made for "
            "conditions such as systemd's ExecCondition (see contrib/systemd).\n") +
        exitStatusHelp({kStatusOk, kStatusFlagged, kStatusUsage, kStatusCannotDecide}));
    parser.addOptions({
        {QStringLiteral("max-load"),
         QStringLiteral("Highest load per online CPU that counts as idle, from 0 to 1 (default: "
                        "%1).")
             .arg(kDefaultMaxLoadPerCpu, 0, 'f', 2),
         QStringLiteral("MAX_LOAD"), QString::number(kDefaultMaxLoadPerCpu, 'f', 2)},
        {QStringLiteral("proc"),
         QStringLiteral("The proc file system to read, Linux (default: /proc)."),
         QStringLiteral("DIR"), QStringLiteral("/proc")},
    });
    int status = kStatusOk;
    if (!parseOptions(parser, arguments, &status)) {
        return status;
    }
    if (!parser.positionalArguments().isEmpty()) {
        printMessage(QStringLiteral("idle takes no arguments, only options"));
        return kStatusUsage;
    }
    bool ok = false;
    const QString maxLoadText = parser.value(QStringLiteral("max-load"));
    const double maxLoad = maxLoadText.toDouble(&ok);
    if (!ok || !(maxLoad >= 0 && maxLoad <= 1)) {
        printMessage(QStringLiteral("--max-load takes a load per CPU from 0 to 1, such as 0.10, "
                                    "not \"%1\"")
                         .arg(maxLoadText));
        return kStatusUsage;
    }
    std::string problem;
    const NodeLoad load =
        systemNodeLoad(parser.value(QStringLiteral("proc")).toStdString(), &problem);
    const IdleVerdict verdict = idleVerdict(load, maxLoad);
    if (!verdict.idle) {
        printMessage(QString::fromStdString(
            problem.empty() ? verdict.text : "cannot tell whether the node is idle: " + problem));
        return kStatusCannotDecide;
    }
    printf("%s\n", verdict.text.c_str());
    fflush(stdout);
    return *verdict.idle ? kStatusOk : kStatusFlagged;
}
