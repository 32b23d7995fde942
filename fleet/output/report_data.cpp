#include "report_data.h"

#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QRegularExpression>
#include <algorithm>
#include <limits>

#include "compare_format.h"

namespace {

// toFixed and Date work exactly on numbers of up to 15 digits and on years 1970 to 9999.
constexpr int kMaxDigits = 15;

// d when every non-empty field is a number with d decimals that toFixed(d) gives back as it is (no
// leading zero, at most kMaxDigits digits), but for a negative zero, which stays text; nothing
// when one is not, or all are empty.
std::optional<int> fixedDecimals(const QStringList& fields) {
    static const QRegularExpression number(QStringLiteral("^-?(0|[1-9][0-9]*)(?:\\.([0-9]+))?$"));
    std::optional<int> decimals;
    for (const QString& field : fields) {
        if (field.isEmpty()) {
            continue;
        }
        const QRegularExpressionMatch match = number.match(field);
        if (!match.hasMatch() || match.capturedLength(1) + match.capturedLength(2) > kMaxDigits ||
            (decimals && *decimals != match.capturedLength(2))) {
            return std::nullopt;
        }
        decimals = match.capturedLength(2);
    }
    return decimals;
}

// Seconds since the epoch of a field that toISOString gives back (without its milliseconds).
std::optional<qint64> timeSeconds(const QString& field) {
    const QDateTime time = QDateTime::fromString(field, Qt::ISODate).toUTC();
    if (!time.isValid() || time.toString(Qt::ISODate) != field || time.date().year() < 1970 ||
        time.date().year() > 9999) {
        return std::nullopt;
    }
    return time.toSecsSinceEpoch();
}

bool allTimes(const QStringList& fields) {
    return std::all_of(
               fields.begin(), fields.end(),
               [](const QString& field) { return field.isEmpty() || timeSeconds(field); }) &&
           std::any_of(fields.begin(), fields.end(),
                       [](const QString& field) { return !field.isEmpty(); });
}

// The bytes a value takes in the compact JSON, near enough to choose between a list and a dict.
int jsonSize(const QJsonValue& value) {
    return value.isNull() ? 4
           : value.isString()
               ? value.toString().toUtf8().size() + 2
               : QByteArray::number(value.toDouble(), 'g', QLocale::FloatingPointShortest).size();
}

// The values themselves, or as indices into a list of the distinct ones (the most frequent first)
// when that is shorter.
void addValues(const std::vector<QJsonValue>& values, QJsonObject* column) {
    QHash<QString, size_t> index;  // a value's type and text, its place in distinct
    std::vector<std::pair<QJsonValue, int>> distinct;
    std::vector<size_t> of;
    of.reserve(values.size());
    for (const QJsonValue& value : values) {
        const QString key = value.isNull()     ? QStringLiteral("null")
                            : value.isString() ? QLatin1Char('"') + value.toString()
                                               : QString::number(value.toDouble(), 'g', 17);
        const auto found = index.constFind(key);
        const size_t at = found != index.constEnd() ? *found : distinct.size();
        if (at == distinct.size()) {
            index.insert(key, at);
            distinct.emplace_back(value, 0);
        }
        ++distinct[at].second;
        of.push_back(at);
    }
    std::vector<size_t> byCount(distinct.size());
    for (size_t i = 0; i < byCount.size(); ++i) {
        byCount[i] = i;
    }
    std::stable_sort(byCount.begin(), byCount.end(),
                     [&](size_t a, size_t b) { return distinct[a].second > distinct[b].second; });
    std::vector<size_t> rank(distinct.size());
    qint64 listSize = 0;
    qint64 dictSize = 0;
    for (size_t i = 0; i < byCount.size(); ++i) {
        rank[byCount[i]] = i;
        const auto& [value, count] = distinct[byCount[i]];
        listSize += qint64{count} * (jsonSize(value) + 1);
        dictSize +=
            jsonSize(value) + 1 + qint64{count} * (QByteArray::number(qulonglong{i}).size() + 1);
    }
    QJsonArray list;
    if (dictSize < listSize) {
        QJsonArray dict;
        for (size_t i : byCount) {
            dict.append(distinct[i].first);
        }
        column->insert(QStringLiteral("dict"), dict);
        for (size_t i : of) {
            list.append(static_cast<qint64>(rank[i]));
        }
    } else {
        for (const QJsonValue& value : values) {
            list.append(value);
        }
    }
    column->insert(QStringLiteral("values"), list);
}

QJsonValue number(const std::optional<double>& value) {
    return value ? QJsonValue(*value) : QJsonValue();
}

}  // namespace

