#include "fleet_compare.h"

#include <QHash>
#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <utility>

#include "record_files.h"
#include "statistics.h"

namespace {

// Scales the median absolute deviation to a standard deviation for normal data.
constexpr double kMadScale = 0.6745;

// Groups of fewer nodes than this have too few for a median absolute deviation to mean anything.
constexpr size_t kMinNodesForZ = 3;

using HostTest = std::pair<QString, QString>;

// Sample coefficient of variation (standard deviation over mean) of a host's scores of one test.
std::optional<double> coefficientOfVariation(const std::vector<double>& values) {
    if (values.size() < 2) {
        return std::nullopt;
    }
    double sum = 0.0;
    for (const double value : values) {
        sum += value;
    }
    const double mean = sum / static_cast<double>(values.size());
    if (mean <= 0.0) {
        return std::nullopt;
    }
    double squares = 0.0;
    for (const double value : values) {
        squares += (value - mean) * (value - mean);
    }
    return std::sqrt(squares / static_cast<double>(values.size() - 1)) / mean;
}

QString number(double value, int decimals) {
    return QString::number(value, 'f', decimals);
}

void judgeThreads(const Record& record, const CompareOptions& options, CompareRow& row) {
    if (record.threadPs.isEmpty()) {
        return;
    }
    const auto lowest = std::min_element(record.threadPs.begin(), record.threadPs.end());
    row.minThreadPs = *lowest;
    row.medianThreadPs =
        median(std::vector<double>(record.threadPs.begin(), record.threadPs.end()));
    if (record.threadPs.size() >= 2 && *lowest < options.floor * *row.medianThreadPs) {
        row.reasons << QStringLiteral("slow core: thread %1 at %2 of the median thread (floor %3)")
                           .arg(lowest - record.threadPs.begin())
                           .arg(number(*lowest / *row.medianThreadPs, 3))
                           .arg(options.floor);
    }
}

void judgeScore(const GroupStats& group, const CompareOptions& options, CompareRow& row) {
    if (!row.psResult) {
        return;
    }
    const double x = *row.psResult;
    const double m = group.median;
    row.groupMedian = m;
    if (m > 0.0) {
        row.ratio = x / m;
    }
    // With more than half the group on one value the MAD is 0 and z is undefined; the floor still
    // judges such a group.
    if (group.mad && *group.mad > 0.0) {
        row.robustZ = kMadScale * (x - m) / *group.mad;
        if (*row.robustZ < -options.z) {
            row.reasons << QStringLiteral("robust z %1 below -%2")
                               .arg(number(*row.robustZ, 2))
                               .arg(options.z);
        }
    }
    if (x < options.floor * m) {
        row.reasons << QStringLiteral("score at %1 of the group median (floor %2)")
                           .arg(number(x / m, 3))
                           .arg(options.floor);
    }
}

}  // namespace

bool GroupKey::operator<(const GroupKey& other) const {
    return std::tie(cpuModel, logicalCpus, test) <
           std::tie(other.cpuModel, other.logicalCpus, other.test);
}

bool GroupKey::operator==(const GroupKey& other) const {
    return std::tie(cpuModel, logicalCpus, test) ==
           std::tie(other.cpuModel, other.logicalCpus, other.test);
}

GroupKey groupOf(const Record& record) {
    return {record.cpuModel.value_or(QString()), record.logicalCpus.value_or(-1), record.test};
}

GroupStats groupStats(GroupKey key, std::vector<double> scores) {
    GroupStats stats;
    stats.key = std::move(key);
    stats.median = median(scores);
    if (scores.size() >= kMinNodesForZ) {
        stats.mad = medianAbsoluteDeviation(std::move(scores));
    }
    return stats;
}

CompareRow judgeRecord(const LoadedRecord& loaded, const GroupStats* group,
                       const CompareOptions& options) {
    const Record& record = loaded.record;
    CompareRow row;
    row.host = record.host;
    row.test = record.test;
    row.startedAt = record.startedAt;
    row.psResult = record.psResult;
    row.logicalCpus = record.logicalCpus;
    row.cpuModel = record.cpuModel;
    row.file = loaded.file;
    if (record.conditions) {
        row.likelyCauses = record.conditions->likelyCauses;
    }
    if (group != nullptr && group->medianMhz && record.mhzCurrent &&
        static_cast<double>(*record.mhzCurrent) < kMinClockRatio * *group->medianMhz) {
        row.likelyCauses << QStringLiteral(
                                "the clock under load, %1 MHz, is %2 of its group's "
                                "median %3 MHz")
                                .arg(*record.mhzCurrent)
                                .arg(number(
                                    static_cast<double>(*record.mhzCurrent) / *group->medianMhz, 2))
                                .arg(number(*group->medianMhz, 0));
    }
    if (isDisturbed(record)) {
        row.disturbed = true;
        row.newestDisturbedAt = record.startedAt;
        row.newestDisturbedCauses = *record.disturbed;
        return row;
    }
    if (group != nullptr) {
        judgeScore(*group, options, row);
    }
    judgeThreads(record, options, row);
    row.flagged = !row.reasons.isEmpty();
    return row;
}

