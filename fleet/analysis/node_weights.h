#pragma once

// Slurm node weights from corebench scores: Slurm gives a job the nodes of lowest Weight first,
// so each node's weight is inversely proportional to its newest score.

#include <QSet>
#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

#include "record.h"

// The fastest node's weight; Slurm's Weight is a 32-bit number whose top values it reserves, and
// 65533 keeps clear of them.
constexpr qint64 kFastestWeight = 100;
constexpr qint64 kMaxWeight = 65533;

struct NodeWeight {
    QString host;
    double psResult = 0.0;
    qint64 weight = 0;
    QString tier;  // cb_fast, cb_mid or cb_slow: thirds of the ranking
};

struct Weighing {
    std::vector<NodeWeight> nodes;  // fastest first, then by name
    QStringList skipped;            // "<host>: <why>", by name
};

// Weighs each host by its newest undisturbed record of test, whatever the case of the test's name:
// the fastest 100, a node half as fast 200, rounded, reckoned in whole thousandths of a PS (exact
// integers), at most 65533 (a score of 0 gets that). Skips hosts whose newest record has no
// score or whose every record was disturbed, and with nodes, hosts that are not among them, which
// then neither get a weight nor set the scale.
Weighing weighNodes(const std::vector<LoadedRecord>& records, const QString& test,
                    const std::optional<QSet<QString>>& nodes);