QByteArray reportDataJson(const std::vector<CompareRow>& rows,
                          const std::vector<ReportGroup>& groups) {
    const QStringList names = compareColumnNames();
    std::vector<QStringList> fields(static_cast<size_t>(names.size()));
    for (const CompareRow& row : rows) {
        const QStringList rowFields = compareRowFields(row);
        for (int c = 0; c < names.size(); ++c) {
            fields[static_cast<size_t>(c)] << rowFields.value(c);
        }
    }
    std::vector<bool> times;
    qint64 timeBase = std::numeric_limits<qint64>::max();
    for (const QStringList& column : fields) {
        times.push_back(allTimes(column));
        for (const QString& field : column) {
            if (times.back() && !field.isEmpty()) {
                timeBase = std::min(timeBase, *timeSeconds(field));
            }
        }
    }
    timeBase = timeBase == std::numeric_limits<qint64>::max() ? 0 : timeBase;

    const int hostColumn = names.indexOf(QStringLiteral("host"));
    const int startedColumn = names.indexOf(QStringLiteral("started_at"));
    const QChar nul(0);
    QJsonArray columns;
    for (int c = 0; c < names.size(); ++c) {
        const QStringList& column = fields[static_cast<size_t>(c)];
        QJsonObject object{{QStringLiteral("name"), names[c]}};
        const std::optional<int> decimals = fixedDecimals(column);
        const bool time = times[static_cast<size_t>(c)];
        object.insert(QStringLiteral("kind"), time       ? QStringLiteral("time")
                                              : decimals ? QStringLiteral("fixed")
                                                         : QStringLiteral("text"));
        if (decimals && !time) {
            object.insert(QStringLiteral("decimals"), *decimals);
        }
        // The record file's name repeats the host and the start, which the row holds already.
        const bool subst = names[c] == QLatin1String("file") && !time && !decimals &&
                           times[static_cast<size_t>(startedColumn)] &&
                           std::none_of(column.begin(), column.end(),
                                        [&](const QString& field) { return field.contains(nul); });
        std::vector<QJsonValue> values;
        values.reserve(column.size());
        for (int r = 0; r < column.size(); ++r) {
            const QString& field = column[r];
            if (field.isEmpty()) {
                values.emplace_back();
            } else if (time) {
                values.emplace_back(*timeSeconds(field) - timeBase);
            } else if (decimals && !(field.startsWith(QLatin1Char('-')) && field.toDouble() == 0)) {
                values.emplace_back(field.toDouble());
            } else if (subst) {
                // The host first: the start's digits, 'T' and 'Z' cannot then match across a
                // "\0h", so the page's script, putting the host back first, gets field back.
                const QString host = fields[static_cast<size_t>(hostColumn)][r];
                QString start = fields[static_cast<size_t>(startedColumn)][r];
                start.remove(QLatin1Char('-')).remove(QLatin1Char(':'));
                QString text = field;
                if (!host.isEmpty() && !host.contains(nul)) {
                    text.replace(host, QString(nul) + QLatin1Char('h'));
                }
                if (!start.isEmpty()) {
                    text.replace(start, QString(nul) + QLatin1Char('t'));
                }
                values.emplace_back(text);
            } else {
                values.emplace_back(field);
            }
        }
        if (subst) {
            object.insert(QStringLiteral("subst"), true);
        }
        addValues(values, &object);
        columns.append(object);
    }

    QJsonArray groupArray;
    for (const ReportGroup& group : groups) {
        groupArray.append(QJsonObject{{QStringLiteral("first"), static_cast<qint64>(group.first)},
                                      {QStringLiteral("count"), static_cast<qint64>(group.count)},
                                      {QStringLiteral("median"), number(group.median)},
                                      {QStringLiteral("floor"), number(group.floor)}});
    }
    const QJsonObject root{{QStringLiteral("count"), static_cast<qint64>(rows.size())},
                           {QStringLiteral("timeBase"), timeBase},
                           {QStringLiteral("columns"), columns},
                           {QStringLiteral("groups"), groupArray}};
    QByteArray json = QJsonDocument(root).toJson(QJsonDocument::Compact);
    // Outside strings JSON has none of these, inside them \u escapes mean the same.
    json.replace('<', "\\u003c").replace('>', "\\u003e").replace('&', "\\u0026");
    return json;
}
