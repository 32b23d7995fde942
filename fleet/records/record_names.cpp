#include "record_names.h"

#include <QDir>
#include <QRegularExpression>

#include "test_names.h"

bool isValidName(const QString& name) {
    // Anchored at the very end: '$' alone would also match before a final line feed.
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("[A-Za-z0-9][A-Za-z0-9._-]{0,62}")));
    return pattern.match(name).hasMatch();
}

QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt) {
    return host + QLatin1Char('-') + test + QLatin1Char('-') +
           startedAt.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
}

QString hostFolder(const QString& records, const QString& host) {
    return QDir(records).filePath(host);
}

bool isFlatRecordOf(const QString& fileName, const QString& host) {
    // Test names hold no '-', so the test is what stands between the host and the time.
    static const QRegularExpression rest(
        QStringLiteral("^([A-Za-z0-9]+)-\\d{8}T\\d{6}Z(-\\d+)?\\.json$"));
    if (!fileName.startsWith(host + QLatin1Char('-'))) {
        return false;
    }
    const QRegularExpressionMatch match = rest.match(fileName.mid(host.size() + 1));
    return match.hasMatch() && canonicalTestName(match.captured(1)) == match.captured(1) &&
           !match.captured(1).isEmpty();
}

QString shortHostName(const QString& name) {
    const int dot = name.indexOf(QLatin1Char('.'));
    return dot < 0 ? name : name.left(dot);
}
