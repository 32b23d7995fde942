#include <QCoreApplication>
#include <clocale>
#include <cstdio>

#include "command_options.h"
#include "fleet_commands.h"
#include "safe_file.h"
#include "standard_output.h"

namespace {

const char kUsage[] =
    "Usage:\n"
    "  corebench-fleet run [--out DIR] [--prom DIR] [--corebench PATH] [-- corebench args...]\n"
    "  corebench-fleet import [--host NAME] [--test NAME] [--out DIR] [--prom DIR] LOG...\n"
    "  corebench-fleet compare [--format table|csv|json|html] [--floor 0.90] [--z 3.5]\n"
    "                          [--summary FILE] PATH...\n"
    "  corebench-fleet check --summary FILE --host HOST --test TEST [--floor PS]\n"
    "                        [--max-age AGE] [--drift FRACTION] [--writer USER] RECORDS\n"
    "  corebench-fleet history [--test NAME] [--format table|csv|json] HOST PATH...\n"
    "  corebench-fleet weights [--test NAME] [--nodes FILE] PATH...\n"
    "  corebench-fleet idle [--max-load 0.10] [--proc DIR]\n"
    "Run 'corebench-fleet COMMAND --help' for a command's options.\n";

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    // Numbers in records and tables are written with a full stop whatever the user's locale.
    setlocale(LC_NUMERIC, "C");
    // The same bytes on every system: corebench's output passes through unchanged and no line
    // gets a CR on Windows (a closed standard output shows as failed writes later).
    openStandardOutput();
    // ulimit -f: a record or log that would pass it is not written (status 6), not left half done.
    failWritesPastSizeLimit();
    const QStringList arguments = application.arguments().mid(1);
    const QString command = arguments.value(0);
    int status = kStatusUsage;
    if (command == QLatin1String("run")) {
        status = runCommand(arguments);
    } else if (command == QLatin1String("import")) {
        status = importCommand(arguments);
    } else if (command == QLatin1String("compare")) {
        status = compareCommand(arguments);
    } else if (command == QLatin1String("check")) {
        status = checkCommand(arguments);
    } else if (command == QLatin1String("history")) {
        status = historyCommand(arguments);
    } else if (command == QLatin1String("weights")) {
        status = weightsCommand(arguments);
    } else if (command == QLatin1String("idle")) {
        status = idleCommand(arguments);
    } else if (command == QLatin1String("--help") || command == QLatin1String("-h")) {
        fputs(kUsage, stdout);
        fputs(qPrintable(exitStatusHelp()), stdout);
        status = kStatusOk;
    } else {
        if (!command.isEmpty()) {
            printMessage(QStringLiteral("unknown command \"%1\"").arg(command));
        }
        fputs(kUsage, stderr);
    }
    fflush(stdout);
    fflush(stderr);
    return status;
}
