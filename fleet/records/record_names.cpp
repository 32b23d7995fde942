#include "record_names.h"

#include <QDir>
#include <QRegularExpression>

#include "test_names.h"

namespace {

// The end of a record's file name: its start time, the number publishNewFile adds to a name
// taken in the same second, the suffix. Patterns are anchored at both ends of the whole name
// ('$' alone would let a newline follow).
const QLatin1String kRecordNameEnd("-\\d{8}T\\d{6}Z(-\\d+)?\\.json");

QRegularExpression wholeName(const QString& pattern) {
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern + kRecordNameEnd));
}

}  // namespace

bool isValidName(const QString& name) {
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z0-9][A-Za-z0-9._-]{0,62}$"));
    return pattern.match(name).hasMatch();
}

QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt) {
    return host + QLatin1Char('-') + test + QLatin1Char('-') +
           startedAt.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
}

QString hostFolder(const QString& records, const QString& host) {
    return QDir(records).filePath(host);
}

bool isRecordFileName(const QString& fileName) {
    static const QRegularExpression pattern = wholeName(
        QStringLiteral("[A-Za-z0-9][A-Za-z0-9._-]{0,62}-[A-Za-z0-9][A-Za-z0-9._-]{0,62}"));
    return pattern.match(fileName).hasMatch();
}

bool isFlatRecordOf(const QString& fileName, const QString& host) {
    // Test names hold no '-', so the test is what stands between the host and the time.
    static const QRegularExpression rest = wholeName(QStringLiteral("([A-Za-z0-9]+)"));
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
