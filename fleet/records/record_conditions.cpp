#include "record_conditions.h"

#include <QJsonArray>
#include <QJsonObject>
#include <algorithm>
#include <cmath>

#include "disturbance.h"

namespace {

// A figure of the conditions: seconds, shares of CPUs, CPUs of other work, the load average.
// None comes near this; a larger one is not a measurement.
constexpr double kMaxFigure = 1e9;
// The power settings' words (drivers, governors, preferences) are short names, one per value met.
constexpr int kMaxWordChars = 64;
constexpr int kMaxWords = 64;
// Shares to four decimals and seconds to the tenth of a millisecond say all the measurement can.
constexpr double kFigureScale = 1e4;

struct DoubleFigure {
    const char* key;
    std::optional<double> RunConditions::*field;
};
const DoubleFigure kDoubleFigures[] = {
    {"process_cpu_s", &RunConditions::processCpuS},
    {"cpu_share", &RunConditions::cpuShare},
    {"wait_share", &RunConditions::waitShare},
    {"other_cpus_allowed", &RunConditions::otherCpusAllowed},
    {"other_cpus_machine", &RunConditions::otherCpusMachine},
    {"other_share_of_worker_cpus", &RunConditions::otherShareOfWorkerCpus},
    {"steal_share", &RunConditions::stealShare},
    {"load_before", &RunConditions::loadBefore},
};

struct IntFigure {
    const char* key;
    std::optional<int> RunConditions::*field;
};
const IntFigure kIntFigures[] = {
    {"worker_threads", &RunConditions::workerThreads},
    {"allowed_cpus", &RunConditions::allowedCpus},
    {"machine_cpus", &RunConditions::machineCpus},
};

struct PowerNumber {
    const char* key;
    std::optional<qint64> RecordPower::*field;
    qint64 max;
};
const PowerNumber kPowerNumbers[] = {
    {"scaling_max_mhz", &RecordPower::scalingMaxMhz, kMaxMhz},
    {"cpuinfo_max_mhz", &RecordPower::cpuinfoMaxMhz, kMaxMhz},
    // A counter of the kernel; as a JSON number exact up to 2^53.
    {"throttle_events", &RecordPower::throttleEvents, 1LL << 53},
    {"max_processor_state_percent", &RecordPower::maxProcessorStatePercent, 100},
};

struct PowerWords {
    const char* key;
    QStringList RecordPower::*field;
};
const PowerWords kPowerWords[] = {
    {"drivers", &RecordPower::drivers},
    {"governors", &RecordPower::governors},
    {"energy_preferences", &RecordPower::energyPreferences},
};

struct PowerSwitch {
    const char* key;
    std::optional<bool> RecordPower::*field;
};
const PowerSwitch kPowerSwitches[] = {
    {"intel_no_turbo", &RecordPower::intelNoTurbo},
    {"boost", &RecordPower::boost},
};

QJsonValue figure(const std::optional<double>& value) {
    return value ? QJsonValue(std::round(*value * kFigureScale) / kFigureScale) : QJsonValue();
}

template <typename T>
QJsonValue orNull(const std::optional<T>& value) {
    return value ? QJsonValue(*value) : QJsonValue();
}

QJsonValue orNull(const std::optional<qint64>& value) {
    return value ? QJsonValue(static_cast<double>(*value)) : QJsonValue();
}

void addOnce(const std::optional<std::string>& word, QStringList* words) {
    if (word && !words->contains(QString::fromStdString(*word))) {
        *words << QString::fromStdString(*word);
    }
}

QStringList qStrings(const std::vector<std::string>& strings) {
    QStringList list;
    for (const std::string& text : strings) {
        list << QString::fromStdString(text);
    }
    return list;
}

bool isOneLine(const QString& text) {
    return std::none_of(text.begin(), text.end(), [](QChar c) {
        const QChar::Category category = c.category();
        return category == QChar::Other_Control || category == QChar::Separator_Line ||
               category == QChar::Separator_Paragraph;
    });
}

// Reads the keys of one object; each refusal names where and the key.
class Reader {
  public:
    Reader(const QJsonObject& object, QString where, QString* error)
        : object_(object), where_(std::move(where)), error_(error) {}

