#include "record_names.h"

#include <QDir>
#include <QRegularExpression>
#include <QStringView>
#include <algorithm>

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
    // Test names hold no '-', so the test is what stands between the host and the time. A check
    // orders a host's files by these names, so the time is taken apart by hand.
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(
        QStringLiteral("(.+)-([A-Za-z0-9]+)-(\\d{8})T(\\d{6})Z(?:-([0-9]{1,9}))?\\.json")));
    const QRegularExpressionMatch match = pattern.match(fileName);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const auto digits = [&match](int group, int from, int count) {
        return match.capturedView(group).mid(from, count).toInt();
    };
    const int year = digits(3, 0, 4);
    const int month = digits(3, 4, 2);
    const int day = digits(3, 6, 2);
    const int hour = digits(4, 0, 2);
    const int minute = digits(4, 2, 2);
    const int second = digits(4, 4, 2);
    RecordFileName name;
    name.host = match.captured(1);
    name.test = match.captured(2);
    name.copy = match.capturedLength(5) == 0 ? 1 : digits(5, 0, 9);
    // publishNewFile numbers a second file of one name from 2 on.
    if (!isValidName(name.host) || canonicalTestName(name.test) != name.test ||
        !QDate::isValid(year, month, day) || !QTime::isValid(hour, minute, second) ||
        (name.copy < 2 && match.capturedLength(5) != 0)) {
        return std::nullopt;
    }
    constexpr qint64 kUnixEpochJulianDay = 2440588;
    name.startedAt = QDateTime::fromSecsSinceEpoch(
        (QDate(year, month, day).toJulianDay() - kUnixEpochJulianDay) * 86400 + hour * 3600 +
            minute * 60 + second,
        Qt::UTC);
    return name;
}

bool isFlatRecordOf(const QString& fileName, const QString& host) {
    const std::optional<RecordFileName> name = parseRecordFileName(fileName);
    return name && name->host == host;
}

int copyNumberOf(const QString& fileName) {
    // "…Z-N.json"; QString's toInt would take a sign, so the digits are looked at first.
    const QStringView stem = QStringView(fileName).chopped(std::min<qsizetype>(5, fileName.size()));
    const qsizetype dash = stem.lastIndexOf(QLatin1Char('-'));
    if (!fileName.endsWith(QLatin1String(".json")) || dash < 1 ||
        stem[dash - 1] != QLatin1Char('Z') || stem.size() - dash - 1 < 1 ||
        stem.size() - dash - 1 > 9) {
        return 1;
    }
    const QStringView number = stem.mid(dash + 1);
    if (!std::all_of(number.begin(), number.end(),
                     [](QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); })) {
        return 1;
    }
    return std::max(1, number.toInt());
}

QString shortHostName(const QString& name) {
    const int dot = name.indexOf(QLatin1Char('.'));
    return dot < 0 ? name : name.left(dot);
}
