#include "compare_format.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <cmath>

#include "output_text.h"

namespace {

struct NumberColumn {
    const char* name;
    std::optional<double> CompareRow::*field;
    int decimals;
};

const NumberColumn kNumberColumns[] = {
    {"ps_result", &CompareRow::psResult, 3},
    {"group_median", &CompareRow::groupMedian, 3},
    {"ratio", &CompareRow::ratio, 3},
    {"robust_z", &CompareRow::robustZ, 2},
    {"min_thread_ps", &CompareRow::minThreadPs, 3},
    {"median_thread_ps", &CompareRow::medianThreadPs, 3},
    {"cv", &CompareRow::cv, 4},
};

QString reasonText(const CompareRow& row) {
    return row.reasons.join(QStringLiteral("; "));
}

QString startedText(const CompareRow& row) {
    return row.startedAt.toUTC().toString(Qt::ISODate);
}

// The drift columns come after all the others, then the conditions', so that readers of the older
// columns by position still find them.
const char* const kDriftColumns[] = {"drift_at", "drift_median_before", "drift_median_after",
                                     "drift_ratio", "drift_p"};
const char* const kConditionColumns[] = {"newest_disturbed", "likely_cause"};

// "2026-11-23T03:00:00Z: other work used 0.93 of the worker's CPU" when the host's newest run was
// disturbed.
QString newestDisturbedText(const CompareRow& row) {
    return row.newestDisturbedAt
               ? (*row.newestDisturbedAt).toUTC().toString(Qt::ISODate) + QStringLiteral(": ") +
                     row.newestDisturbedCauses.join(QStringLiteral("; "))
               : QString();
}

// The likely cause is given for a flagged node: what may make it slow.
QStringList shownLikelyCauses(const CompareRow& row) {
    return row.flagged ? row.likelyCauses : QStringList();
}

QStringList driftFields(const CompareRow& row) {
    if (!row.drift) {
        return {QString(), QString(), QString(), QString(), QString()};
    }
    const ChangePoint& drift = *row.drift;
    return {drift.at.toUTC().toString(Qt::ISODate), QString::number(drift.medianBefore, 'f', 3),
            QString::number(drift.medianAfter, 'f', 3), QString::number(drift.ratio, 'f', 4),
            QString::number(drift.pValue, 'g', 3)};
}

// The row's fields as text, in column order; a missing number is empty.
QStringList rowFields(const CompareRow& row) {
    QStringList fields{row.host, row.test, startedText(row),
                       row.flagged ? QStringLiteral("yes") : QStringLiteral("no"), reasonText(row)};
    for (const NumberColumn& column : kNumberColumns) {
        const std::optional<double>& value = row.*column.field;
        fields << (value ? QString::number(*value, 'f', column.decimals) : QString());
    }
    fields << QString::number(row.records)
           << (row.logicalCpus ? QString::number(*row.logicalCpus) : QString())
           << row.cpuModel.value_or(QString()) << row.file;
    fields << driftFields(row) << newestDisturbedText(row)
           << shownLikelyCauses(row).join(QStringLiteral("; "));
    return fields;
}

double rounded(double value, int decimals) {
    const double scale = std::pow(10.0, decimals);
    return std::round(value * scale) / scale;
}

// host,test,started_at,flagged,reason,ps_result,group_median,ratio,robust_z,min_thread_ps,
// median_thread_ps,cv,records,logical_cpus,cpu_model,file, then drift_at,drift_median_before,
// drift_median_after,drift_ratio,drift_p, then newest_disturbed,likely_cause
QStringList compareColumns() {
    QStringList columns{QStringLiteral("host"), QStringLiteral("test"),
                        QStringLiteral("started_at"), QStringLiteral("flagged"),
                        QStringLiteral("reason")};
    for (const NumberColumn& column : kNumberColumns) {
        columns << QLatin1String(column.name);
    }
    columns << QStringLiteral("records") << QStringLiteral("logical_cpus")
            << QStringLiteral("cpu_model") << QStringLiteral("file");
    for (const char* name : kDriftColumns) {
        columns << QLatin1String(name);
    }
    for (const char* name : kConditionColumns) {
        columns << QLatin1String(name);
    }
    return columns;
}

}  // namespace

