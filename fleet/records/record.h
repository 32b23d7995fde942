#pragma once

// One corebench measurement as a record (schema 2; schema 1, without the conditions of the run,
// is still read).

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>
#include <optional>

#include "run_conditions.h"

// What a measurement can hold. No machine comes near these; within them every sum, mean and
// median of scores stays finite, and every count fits an int.
constexpr double kMaxScorePs = 1e12;
constexpr qint64 kMaxCpus = 1 << 20;                         // threads and CPUs
constexpr qint64 kMaxDurationS = 10LL * 366 * 24 * 60 * 60;  // ten years
constexpr qint64 kMaxMhz = 1000000;
constexpr qint64 kMaxRamGib = 1LL << 30;
constexpr qint64 kMinExitValue = -2147483648LL;  // what corebench prints is an int
constexpr qint64 kMaxExitValue = 2147483647LL;

// The power settings of the benchmark's CPUs as the run ended, in short: each value met once, the
// lowest clock cap and the highest clock, the most thermal throttle events one CPU had during
// the run; Windows' power plan and its processor limit.
struct RecordPower {
    QStringList drivers;
    QStringList governors;
    QStringList energyPreferences;
    std::optional<qint64> scalingMaxMhz;
    std::optional<qint64> cpuinfoMaxMhz;
    std::optional<qint64> throttleEvents;
    std::optional<bool> intelNoTurbo;
    std::optional<bool> boost;
    std::optional<QString> powerPlan;  // its name, or its GUID for a plan of no known name
    std::optional<qint64> maxProcessorStatePercent;
};

// What corebench-fleet run measured around the run.
struct RecordConditions {
    RunConditions figures;
    RecordPower power;
    QStringList likelyCauses;  // why the node may be slow, from its power settings
};

struct Record {
    QString host;
    QString test;
    QDateTime startedAt;  // UTC
    std::optional<double> durationS;
    QVector<double> threadPs;  // worker order; its size is the record's "threads"
    std::optional<double> psResult;
    std::optional<qint64> exitValue;
    std::optional<int> status;
    std::optional<QString> cpuModel;
    std::optional<int> logicalCpus;
    std::optional<int> physicalCpus;
    std::optional<bool> hyperthreading;
    std::optional<qint64> mhzCurrent;
    std::optional<qint64> mhzMax;
    std::optional<qint64> ramGib;
    std::optional<QString> os;
    QStringList errors;
    std::optional<QString> corebenchSha256;
    QString source;                              // "run" or "import"
    std::optional<RecordConditions> conditions;  // null for imports and schema-1 records
    // Whether the run was disturbed: the causes in words, empty for a clean run; null where it
    // is unknown (imports, schema-1 records, a system that gave too few figures).
    std::optional<QStringList> disturbed;
};

// A run known to be disturbed, which no verdict takes as evidence.
inline bool isDisturbed(const Record& record) {
    return record.disturbed && !record.disturbed->isEmpty();
}

// A record and the file it was read from.
struct LoadedRecord {
    Record record;
    QString file;
};
