#include "command_options.h"

#include <QCommandLineParser>
#include <cstdio>

#include "fleet_commands.h"
#include "output_text.h"

void printMessage(const QString& message) {
    // Messages name files and records that someone else may have named.
    fprintf(stderr, "corebench-fleet: %s\n", qPrintable(terminalText(message)));
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

namespace {

// "a, b or c"
QString oneOf(QStringList words) {
    const QString last = words.takeLast();
    return words.isEmpty() ? last
                           : words.join(QStringLiteral(", ")) + QStringLiteral(" or ") + last;
}

}  // namespace

void addFormatOption(QCommandLineParser& parser, const QStringList& formats) {
    QStringList described = formats;
    described.front() += QStringLiteral(" (default)");
    parser.addOption({QStringLiteral("format"), oneOf(described) + QLatin1Char('.'),
                      QStringLiteral("FORMAT"), formats.front()});
}

QString chosenFormat(const QCommandLineParser& parser, const QStringList& formats) {
    const QString format = parser.value(QStringLiteral("format"));
    if (formats.contains(format)) {
        return format;
    }
    printMessage(QStringLiteral("--format must be %1, not \"%2\"").arg(oneOf(formats), format));
    return QString();
}

bool folderOption(const QCommandLineParser& parser, const QString& name, QString* folder) {
    *folder = parser.value(name);
    if (folder->isEmpty() && parser.isSet(name)) {
        printMessage(QStringLiteral("--%1 is empty: it must name a folder").arg(name));
        return false;
    }
    return true;
}

void addRecordPaths(QCommandLineParser& parser) {
    parser.addPositionalArgument(QStringLiteral("PATH"),
                                 QStringLiteral("Records, or folders of them."),
                                 QStringLiteral("PATH..."));
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
