#pragma once

// One host's history for people (a table per test) and for scripts (CSV, JSON): each test's runs
// in start order with the segments of one configuration and the change points in each; disturbed
// runs are listed with their causes, outside the series.

#include <QByteArray>
#include <QString>
#include <map>
#include <vector>

#include "compare_drift.h"
#include "record.h"

// records are the host's (of every test or of one), histories what hostHistories makes of them;
// tests come in name order.
QByteArray formatHistoryTable(const QString& host, const std::vector<LoadedRecord>& records,
                              const std::map<HistoryKey, HostHistory>& histories);
QByteArray formatHistoryCsv(const std::vector<LoadedRecord>& records,
                            const std::map<HistoryKey, HostHistory>& histories);
QByteArray formatHistoryJson(const QString& host, const std::vector<LoadedRecord>& records,
                             const std::map<HistoryKey, HostHistory>& histories);
