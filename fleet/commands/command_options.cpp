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

QString invalidHostMessage(const QString& name) {
    // The name is shown, not obeyed: no control character of it reaches the terminal.
    QString printable = name.left(80);
    for (QChar& c : printable) {
        if (!c.isPrint()) {
            c = QLatin1Char('?');
        }
    }
    return QStringLiteral(
               "the host name \"%1\" is not valid: letters, digits, '.', '_' and '-', "
               "at most 63, starting with a letter or digit")
        .arg(printable);
}