std::vector<CompareRow> compareRecords(const std::vector<LoadedRecord>& records,
                                       const CompareOptions& options,
                                       std::vector<GroupStats>* groups) {
    // The newest undisturbed record of each host and test stands for it (the newest when every
    // one was disturbed); every undisturbed record counts for the CV.
    const auto newer = [&](size_t a, size_t b) { return startedBefore(records[b], records[a]); };
    std::map<HostTest, size_t> judged;
    std::map<HostTest, size_t> newest;
    std::map<HostTest, std::vector<double>> history;
    std::map<HostTest, int> counts;
    for (size_t i = 0; i < records.size(); ++i) {
        const Record& record = records[i].record;
        const HostTest key{record.host, record.test};
        ++counts[key];
        if (record.psResult && !isDisturbed(record)) {
            history[key].push_back(*record.psResult);
        }
        const auto latest = newest.emplace(key, i).first;
        if (newer(i, latest->second)) {
            latest->second = i;
        }
        const auto found = judged.emplace(key, i).first;
        const bool clean = !isDisturbed(record);
        if (clean != !isDisturbed(records[found->second].record) ? clean
                                                                 : newer(i, found->second)) {
            found->second = i;
        }
    }
    std::map<GroupKey, std::pair<std::vector<double>, QStringList>> groupScores;
    std::map<GroupKey, std::vector<double>> groupClocks;
    for (const auto& entry : judged) {
        const Record& record = records[entry.second].record;
        if (record.psResult && !isDisturbed(record)) {
            auto& group = groupScores[groupOf(record)];
            group.first.push_back(*record.psResult);
            group.second << record.host;
            if (record.mhzCurrent) {
                groupClocks[groupOf(record)].push_back(static_cast<double>(*record.mhzCurrent));
            }
        }
    }
    // Each group's statistics once, however many rows share them.
    std::map<GroupKey, GroupStats> stats;
    for (auto& entry : groupScores) {
        GroupStats group = groupStats(entry.first, std::move(entry.second.first));
        group.members = std::move(entry.second.second);
        const auto clocks = groupClocks.find(entry.first);
        if (clocks != groupClocks.end()) {
            group.medianMhz = median(clocks->second);
        }
        stats.emplace(entry.first, std::move(group));
    }
    std::vector<std::pair<GroupKey, CompareRow>> rows;
    rows.reserve(judged.size());
    for (const auto& entry : judged) {
        const LoadedRecord& loaded = records[entry.second];
        GroupKey group = groupOf(loaded.record);
        const auto found = stats.find(group);
        CompareRow row =
            judgeRecord(loaded, found == stats.end() ? nullptr : &found->second, options);
        // A newer run than the one judged was disturbed.
        const Record& latest = records[newest[entry.first]].record;
        if (newest[entry.first] != entry.second) {
            row.newestDisturbedAt = latest.startedAt;
            row.newestDisturbedCauses = latest.disturbed.value_or(QStringList());
        }
        row.records = counts[entry.first];
        row.cv = coefficientOfVariation(history[entry.first]);
        rows.emplace_back(std::move(group), std::move(row));
    }
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        if (!(a.first == b.first)) {
            return a.first < b.first;
        }
        // Rows without a score go last in their group.
        const double scoreA = a.second.psResult.value_or(INFINITY);
        const double scoreB = b.second.psResult.value_or(INFINITY);
        if (scoreA != scoreB) {
            return scoreA < scoreB;
        }
        return a.second.host < b.second.host;
    });
    if (groups != nullptr) {
        groups->clear();
        for (auto& entry : stats) {
            groups->push_back(std::move(entry.second));
        }
    }
    std::vector<CompareRow> result;
    result.reserve(rows.size());
    for (auto& entry : rows) {
        result.push_back(std::move(entry.second));
    }
    return result;
}
