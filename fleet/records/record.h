#pragma once

// One corebench measurement as a record (schema 1).

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>
#include <optional>

// What a measurement can hold. No machine comes near these; within them every sum, mean and
// median of scores stays finite, and every count fits an int.
constexpr double kMaxScorePs = 1e12;
constexpr qint64 kMaxCpus = 1 << 20;                         // threads and CPUs
constexpr qint64 kMaxDurationS = 10LL * 366 * 24 * 60 * 60;  // ten years
constexpr qint64 kMaxMhz = 1000000;
constexpr qint64 kMaxRamGib = 1LL << 30;
constexpr qint64 kMinExitValue = -2147483648LL;  // what corebench prints is an int
constexpr qint64 kMaxExitValue = 2147483647LL;

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
    QString source;  // "run" or "import"
};

// A record and the file it was read from.
struct LoadedRecord {
    Record record;
    QString file;
};