    bool has(const char* key) {
        return object_.contains(QLatin1String(key)) ||
               fail(key, QStringLiteral("is missing"), QString());
    }
    bool number(const char* key, double max, std::optional<double>* out) {
        if (!has(key)) {
            return false;
        }
        const QJsonValue value = object_.value(QLatin1String(key));
        if (value.isNull()) {
            return true;
        }
        const double number = value.toDouble();
        if (!value.isDouble() || !std::isfinite(number) || number < 0 || number > max) {
            return fail(key, QStringLiteral("is not null or a number from 0 to %1"), max);
        }
        *out = number;
        return true;
    }
    template <typename T>
    bool integer(const char* key, qint64 max, std::optional<T>* out) {
        std::optional<double> value;
        if (!number(key, static_cast<double>(max), &value)) {
            return false;
        }
        if (value && *value != std::floor(*value)) {
            return fail(key, QStringLiteral("is not a whole number"), QString());
        }
        if (value) {
            *out = static_cast<T>(*value);
        }
        return true;
    }
    bool boolean(const char* key, std::optional<bool>* out) {
        if (!has(key)) {
            return false;
        }
        const QJsonValue value = object_.value(QLatin1String(key));
        if (!value.isNull() && !value.isBool()) {
            return fail(key, QStringLiteral("is not true, false or null"), QString());
        }
        if (value.isBool()) {
            *out = value.toBool();
        }
        return true;
    }
    bool string(const char* key, std::optional<QString>* out) {
        if (!has(key)) {
            return false;
        }
        const QJsonValue value = object_.value(QLatin1String(key));
        if (!value.isNull() && (!value.isString() || !isOneLine(value.toString()) ||
                                value.toString().size() > kMaxWordChars)) {
            return fail(key, QStringLiteral("is not a line of at most %1 characters or null"),
                        kMaxWordChars);
        }
        if (value.isString()) {
            *out = value.toString();
        }
        return true;
    }
    bool strings(const char* key, int maxCount, int maxChars, QStringList* out) {
        if (!has(key)) {
            return false;
        }
        return stringList(object_.value(QLatin1String(key)), maxCount, maxChars, out) ||
               fail(key,
                    QStringLiteral("is not an array of at most %1 lines of 1 to %2 characters")
                        .arg(maxCount),
                    maxChars);
    }
    static bool stringList(const QJsonValue& value, int maxCount, int maxChars, QStringList* out) {
        const QJsonArray array = value.toArray();
        if (!value.isArray() || array.size() > maxCount) {
            return false;
        }
        for (const QJsonValue& item : array) {
            const QString text = item.toString();
            if (!item.isString() || text.isEmpty() || text.size() > maxChars || !isOneLine(text)) {
                return false;
            }
            *out << text;
        }
        return true;
    }
    bool fail(const char* key, const QString& why, double limit) {
        return fail(key, why, QString::number(limit, 'g', 12));
    }
    bool fail(const char* key, const QString& why, const QString& limit) {
        *error_ = QStringLiteral("%1\"%2\" %3")
                      .arg(where_, QLatin1String(key), limit.isEmpty() ? why : why.arg(limit));
        return false;
    }

  private:
    const QJsonObject& object_;
    QString where_;
    QString* error_;
};

}  // namespace

RecordConditions recordConditions(const RunConditions& figures, const PowerState& before,
                                  const PowerState& after) {
    RecordConditions conditions;
    conditions.figures = figures;
    RecordPower& power = conditions.power;
    for (const CpuPower& cpu : after.cpus) {
        addOnce(cpu.driver, &power.drivers);
        addOnce(cpu.governor, &power.governors);
        addOnce(cpu.energyPreference, &power.energyPreferences);
        if (cpu.scalingMaxKhz &&
            (!power.scalingMaxMhz || *cpu.scalingMaxKhz / 1000 < *power.scalingMaxMhz)) {
            power.scalingMaxMhz = *cpu.scalingMaxKhz / 1000;
        }
        if (cpu.cpuinfoMaxKhz &&
            (!power.cpuinfoMaxMhz || *cpu.cpuinfoMaxKhz / 1000 > *power.cpuinfoMaxMhz)) {
            power.cpuinfoMaxMhz = *cpu.cpuinfoMaxKhz / 1000;
        }
        const auto old = std::find_if(before.cpus.begin(), before.cpus.end(),
                                      [&](const CpuPower& entry) { return entry.cpu == cpu.cpu; });
        if (old == before.cpus.end()) {
            continue;
        }
        // A counter that went back (a CPU taken offline and back) rose by nothing.
        for (const auto counter : {&CpuPower::coreThrottles, &CpuPower::packageThrottles}) {
            if ((*old).*counter && cpu.*counter) {
                const qint64 rise = std::max<qint64>(0, *(cpu.*counter) - *((*old).*counter));
                power.throttleEvents = std::max(power.throttleEvents.value_or(0), rise);
            }
        }
    }
    power.intelNoTurbo = after.intelNoTurbo;
    power.boost = after.boost;
    if (after.powerScheme) {
        const std::string name = powerSchemeName(*after.powerScheme);
        power.powerPlan = QString::fromStdString(name.empty() ? *after.powerScheme : name);
    }
    power.maxProcessorStatePercent = after.maxProcessorStatePercent;
    conditions.likelyCauses = qStrings(likelyCauses(before, after));
    return conditions;
}

