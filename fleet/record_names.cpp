#include "record_names.h"

namespace {

QString sanitized(const QString& text) {
    QString result;
    for (const QChar c : text) {
        const bool plain = (c >= QLatin1Char('a') && c <= QLatin1Char('z')) ||
                           (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) ||
                           (c >= QLatin1Char('0') && c <= QLatin1Char('9')) ||
                           c == QLatin1Char('_') || c == QLatin1Char('-') || c == QLatin1Char('.');
        result += plain ? c : QLatin1Char('_');
    }
    return result.isEmpty() ? QStringLiteral("unknown") : result;
}

}  // namespace

QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt) {
    return sanitized(host) + QLatin1Char('-') + sanitized(test) + QLatin1Char('-') +
           startedAt.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
}

QString shortHostName(const QString& name) {
    const int dot = name.indexOf(QLatin1Char('.'));
    return dot < 0 ? name : name.left(dot);
}
