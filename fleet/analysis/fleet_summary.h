#pragma once

// The fleet's verdict as one file, written by compare --summary and read by check: each group's
// median, spread and members, and each host's newest record of each test with its verdict. A node
// decides about itself from this and its own records, without reading the whole fleet.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <optional>
#include <vector>

#include "fleet_compare.h"

struct SummaryHost {
    QString host;
    QString test;
    QDateTime startedAt;
    bool flagged = false;
    QString reason;
    std::optional<double> psResult;
    QString file;
};

struct FleetSummary {
    QDateTime generatedAt;
    CompareOptions options;
    std::vector<GroupStats> groups;
    std::vector<SummaryHost> hosts;
};

QByteArray summaryToJson(const std::vector<CompareRow>& rows, const std::vector<GroupStats>& groups,
                         const CompareOptions& options, const QDateTime& generatedAt);

// Reads a summary; on failure returns nothing and sets error to the reason.
std::optional<FleetSummary> summaryFromJson(const QByteArray& bytes, QString* error);
