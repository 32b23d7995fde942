#include "fleet_summary.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QSet>
#include <cmath>

#include "record_files.h"
#include "record_names.h"

namespace {

const char kKind[] = "corebench-summary";
// 3 added each host's likely cause and each group's median clock.
constexpr int kSchema = 3;

QString isoTime(const QDateTime& time) {
    return time.toUTC().toString(Qt::ISODate);
}

QJsonValue optionalNumber(const std::optional<double>& value) {
    return value ? QJsonValue(*value) : QJsonValue();
}

// Reads the values of one object of the summary; each refusal names the object and the key.
class Reader {
  public:
    Reader(const QJsonObject& object, QString where, const QDateTime& now, QString* error)
        : object_(object), where_(std::move(where)), now_(now), error_(error) {}

    bool number(const char* key, double min, double max, std::optional<double>* out,
                bool nullable = false) {
        const QJsonValue value = object_.value(QLatin1String(key));
        if (nullable && value.isNull()) {
            out->reset();
            return true;
        }
        const double number = value.toDouble();
        if (!value.isDouble() || !std::isfinite(number) || number < min || number > max) {
            return fail(key, QStringLiteral("is not a number from %1 to %2")
                                 .arg(min, 0, 'g', 12)
                                 .arg(max, 0, 'g', 12));
        }
        *out = number;
        return true;
    }
    bool name(const char* key, QString* out) {
        *out = object_.value(QLatin1String(key)).toString();
        return isValidName(*out) || fail(key, QStringLiteral("is not a valid name"));
    }
    // compare's form only: a time written otherwise (without a zone, say) is not compare's.
    bool time(const char* key, QDateTime* out) {
        const QString text = object_.value(QLatin1String(key)).toString();
        *out = QDateTime::fromString(text, Qt::ISODate);
        if (!out->isValid() || isoTime(*out) != text) {
            return fail(key, QStringLiteral("is not a UTC time such as 2026-11-23T03:00:00Z"));
        }
        return out->secsTo(now_) >= -kMaxFutureSecs ||
               fail(key, QStringLiteral("%1 is in the future").arg(text));
    }
    bool string(const char* key, QString* out) {
        const QJsonValue value = object_.value(QLatin1String(key));
        *out = value.toString();
        return value.isString() || fail(key, QStringLiteral("is not a string"));
    }
    bool line(const char* key, QString* out) {
        if (!string(key, out)) {
            return false;
        }
        return oneLine(*out, kMaxSummaryReasonChars) == *out ||
               fail(key, QStringLiteral("is not one line of at most %1 characters")
                             .arg(kMaxSummaryReasonChars));
    }
    bool reason(bool flagged, QString* out) {
        return line("reason", out) &&
               (out->isEmpty() != flagged ||
                fail("reason", QStringLiteral("does not agree with \"flagged\"")));
    }
    bool boolean(const char* key, bool* out) {
        const QJsonValue value = object_.value(QLatin1String(key));
        *out = value.toBool();
        return value.isBool() || fail(key, QStringLiteral("is not true or false"));
    }
    bool fail(const char* key, const QString& why) {
        *error_ = QStringLiteral("%1: \"%2\" %3").arg(where_, QLatin1String(key), why);
        return false;
    }

  private:
    const QJsonObject& object_;
    QString where_;
    QDateTime now_;
    QString* error_;
};

QString hostTest(const QString& host, const QString& test) {
    return host + QLatin1Char('/') + test;  // neither name holds a '/'
}

bool readGroup(const QJsonObject& object, Reader& read, GroupStats* group) {
    std::optional<double> cpus;
    std::optional<double> median;
    QJsonArray members = object.value(QStringLiteral("members")).toArray();
    if (!read.string("cpu_model", &group->key.cpuModel) ||
        !read.number("logical_cpus", -1, kMaxCpus, &cpus) || !read.name("test", &group->key.test) ||
        !read.number("median", 0, kMaxScorePs, &median) ||
        !read.number("mad", 0, kMaxScorePs, &group->mad, true) ||
        !read.number("median_mhz", 0, kMaxMhz, &group->medianMhz, true)) {
        return false;
    }
    if (*cpus != std::floor(*cpus)) {
        return read.fail("logical_cpus", QStringLiteral("is not a whole number"));
    }
    group->key.logicalCpus = static_cast<int>(*cpus);
    group->median = *median;
    for (const QJsonValue& member : members) {
        if (!isValidName(member.toString())) {
            return read.fail("members", QStringLiteral("holds something not a host name"));
        }
        group->members << member.toString();
    }
    return !group->members.isEmpty() || read.fail("members", QStringLiteral("is empty"));
}

bool readHost(Reader& read, SummaryHost* host) {
    return read.name("host", &host->host) && read.name("test", &host->test) &&
           read.time("started_at", &host->startedAt) && read.boolean("flagged", &host->flagged) &&
           read.reason(host->flagged, &host->reason) &&
           read.number("ps_result", 0, kMaxScorePs, &host->psResult, true) &&
           read.string("file", &host->file) && read.line("likely_cause", &host->likelyCause);
}

// Each scored host in exactly one group of its test, and nothing else in any group.
bool membersAgree(const FleetSummary& summary, QString* error) {
    QSet<QString> scored;
    for (const SummaryHost& host : summary.hosts) {
        if (host.psResult) {
            scored.insert(hostTest(host.host, host.test));
        }
    }
    for (const GroupStats& group : summary.groups) {
        for (const QString& member : group.members) {
            if (!scored.remove(hostTest(member, group.key.test))) {
                *error = QStringLiteral(
                             "%1 is in a group of %2 without a score of that test, "
                             "or in two")
                             .arg(member, group.key.test);
                return false;
            }
        }
    }
    if (!scored.isEmpty()) {
        const QString key = *scored.begin();
        *error = QStringLiteral("the %1 score of %2 is in no group")
                     .arg(key.section(QLatin1Char('/'), 1), key.section(QLatin1Char('/'), 0, 0));
        return false;
    }
    return true;
}

}  // namespace

