#include "fleet_summary.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <cmath>

namespace {

const char kKind[] = "corebench-summary";
constexpr int kSchema = 1;

QString isoTime(const QDateTime& time) {
    return time.toUTC().toString(Qt::ISODate);
}

QJsonValue optionalNumber(const std::optional<double>& value) {
    return value ? QJsonValue(*value) : QJsonValue();
}

// A finite number, or nothing for null; false for anything else.
bool readNumber(const QJsonValue& value, std::optional<double>* out) {
    if (value.isNull()) {
        *out = std::nullopt;
        return true;
    }
    if (!value.isDouble() || !std::isfinite(value.toDouble())) {
        return false;
    }
    *out = value.toDouble();
    return true;
}

bool readTime(const QJsonValue& value, QDateTime* out) {
    *out = QDateTime::fromString(value.toString(), Qt::ISODate);
    return value.isString() && out->isValid();
}

bool readGroup(const QJsonObject& object, GroupStats* group) {
    std::optional<double> median;
    const QJsonValue cpus = object.value(QStringLiteral("logical_cpus"));
    if (!object.value(QStringLiteral("cpu_model")).isString() || !cpus.isDouble() ||
        !object.value(QStringLiteral("test")).isString() ||
        !readNumber(object.value(QStringLiteral("median")), &median) || !median ||
        !readNumber(object.value(QStringLiteral("mad")), &group->mad) ||
        !object.value(QStringLiteral("members")).isArray()) {
        return false;
    }
    group->key = {object.value(QStringLiteral("cpu_model")).toString(), cpus.toInt(),
                  object.value(QStringLiteral("test")).toString()};
    group->median = *median;
    for (const QJsonValue& member : object.value(QStringLiteral("members")).toArray()) {
        group->members << member.toString();
    }
    return true;
}

bool readHost(const QJsonObject& object, SummaryHost* host) {
    host->host = object.value(QStringLiteral("host")).toString();
    host->test = object.value(QStringLiteral("test")).toString();
    host->flagged = object.value(QStringLiteral("flagged")).toBool();
    host->reason = object.value(QStringLiteral("reason")).toString();
    host->file = object.value(QStringLiteral("file")).toString();
    return !host->host.isEmpty() && !host->test.isEmpty() &&
           object.value(QStringLiteral("flagged")).isBool() &&
           readTime(object.value(QStringLiteral("started_at")), &host->startedAt) &&
           readNumber(object.value(QStringLiteral("ps_result")), &host->psResult);
}

}  // namespace

QByteArray summaryToJson(const std::vector<CompareRow>& rows, const std::vector<GroupStats>& groups,
                         const CompareOptions& options, const QDateTime& generatedAt) {
    QJsonArray groupArray;
    for (const GroupStats& group : groups) {
        groupArray.append(QJsonObject{
            {QStringLiteral("cpu_model"), group.key.cpuModel},
            {QStringLiteral("logical_cpus"), group.key.logicalCpus},
            {QStringLiteral("test"), group.key.test},
            {QStringLiteral("median"), group.median},
            {QStringLiteral("mad"), optionalNumber(group.mad)},
            {QStringLiteral("members"), QJsonArray::fromStringList(group.members)},
        });
    }
    QJsonArray hostArray;
    for (const CompareRow& row : rows) {
        hostArray.append(QJsonObject{
            {QStringLiteral("host"), row.host},
            {QStringLiteral("test"), row.test},
            {QStringLiteral("started_at"), isoTime(row.startedAt)},
            {QStringLiteral("flagged"), row.flagged},
            {QStringLiteral("reason"), row.reasons.join(QStringLiteral("; "))},
            {QStringLiteral("ps_result"), optionalNumber(row.psResult)},
            {QStringLiteral("file"), row.file},
        });
    }
    const QJsonObject root{
        {QStringLiteral("kind"), QLatin1String(kKind)},
        {QStringLiteral("schema"), kSchema},
        {QStringLiteral("generated_at"), isoTime(generatedAt)},
        {QStringLiteral("floor"), options.floor},
        {QStringLiteral("z"), options.z},
        {QStringLiteral("groups"), groupArray},
        {QStringLiteral("hosts"), hostArray},
    };
    return QJsonDocument(root).toJson(QJsonDocument::Compact) + '\n';
}

std::optional<FleetSummary> summaryFromJson(const QByteArray& bytes, QString* error) {
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    const QJsonObject root = document.object();
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        *error = QStringLiteral("not JSON: %1").arg(parseError.errorString());
        return std::nullopt;
    }
    if (root.value(QStringLiteral("kind")).toString() != QLatin1String(kKind) ||
        root.value(QStringLiteral("schema")).toInt() != kSchema) {
        *error = QStringLiteral("not a corebench summary of schema %1").arg(kSchema);
        return std::nullopt;
    }
    FleetSummary summary;
    std::optional<double> floor;
    std::optional<double> z;
    if (!readTime(root.value(QStringLiteral("generated_at")), &summary.generatedAt) ||
        !readNumber(root.value(QStringLiteral("floor")), &floor) || !floor ||
        !readNumber(root.value(QStringLiteral("z")), &z) || !z) {
        *error = QStringLiteral("generated_at, floor or z missing or invalid");
        return std::nullopt;
    }
    summary.options = {*floor, *z};
    for (const QJsonValue& value : root.value(QStringLiteral("groups")).toArray()) {
        GroupStats group;
        if (!readGroup(value.toObject(), &group)) {
            *error = QStringLiteral("invalid group %1").arg(summary.groups.size());
            return std::nullopt;
        }
        summary.groups.push_back(std::move(group));
    }
    for (const QJsonValue& value : root.value(QStringLiteral("hosts")).toArray()) {
        SummaryHost host;
        if (!readHost(value.toObject(), &host)) {
            *error = QStringLiteral("invalid host entry %1").arg(summary.hosts.size());
            return std::nullopt;
        }
        summary.hosts.push_back(std::move(host));
    }
    return summary;
}
