#include "record_names.h"

#include <QDir>
#include <QStringView>
#include <algorithm>
#include <cstring>

#include "test_names.h"

namespace {

constexpr qint64 kUnixEpochJulianDay = 2440588;

// A UTC time from text laid out as form: 'Y', 'M', 'D', 'h', 'm' and 's' stand for the digits of
// the year, month, day, hour, minute and second, every other character for itself. Nothing for
// any other text, or a day or time that does not exist ("02-30", "24:00:00"). Taken apart by hand:
// a check orders a hundred thousand file names by their times. In seconds since 1970.
std::optional<qint64> utcSecondsOfForm(QStringView text, const char* form) {
    const qsizetype length = static_cast<qsizetype>(std::strlen(form));
    if (text.size() != length) {
        return std::nullopt;
    }
    int values[6] = {0, 0, 0, 0, 0, 0};
    for (qsizetype i = 0; i < length; ++i) {
        const int field = form[i] == 'Y'   ? 0
                          : form[i] == 'M' ? 1
                          : form[i] == 'D' ? 2
                          : form[i] == 'h' ? 3
                          : form[i] == 'm' ? 4
                          : form[i] == 's' ? 5
                                           : -1;
        const ushort c = text[i].unicode();
        if (field < 0) {
            if (c != static_cast<uchar>(form[i])) {
                return std::nullopt;
            }
        } else if (c >= '0' && c <= '9') {
            values[field] = values[field] * 10 + (c - '0');
        } else {
            return std::nullopt;
        }
    }
    const auto [year, month, day, hour, minute, second] = values;
    if (!QDate::isValid(year, month, day) || !QTime::isValid(hour, minute, second)) {
        return std::nullopt;
    }
    return (QDate(year, month, day).toJulianDay() - kUnixEpochJulianDay) * 86400 + hour * 3600 +
           minute * 60 + second;
}

std::optional<QDateTime> utcTimeOfForm(QStringView text, const char* form) {
    const std::optional<qint64> seconds = utcSecondsOfForm(text, form);
    if (!seconds) {
        return std::nullopt;
    }
    return QDateTime::fromSecsSinceEpoch(*seconds, Qt::UTC);
}

}  // namespace

bool isValidName(QStringView name) {
    // By hand, not by a regular expression: compare checks the name of every record file.
    const auto alphanumeric = [](QChar c) {
        return (c >= QLatin1Char('a') && c <= QLatin1Char('z')) ||
               (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) ||
               (c >= QLatin1Char('0') && c <= QLatin1Char('9'));
    };
    return !name.isEmpty() && name.size() <= 63 && alphanumeric(name.front()) &&
           std::all_of(name.begin() + 1, name.end(), [&](QChar c) {
               return alphanumeric(c) || c == QLatin1Char('.') || c == QLatin1Char('_') ||
                      c == QLatin1Char('-');
           });
}

QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt) {
    return host + QLatin1Char('-') + test + QLatin1Char('-') +
           startedAt.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
}

QString hostFolder(const QString& records, const QString& host) {
    return QDir(records).filePath(host);
}

QString recordFolder(const QString& records, const QString& host, const QDateTime& startedAt) {
    return QDir(hostFolder(records, host))
        .filePath(startedAt.toUTC().toString(QStringLiteral("yyyy-MM")));
}

std::optional<int> monthOfFolderName(QStringView name) {
    const std::optional<qint64> start =
        utcSecondsOfForm(name.toString() + QStringLiteral("-01T00:00:00Z"), "YYYY-MM-DDThh:mm:ssZ");
    if (!start || *start < 0) {
        return std::nullopt;
    }
    return monthOfTime(*start);
}

int monthOfTime(qint64 secondsSinceEpoch) {
    // Floor division: a time before 1970 lies in a day before the epoch's.
    const qint64 days = secondsSinceEpoch / 86400 - (secondsSinceEpoch % 86400 < 0 ? 1 : 0);
    const QDate date = QDate::fromJulianDay(days + kUnixEpochJulianDay);
    return date.year() * 12 + date.month() - 1;
}

qint64 startOfMonth(int month) {
    return (QDate(month / 12, month % 12 + 1, 1).toJulianDay() - kUnixEpochJulianDay) * 86400;
}

std::optional<QDateTime> utcTimeFromText(const QString& text) {
    return utcTimeOfForm(text, "YYYY-MM-DDThh:mm:ssZ");
}

std::optional<RecordNameView> viewRecordFileName(QStringView fileName) {
    // Taken apart from the end, by hand: "<host>-<test>-<YYYYMMDDTHHMMSSZ>[-N].json", the test
    // without a '-' (so it is what stands between the last two before the time), N from 2 on.
    static const QLatin1String kSuffix(".json");
    constexpr qsizetype kTimeLength = 16;  // YYYYMMDDTHHMMSSZ
    if (!fileName.endsWith(kSuffix)) {
        return std::nullopt;
    }
    QStringView stem = fileName.chopped(kSuffix.size());
    RecordNameView name;
    const qsizetype copyDash = stem.lastIndexOf(QLatin1Char('-'));
    const QStringView copy = copyDash < 0 ? QStringView() : stem.mid(copyDash + 1);
    if (!copy.isEmpty() && copy.back() != QLatin1Char('Z')) {
        // Up to 9 digits, as publishNewFile numbers a second file of one name from 2 on.
        if (copy.size() > 9 || !std::all_of(copy.begin(), copy.end(), [](QChar c) {
                return c >= QLatin1Char('0') && c <= QLatin1Char('9');
            })) {
            return std::nullopt;
        }
        name.copy = copy.toInt();
        if (name.copy < 2) {
            return std::nullopt;
        }
        stem = stem.left(copyDash);
    }
    if (stem.size() < kTimeLength + 4 || stem[stem.size() - kTimeLength - 1] != QLatin1Char('-')) {
        return std::nullopt;
    }
    const std::optional<qint64> startedAt =
        utcSecondsOfForm(stem.right(kTimeLength), "YYYYMMDDThhmmssZ");
    stem.chop(kTimeLength + 1);
    const qsizetype testDash = stem.lastIndexOf(QLatin1Char('-'));
    if (!startedAt || testDash < 1) {
        return std::nullopt;
    }
    name.host = stem.left(testDash);
    name.test = stem.mid(testDash + 1);
    name.startedAt = *startedAt;
    if (!isValidName(name.host) || !isCanonicalTestName(name.test)) {
        return std::nullopt;
    }
    return name;
}

std::optional<RecordFileName> parseRecordFileName(const QString& fileName) {
    const std::optional<RecordNameView> view = viewRecordFileName(fileName);
    if (!view) {
        return std::nullopt;
    }
    return RecordFileName{view->host.toString(), view->test.toString(),
                          QDateTime::fromSecsSinceEpoch(view->startedAt, Qt::UTC), view->copy};
}

bool isFlatRecordOf(const QString& fileName, const QString& host) {
    const std::optional<RecordNameView> name = viewRecordFileName(fileName);
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