QByteArray summaryToJson(const std::vector<CompareRow>& rows, const std::vector<GroupStats>& groups,
                         const CompareOptions& options, const QString& records,
                         const QDateTime& generatedAt) {
    QJsonArray groupArray;
    for (const GroupStats& group : groups) {
        groupArray.append(QJsonObject{
            {QStringLiteral("cpu_model"), group.key.cpuModel},
            {QStringLiteral("logical_cpus"), group.key.logicalCpus},
            {QStringLiteral("test"), group.key.test},
            {QStringLiteral("median"), group.median},
            {QStringLiteral("mad"), optionalNumber(group.mad)},
            {QStringLiteral("median_mhz"), optionalNumber(group.medianMhz)},
            {QStringLiteral("members"), QJsonArray::fromStringList(group.members)},
        });
    }
    QJsonArray hostArray;
    for (const CompareRow& row : rows) {
        if (row.disturbed) {
            continue;
        }
        hostArray.append(QJsonObject{
            {QStringLiteral("host"), row.host},
            {QStringLiteral("test"), row.test},
            {QStringLiteral("started_at"), isoTime(row.startedAt)},
            {QStringLiteral("flagged"), row.flagged},
            {QStringLiteral("reason"), row.reasons.join(QStringLiteral("; "))},
            {QStringLiteral("ps_result"), optionalNumber(row.psResult)},
            {QStringLiteral("file"), row.file},
            {QStringLiteral("likely_cause"),
             oneLine(row.likelyCauses.join(QStringLiteral("; ")), kMaxSummaryReasonChars)},
        });
    }
    const QJsonObject root{
        {QStringLiteral("kind"), QLatin1String(kKind)},
        {QStringLiteral("schema"), kSchema},
        {QStringLiteral("generated_at"), isoTime(generatedAt)},
        {QStringLiteral("records"), records},
        {QStringLiteral("floor"), options.floor},
        {QStringLiteral("z"), options.z},
        {QStringLiteral("groups"), groupArray},
        {QStringLiteral("hosts"), hostArray},
    };
    return QJsonDocument(root).toJson(QJsonDocument::Compact) + '\n';
}

std::optional<FleetSummary> summaryFromJson(const QByteArray& bytes, const QDateTime& now,
                                            QString* error) {
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
    Reader read(root, QStringLiteral("the summary"), now, error);
    if (!read.time("generated_at", &summary.generatedAt) ||
        !read.string("records", &summary.records) ||
        !read.number("floor", kMinFloorRatio, kMaxFloorRatio, &floor) ||
        !read.number("z", kMinZ, kMaxZ, &z)) {
        return std::nullopt;
    }
    summary.options = {*floor, *z};
    for (const QJsonValue& value : root.value(QStringLiteral("groups")).toArray()) {
        const QJsonObject object = value.toObject();
        Reader readGroupValues(object, QStringLiteral("group %1").arg(summary.groups.size()), now,
                               error);
        GroupStats group;
        if (!readGroup(object, readGroupValues, &group)) {
            return std::nullopt;
        }
        summary.groups.push_back(std::move(group));
    }
    QSet<QString> seen;
    for (const QJsonValue& value : root.value(QStringLiteral("hosts")).toArray()) {
        const QJsonObject object = value.toObject();
        Reader readHostValues(object, QStringLiteral("host entry %1").arg(summary.hosts.size()),
                              now, error);
        SummaryHost host;
        if (!readHost(readHostValues, &host)) {
            return std::nullopt;
        }
        if (seen.contains(hostTest(host.host, host.test))) {
            *error = QStringLiteral("%1 of %2 is there twice").arg(host.test, host.host);
            return std::nullopt;
        }
        seen.insert(hostTest(host.host, host.test));
        summary.hosts.push_back(std::move(host));
    }
    if (summary.hosts.empty()) {
        *error = QStringLiteral("it holds no host");
        return std::nullopt;
    }
    if (!membersAgree(summary, error)) {
        return std::nullopt;
    }
    return summary;
}

QString oneLine(const QString& text, int maxChars) {
    QString line = text;
    for (QChar& c : line) {
        const QChar::Category category = c.category();
        if (category == QChar::Other_Control || category == QChar::Other_Format ||
            category == QChar::Separator_Line || category == QChar::Separator_Paragraph) {
            c = QLatin1Char(' ');
        }
    }
    line = line.simplified();
    if (line.size() > maxChars) {
        // Not between the two halves of a character beyond 16 bits.
        const int cut = maxChars - 3 - (line.at(maxChars - 4).isHighSurrogate() ? 1 : 0);
        line = line.left(cut) + QStringLiteral("...");
    }
    return line;
}
