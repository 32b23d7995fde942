#pragma once

// The node exporter's textfile in its folder.

#include <QString>
#include <optional>
#include <vector>

struct Record;

// The host's records in the records folder, for its baselines; what could not be read is named on
// standard error and left out.
std::vector<Record> baselineHistory(const QString& records, const QString& host);

// Writes the record's corebench.prom into promDir, merged with what is there, with the test's
// baseline when there is one and its drift ratio (driftRatio, baseline.h), both from history, the
// host's records; false with the message printed on failure.
bool writePromFile(const Record& record, const std::vector<Record>& history,
                   const QString& promDir);
