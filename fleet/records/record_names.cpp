#include "record_names.h"

#include <QDir>
#include <QRegularExpression>
#include <QStringView>
#include <algorithm>
#include <cstring>

#include "test_names.h"

namespace {

// A UTC time from text laid out as form: 'Y', 'M', 'D', 'h', 'm' and 's' stand for the digits of
// the year, month, day, hour, minute and second, every other character for itself. Nothing for
// any other text, or a day or time that does not exist ("02-30", "24:00:00"). Taken apart by hand:
// a check orders a hundred thousand file names by their times.
std::optional<QDateTime> utcTimeOfForm(QStringView text, const char* form) {
    static const char kFields[] = "YMDhms";
    const qsizetype length = static_cast<qsizetype>(std::strlen(form));
    if (text.size() != length) {
        return std::nullopt;
    }
    int values[6] = {0, 0, 0, 0, 0, 0};
    for (qsizetype i = 0; i < length; ++i) {
        const char* field = std::strchr(kFields, form[i]);
        const ushort c = text[i].unicode();
        if (field == nullptr) {
            if (c != static_cast<uchar>(form[i])) {
                return std::nullopt;
            }
        } else if (c >= '0' && c <= '9') {
            values[field - kFields] = values[field - kFields] * 10 + (c - '0');
        } else {
            return std::nullopt;
        }
    }
    const auto [year, month, day, hour, minute, second] = values;
    if (!QDate::isValid(year, month, day) || !QTime::isValid(hour, minute, second)) {
        return std::nullopt;
    }
    constexpr qint64 kUnixEpochJulianDay = 2440588;
    return QDateTime::fromSecsSinceEpoch(
        (QDate(year, month, day).toJulianDay() - kUnixEpochJulianDay) * 86400 + hour * 3600 +
            minute * 60 + second,
        Qt::UTC);
}

}  // namespace

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
    return utcTimeOfForm(text, "YYYY-MM-DDThh:mm:ssZ");
}

std::optional<RecordFileName> parseRecordFileName(const QString& fileName) {
    // Test names hold no '-', so the test is what stands between the host and the time.
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(
        QStringLiteral("(.+)-([A-Za-z0-9]+)-(\\d{8}T\\d{6}Z)(?:-([0-9]{1,9}))?\\.json")));
    const QRegularExpressionMatch match = pattern.match(fileName);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const std::optional<QDateTime> startedAt =
        utcTimeOfForm(match.capturedView(3), "YYYYMMDDThhmmssZ");
    RecordFileName name;
    name.host = match.captured(1);
    name.test = match.captured(2);
    name.copy = match.capturedLength(4) == 0 ? 1 : match.capturedView(4).toInt();
    // publishNewFile numbers a second file of one name from 2 on.
    if (!isValidName(name.host) || canonicalTestName(name.test) != name.test || !startedAt ||
        (name.copy < 2 && match.capturedLength(4) != 0)) {
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
