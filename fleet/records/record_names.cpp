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

std::optional<QDateTime> utcTimeFromText(const QString& text) {
    static const QRegularExpression form(QRegularExpression::anchoredPattern(
        QStringLiteral("\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}Z")));
    if (!form.match(text).hasMatch()) {
        return std::nullopt;
    }
    // Written back, a valid time gives the same text: "2026-02-30T..." and "...T24:00:00Z" do not.
    const QDateTime time = QDateTime::fromString(text, Qt::ISODate);
    if (!time.isValid() || time.toUTC().toString(Qt::ISODate) != text) {
        return std::nullopt;
    }
    return time.toUTC();
}

std::optional<RecordFileName> parseRecordFileName(const QString& fileName) {
    // Test names hold no '-', so the test is what stands between the host and the time.
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(
        QStringLiteral("(.+)-([A-Za-z0-9]+)-(\\d{4})(\\d{2})(\\d{2})T(\\d{2})(\\d{2})(\\d{2})Z(?:-("
                       "[0-9]{1,9}))?\\.json")));
    const QRegularExpressionMatch match = pattern.match(fileName);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const std::optional<QDateTime> startedAt =
        utcTimeFromText(QStringLiteral("%1-%2-%3T%4:%5:%6Z")
                            .arg(match.captured(3), match.captured(4), match.captured(5),
                                 match.captured(6), match.captured(7), match.captured(8)));
    RecordFileName name;
    name.host = match.captured(1);
    name.test = match.captured(2);
    name.copy = match.captured(9).isEmpty() ? 1 : match.captured(9).toInt();
    // publishNewFile numbers a second file of one name from 2 on.
    if (!isValidName(name.host) || canonicalTestName(name.test) != name.test || !startedAt ||
        (name.copy < 2 && !match.captured(9).isEmpty())) {
        return std::nullopt;
    }
    name.startedAt = *startedAt;
    return name;
}

bool isFlatRecordOf(const QString& fileName, const QString& host) {
    const std::optional<RecordFileName> name = parseRecordFileName(fileName);
    return name && name->host == host;
}

int copyNumberOf(const QString& fileName) {
    const std::optional<RecordFileName> name = parseRecordFileName(fileName);
    return name ? name->copy : 1;
}

QString shortHostName(const QString& name) {
    const int dot = name.indexOf(QLatin1Char('.'));
    return dot < 0 ? name : name.left(dot);
}
