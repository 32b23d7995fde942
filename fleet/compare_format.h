#pragma once

// The compare result for people (an aligned table) and for scripts (CSV, JSON), all with the same
// columns in the same order.

#include <QByteArray>
#include <vector>

#include "fleet_compare.h"

QByteArray formatCompareTable(const std::vector<CompareRow>& rows);
QByteArray formatCompareCsv(const std::vector<CompareRow>& rows);
QByteArray formatCompareJson(const std::vector<CompareRow>& rows);
