#include "output_text.h"

#include <QRegularExpression>

QString terminalText(QString text) {
    return text.replace(QLatin1Char('\n'), QLatin1Char(' '))
        .replace(QLatin1Char('\r'), QLatin1Char(' '));
}

QString csvField(const QString& field) {
    static const QRegularExpression kQuoted(QStringLiteral("[\",\r\n]"));
    if (!field.contains(kQuoted)) {
        return field;
    }
    return QLatin1Char('"') + QString(field).replace(QLatin1Char('"'), QStringLiteral("\"\"")) +
           QLatin1Char('"');
}