std::optional<QStringList> disturbedCauses(const RunConditions& figures) {
    const std::optional<std::vector<std::string>> causes = disturbanceCauses(figures);
    return causes ? std::optional<QStringList>(qStrings(*causes)) : std::nullopt;
}

QJsonValue conditionsToJson(const std::optional<RecordConditions>& conditions) {
    if (!conditions) {
        return QJsonValue();
    }
    const RunConditions& figures = conditions->figures;
    QJsonObject object{{QStringLiteral("wall_s"), figure(figures.wallS)}};
    for (const DoubleFigure& entry : kDoubleFigures) {
        object.insert(QLatin1String(entry.key), figure(figures.*entry.field));
    }
    for (const IntFigure& entry : kIntFigures) {
        object.insert(QLatin1String(entry.key), orNull(figures.*entry.field));
    }
    const RecordPower& power = conditions->power;
    QJsonObject powerObject;
    for (const PowerWords& entry : kPowerWords) {
        powerObject.insert(QLatin1String(entry.key),
                           QJsonArray::fromStringList(power.*entry.field));
    }
    for (const PowerNumber& entry : kPowerNumbers) {
        powerObject.insert(QLatin1String(entry.key), orNull(power.*entry.field));
    }
    for (const PowerSwitch& entry : kPowerSwitches) {
        powerObject.insert(QLatin1String(entry.key), orNull(power.*entry.field));
    }
    powerObject.insert(QStringLiteral("power_plan"), orNull(power.powerPlan));
    object.insert(QStringLiteral("power"), powerObject);
    object.insert(QStringLiteral("likely_causes"),
                  QJsonArray::fromStringList(conditions->likelyCauses));
    return object;
}

QJsonValue disturbedToJson(const std::optional<QStringList>& disturbed) {
    return disturbed ? QJsonValue(QJsonArray::fromStringList(*disturbed)) : QJsonValue();
}

bool conditionsFromJson(const QJsonValue& value, std::optional<RecordConditions>* conditions,
                        QString* error) {
    // Undefined in a schema-1 record, which has no such key.
    if (value.isNull() || value.isUndefined()) {
        return true;
    }
    if (!value.isObject()) {
        *error = QStringLiteral("\"conditions\" is not an object or null");
        return false;
    }
    const QJsonObject object = value.toObject();
    const QJsonObject powerObject = object.value(QStringLiteral("power")).toObject();
    RecordConditions read;
    Reader figures(object, QStringLiteral("\"conditions\": "), error);
    std::optional<double> wallS;
    bool ok = figures.number("wall_s", kMaxFigure, &wallS);
    for (const DoubleFigure& entry : kDoubleFigures) {
        ok = ok && figures.number(entry.key, kMaxFigure, &(read.figures.*entry.field));
    }
    for (const IntFigure& entry : kIntFigures) {
        ok = ok && figures.integer(entry.key, kMaxCpus, &(read.figures.*entry.field));
    }
    ok = ok && figures.strings("likely_causes", kMaxCauses, kMaxCauseChars, &read.likelyCauses);
    if (ok && !object.value(QStringLiteral("power")).isObject()) {
        ok = figures.fail("power", QStringLiteral("is not an object"), QString());
    }
    Reader power(powerObject, QStringLiteral("\"conditions\": \"power\": "), error);
    for (const PowerWords& entry : kPowerWords) {
        ok = ok && power.strings(entry.key, kMaxWords, kMaxWordChars, &(read.power.*entry.field));
    }
    for (const PowerNumber& entry : kPowerNumbers) {
        ok = ok && power.integer(entry.key, entry.max, &(read.power.*entry.field));
    }
    for (const PowerSwitch& entry : kPowerSwitches) {
        ok = ok && power.boolean(entry.key, &(read.power.*entry.field));
    }
    ok = ok && power.string("power_plan", &read.power.powerPlan);
    if (!ok) {
        return false;
    }
    if (!wallS) {
        *error = QStringLiteral("\"conditions\": \"wall_s\" is null");
        return false;
    }
    read.figures.wallS = *wallS;
    *conditions = std::move(read);
    return true;
}

bool disturbedFromJson(const QJsonValue& value, std::optional<QStringList>* disturbed,
                       QString* error) {
    if (value.isNull() || value.isUndefined()) {
        return true;
    }
    QStringList causes;
    if (!Reader::stringList(value, kMaxCauses, kMaxCauseChars, &causes)) {
        *error = QStringLiteral(
                     "\"disturbed\" is not null or an array of at most %1 lines of 1 to %2 "
                     "characters")
                     .arg(kMaxCauses)
                     .arg(kMaxCauseChars);
        return false;
    }
    *disturbed = std::move(causes);
    return true;
}
