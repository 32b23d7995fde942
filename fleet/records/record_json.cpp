#include "record_json.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <cmath>

#include "record_conditions.h"
#include "record_names.h"
#include "test_names.h"

namespace {

const char* const kKeys[] = {
    "schema",        "host",
    "test",          "started_at",
    "duration_s",    "threads",
    "thread_ps",     "ps_result",
    "exit_value",    "status",
    "cpu_model",     "logical_cpus",
    "physical_cpus", "hyperthreading",
    "mhz_current",   "mhz_max",
    "ram_gib",       "os",
    "errors",        "corebench_sha256",
    "source",
};

template <typename T>
QJsonValue orNull(const std::optional<T>& value) {
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

bool inRange(double value, double min, double max) {
    return std::isfinite(value) && value >= min && value <= max;
}

QJsonValue orNull(const std::optional<qint64>& value) {
    // JSON numbers are doubles here; every value a record holds is far inside 2^53.
    return value ? QJsonValue(static_cast<double>(*value)) : QJsonValue(QJsonValue::Null);
}

// Field readers: each returns false and sets error when the value has the wrong type.
class Reader {
  public:
    Reader(const QJsonObject& object, QString* error) : object_(object), error_(error) {}

    bool string(const char* key, QString* out) {
        const QJsonValue value = object_.value(QLatin1String(key));
        if (!value.isString() || value.toString().isEmpty()) {
            return fail(key, "a non-empty string");
        }
        *out = value.toString();
        return true;
    }
    bool optionalString(const char* key, std::optional<QString>* out) {
        const QJsonValue value = object_.value(QLatin1String(key));
        if (value.isNull()) {
            return true;
        }
        if (!value.isString()) {
            return fail(key, "a string or null");
        }
        *out = value.toString();
        return true;
    }
    bool optionalNumber(const char* key, std::optional<double>* out, double max) {
        const QJsonValue value = object_.value(QLatin1String(key));
        if (value.isNull()) {
            return true;
        }
        if (!value.isDouble() || !inRange(value.toDouble(), 0.0, max)) {
            return fail(key, "a number or null", 0.0, max);
        }
        *out = value.toDouble();
        return true;
    }
    template <typename T>
    bool optionalInteger(const char* key, std::optional<T>* out, qint64 min, qint64 max) {
        const QJsonValue value = object_.value(QLatin1String(key));
        if (value.isNull()) {
            return true;
        }
        const double number = value.toDouble();
        if (!value.isDouble() || number != std::floor(number) ||
            !inRange(number, static_cast<double>(min), static_cast<double>(max))) {
            return fail(key, "an integer or null", static_cast<double>(min),
                        static_cast<double>(max));
        }
        *out = static_cast<T>(number);
        return true;
    }
    bool optionalBool(const char* key, std::optional<bool>* out) {
        const QJsonValue value = object_.value(QLatin1String(key));
        if (value.isNull()) {
            return true;
        }
        if (!value.isBool()) {
            return fail(key, "true, false or null");
        }
        *out = value.toBool();
        return true;
    }
    bool numbers(const char* key, QVector<double>* out, double max) {
        const QJsonValue value = object_.value(QLatin1String(key));
        if (!value.isArray()) {
            return fail(key, "an array of numbers");
        }
        for (const QJsonValue& item : value.toArray()) {
            if (!item.isDouble() || !inRange(item.toDouble(), 0.0, max)) {
                return fail(key, "an array of numbers", 0.0, max);
            }
            out->append(item.toDouble());
        }
        return true;
    }
    bool strings(const char* key, QStringList* out) {
        const QJsonValue value = object_.value(QLatin1String(key));
        if (!value.isArray()) {
            return fail(key, "an array of strings");
        }
        for (const QJsonValue& item : value.toArray()) {
            if (!item.isString()) {
                return fail(key, "an array of strings");
            }
            out->append(item.toString());
        }
        return true;
    }
    bool name(const char* key, QString* out) {
        if (!string(key, out)) {
            return false;
        }
        if (!isValidName(*out)) {
            *error_ = QStringLiteral(
                          "\"%1\" is not a valid name (letters, digits, '.', '_' and "
                          "'-', at most 63)")
                          .arg(QLatin1String(key));
            return false;
        }
        return true;
    }
    bool fail(const char* key, const char* expected) {
        *error_ =
            QStringLiteral("\"%1\" is not %2").arg(QLatin1String(key), QLatin1String(expected));
        return false;
    }
    bool fail(const char* key, const char* expected, double min, double max) {
        fail(key, expected);
        *error_ += QStringLiteral(" from %1 to %2").arg(min, 0, 'g', 12).arg(max, 0, 'g', 12);
        return false;
    }

  private:
    const QJsonObject& object_;
    QString* error_;
};

QJsonObject recordToJson(const Record& record) {
    QJsonArray threadPs;
    for (const double ps : record.threadPs) {
        threadPs.append(ps);
    }
    QJsonObject object;
    object.insert(QStringLiteral("schema"), 2);
    object.insert(QStringLiteral("host"), record.host);
    object.insert(QStringLiteral("test"), record.test);
    object.insert(QStringLiteral("started_at"), record.startedAt.toUTC().toString(Qt::ISODate));
    object.insert(QStringLiteral("duration_s"), orNull(record.durationS));
    object.insert(QStringLiteral("threads"), record.threadPs.size());
    object.insert(QStringLiteral("thread_ps"), threadPs);
    object.insert(QStringLiteral("ps_result"), orNull(record.psResult));
    object.insert(QStringLiteral("exit_value"), orNull(record.exitValue));
    object.insert(QStringLiteral("status"), orNull(record.status));
    object.insert(QStringLiteral("cpu_model"), orNull(record.cpuModel));
    object.insert(QStringLiteral("logical_cpus"), orNull(record.logicalCpus));
    object.insert(QStringLiteral("physical_cpus"), orNull(record.physicalCpus));
    object.insert(QStringLiteral("hyperthreading"), orNull(record.hyperthreading));
    object.insert(QStringLiteral("mhz_current"), orNull(record.mhzCurrent));
    object.insert(QStringLiteral("mhz_max"), orNull(record.mhzMax));
    object.insert(QStringLiteral("ram_gib"), orNull(record.ramGib));
    object.insert(QStringLiteral("os"), orNull(record.os));
    object.insert(QStringLiteral("errors"), QJsonArray::fromStringList(record.errors));
    object.insert(QStringLiteral("corebench_sha256"), orNull(record.corebenchSha256));
    object.insert(QStringLiteral("source"), record.source);
    object.insert(QStringLiteral("conditions"), conditionsToJson(record.conditions));
    object.insert(QStringLiteral("disturbed"), disturbedToJson(record.disturbed));
    return object;
}

}  // namespace

QByteArray recordToBytes(const Record& record) {
    return QJsonDocument(recordToJson(record)).toJson(QJsonDocument::Indented);
}

std::optional<Record> recordFromJson(const QByteArray& bytes, QString* error) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (document.isNull()) {
        *error = QStringLiteral("not JSON: %1 at offset %2")
                     .arg(parseError.errorString())
                     .arg(parseError.offset);
        return std::nullopt;
    }
    if (!document.isObject()) {
        *error = QStringLiteral("not a JSON object");
        return std::nullopt;
    }
    const QJsonObject object = document.object();
    for (const char* key : kKeys) {
        if (!object.contains(QLatin1String(key))) {
            *error = QStringLiteral("key \"%1\" is missing").arg(QLatin1String(key));
            return std::nullopt;
        }
    }
    // Schema 2 added the conditions of the run, which a schema-1 record does not know.
    const QJsonValue schema = object.value(QStringLiteral("schema"));
    if (schema != QJsonValue(1) && schema != QJsonValue(2)) {
        *error = QStringLiteral("\"schema\" is not 1 or 2");
        return std::nullopt;
    }
    for (const char* key : {"conditions", "disturbed"}) {
        if (schema == QJsonValue(2) && !object.contains(QLatin1String(key))) {
            *error = QStringLiteral("key \"%1\" is missing").arg(QLatin1String(key));
            return std::nullopt;
        }
    }
    Record record;
    Reader read(object, error);
    QString startedAt;
    std::optional<int> threads;
    if (!read.name("host", &record.host) || !read.name("test", &record.test) ||
        !read.string("started_at", &startedAt) || !read.string("source", &record.source) ||
        !read.optionalNumber("duration_s", &record.durationS, kMaxDurationS) ||
        !read.optionalInteger("threads", &threads, 0, kMaxCpus) ||
        !read.numbers("thread_ps", &record.threadPs, kMaxScorePs) ||
        !read.optionalNumber("ps_result", &record.psResult, kMaxScorePs) ||
        !read.optionalInteger("exit_value", &record.exitValue, kMinExitValue, kMaxExitValue) ||
        !read.optionalInteger("status", &record.status, 0, 255) ||
        !read.optionalString("cpu_model", &record.cpuModel) ||
        !read.optionalInteger("logical_cpus", &record.logicalCpus, 0, kMaxCpus) ||
        !read.optionalInteger("physical_cpus", &record.physicalCpus, 0, kMaxCpus) ||
        !read.optionalBool("hyperthreading", &record.hyperthreading) ||
        !read.optionalInteger("mhz_current", &record.mhzCurrent, 0, kMaxMhz) ||
        !read.optionalInteger("mhz_max", &record.mhzMax, 0, kMaxMhz) ||
        !read.optionalInteger("ram_gib", &record.ramGib, 0, kMaxRamGib) ||
        !read.optionalString("os", &record.os) || !read.strings("errors", &record.errors) ||
        !read.optionalString("corebench_sha256", &record.corebenchSha256) ||
        !conditionsFromJson(object.value(QStringLiteral("conditions")), &record.conditions,
                            error) ||
        !disturbedFromJson(object.value(QStringLiteral("disturbed")), &record.disturbed, error)) {
        return std::nullopt;
    }
    // Only the form records are written in: a time without a zone would be read in the reader's.
    const std::optional<QDateTime> utc = utcTimeFromText(startedAt);
    if (!utc) {
        *error = QStringLiteral("\"started_at\" is not a UTC time such as 2026-11-23T17:29:41Z");
        return std::nullopt;
    }
    record.startedAt = *utc;
    // One test has one name, whatever the case it was written in.
    const QString test = canonicalTestName(record.test);
    if (test.isEmpty()) {
        *error = QStringLiteral("\"test\" is not one of corebench's tests");
        return std::nullopt;
    }
    record.test = test;
    if (threads.value_or(-1) != record.threadPs.size()) {
        *error = QStringLiteral("\"threads\" does not match the length of \"thread_ps\"");
        return std::nullopt;
    }
    if (record.source != QLatin1String("run") && record.source != QLatin1String("import")) {
        *error = QStringLiteral("\"source\" is neither \"run\" nor \"import\"");
        return std::nullopt;
    }
    return record;
}
