#pragma once

// One corebench measurement as a record (schema 1).

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>
#include <optional>

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
