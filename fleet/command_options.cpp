#include "command_options.h"

#include <QCommandLineParser>
#include <cstdio>

#include "fleet_commands.h"

void printMessage(const QString& message) {
    fprintf(stderr, "corebench-fleet: %s\n", qPrintable(message));
    fflush(stderr);
}

bool parseOptions(QCommandLineParser& parser, const QStringList& arguments, int* status) {
    parser.addHelpOption();
    if (!parser.parse(QStringList{QStringLiteral("corebench-fleet")} + arguments.mid(1))) {
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
