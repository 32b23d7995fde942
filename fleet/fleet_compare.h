#pragma once

// Finds slow nodes among records: the newest record per host and test, compared within groups of
// like machines (CPU model, logical CPU count, test).

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

#include "drift.h"
#include "record.h"

struct CompareOptions {
    double floor = 0.90;  // a score below floor x the group median is slow
    double z = 3.5;       // a robust z below -z is slow (groups of 3 and more)
};

struct CompareRow {
    QString host;
    QString test;
    QDateTime startedAt;
    bool flagged = false;
    QStringList reasons;
    std::optional<double> psResult;
    std::optional<double> groupMedian;
    std::optional<double> ratio;
    std::optional<double> robustZ;
    std::optional<double> minThreadPs;
    std::optional<double> medianThreadPs;
    std::optional<double> cv;
    int records = 0;
    std::optional<int> logicalCpus;
    std::optional<QString> cpuModel;
    QString file;
    std::optional<ChangePoint> drift;  // the latest of the host's current segment, if any
};

// One row per (host, test), sorted by group, then score (slowest first, no score last), then host.
std::vector<CompareRow> compareRecords(const std::vector<LoadedRecord>& records,
                                       const CompareOptions& options);