QStringList compareColumnNames() {
    return compareColumns();
}

QStringList compareRowFields(const CompareRow& row) {
    return rowFields(row);
}

QByteArray formatCompareTable(const std::vector<CompareRow>& rows) {
    std::vector<QStringList> lines{compareColumns()};
    for (const CompareRow& row : rows) {
        QStringList fields = rowFields(row);
        for (QString& field : fields) {
            // One row per line, whatever a host name or CPU model holds.
            field = terminalText(field);
            if (field.isEmpty()) {
                field = QStringLiteral("-");
            }
        }
        lines.push_back(fields);
    }
    QVector<int> widths(lines.front().size(), 0);
    for (const QStringList& line : lines) {
        for (int i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], static_cast<int>(line[i].size()));
        }
    }
    QString text;
    for (const QStringList& line : lines) {
        QString out;
        for (int i = 0; i < line.size(); ++i) {
            const bool last = i + 1 == line.size();
            out += last ? line[i] : line[i].leftJustified(widths[i]) + QStringLiteral("  ");
        }
        text += out + QLatin1Char('\n');
    }
    return text.toUtf8();
}

QByteArray formatCompareCsv(const std::vector<CompareRow>& rows) {
    QString text = compareColumns().join(QLatin1Char(',')) + QLatin1Char('\n');
    for (const CompareRow& row : rows) {
        QStringList fields = rowFields(row);
        for (QString& field : fields) {
            field = csvField(field);
        }
        text += fields.join(QLatin1Char(',')) + QLatin1Char('\n');
    }
    return text.toUtf8();
}

QByteArray formatCompareJson(const std::vector<CompareRow>& rows) {
    QJsonArray array;
    for (const CompareRow& row : rows) {
        QJsonObject object;
        object.insert(QStringLiteral("host"), row.host);
        object.insert(QStringLiteral("test"), row.test);
        object.insert(QStringLiteral("started_at"), startedText(row));
        object.insert(QStringLiteral("flagged"), row.flagged);
        object.insert(QStringLiteral("reason"), reasonText(row));
        for (const NumberColumn& column : kNumberColumns) {
            const std::optional<double>& value = row.*column.field;
            object.insert(QLatin1String(column.name),
                          value ? QJsonValue(rounded(*value, column.decimals)) : QJsonValue());
        }
        object.insert(QStringLiteral("records"), row.records);
        object.insert(QStringLiteral("logical_cpus"),
                      row.logicalCpus ? QJsonValue(*row.logicalCpus) : QJsonValue());
        object.insert(QStringLiteral("cpu_model"),
                      row.cpuModel ? QJsonValue(*row.cpuModel) : QJsonValue());
        object.insert(QStringLiteral("file"), row.file);
        const QStringList drift = driftFields(row);
        for (int i = 0; i < drift.size(); ++i) {
            // The time as text, the numbers as numbers, null without a change point.
            object.insert(QLatin1String(kDriftColumns[i]), !row.drift ? QJsonValue()
                                                           : i == 0
                                                               ? QJsonValue(drift[i])
                                                               : QJsonValue(drift[i].toDouble()));
        }
        object.insert(
            QStringLiteral("newest_disturbed"),
            row.newestDisturbedAt
                ? QJsonValue(QJsonObject{{QStringLiteral("started_at"),
                                          row.newestDisturbedAt->toUTC().toString(Qt::ISODate)},
                                         {QStringLiteral("causes"),
                                          QJsonArray::fromStringList(row.newestDisturbedCauses)}})
                : QJsonValue());
        object.insert(QStringLiteral("likely_causes"),
                      QJsonArray::fromStringList(shownLikelyCauses(row)));
        array.append(object);
    }
    QJsonObject root;
    root.insert(QStringLiteral("schema"), 1);
    root.insert(QStringLiteral("rows"), array);
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}
