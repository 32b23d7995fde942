#pragma once

// Finds slow nodes among records: the newest undisturbed record per host and test, compared within
// groups of like machines (CPU model, logical CPU count, test).

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

// What the options can sensibly be: a floor of 1 or more flags half the fleet or all of it, a z
// below 1 one node in six of a normal fleet; compare takes nothing else, nor check a summary made
// with anything else.
constexpr double kMinFloorRatio = 0.5;
constexpr double kMaxFloorRatio = 0.99;
constexpr double kMinZ = 1.0;
constexpr double kMaxZ = 100.0;

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
    std::optional<ChangePoint> drift;  // the current drift of the host's newest segment, if any
    // The run shown was disturbed: the host has no other run of the test, so it is neither
    // judged nor counted in its group.
    bool disturbed = false;
    // The host's newest run of the test when it was disturbed (the run shown is then an older
    // one, unless disturbed is set): when it started and why.
    std::optional<QDateTime> newestDisturbedAt;
    QStringList newestDisturbedCauses;
    // Why the node may be slow, from the power settings of the run shown.
    QStringList likelyCauses;
};

// Like machines: CPU model (empty when unknown), logical CPU count (-1 when unknown) and test.
struct GroupKey {
    QString cpuModel;
    int logicalCpus = -1;
    QString test;
    bool operator<(const GroupKey& other) const;
    bool operator==(const GroupKey& other) const;
};

GroupKey groupOf(const Record& record);

// The newest scores of a group's hosts, summed up once for the whole group.
struct GroupStats {
    GroupKey key;
    double median = 0.0;
    std::optional<double> mad;  // median absolute deviation, from 3 scores up
    QStringList members;        // the hosts whose scores these are
    // The median of the members' clocks under load (mhz_current, which corebench reads halfway
    // through its run); none when no member's is known.
    std::optional<double> medianMhz;
};

// A node whose clock under load is below this share of its group's median has a likely cause.
constexpr double kMinClockRatio = 0.9;

// The median and MAD of scores, which must not be empty.
GroupStats groupStats(GroupKey key, std::vector<double> scores);

// Judges one record (its score against its group, its threads against each other), unless it
// was disturbed; the row's records and cv are left for the caller.
CompareRow judgeRecord(const LoadedRecord& loaded, const GroupStats* group,
                       const CompareOptions& options);

// One row per (host, test), of its newest undisturbed record (of its newest when all were
// disturbed), sorted by group, then score (slowest first, no score last), then host; with groups,
// also the statistics of each group that has a score, in key order. Disturbed runs count in no
// group and no cv.
std::vector<CompareRow> compareRecords(const std::vector<LoadedRecord>& records,
                                       const CompareOptions& options,
                                       std::vector<GroupStats>* groups = nullptr);
