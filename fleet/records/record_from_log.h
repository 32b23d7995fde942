#pragma once

// The rule that turns a parsed corebench log into a record.

#include <QDateTime>
#include <QString>
#include <optional>

#include "record.h"

struct ParsedLog;

// What the log does not say about a measurement.
struct RecordOrigin {
    QString host;
    QString test;  // canonical name
    QDateTime startedAt;
    std::optional<double> durationS;
    std::optional<int> status;
    std::optional<QString> corebenchSha256;
    QString source;
};

// Builds the record of a parsed log. For the repeated tests the score is the mean of the runs'
// printed scores; the quiet ones print only their last run, so their score stays null and
// warning says why.
Record recordFromLog(const ParsedLog& log, const RecordOrigin& origin, QString* warning);
