#pragma once

// The compare result for people (an aligned table) and for scripts (CSV, JSON), all with the same
// columns in the same order.

#include <QByteArray>
#include <QStringList>
#include <vector>

#include "fleet_compare.h"

QByteArray formatCompareTable(const std::vector<CompareRow>& rows);
QByteArray formatCompareCsv(const std::vector<CompareRow>& rows);
QByteArray formatCompareJson(const std::vector<CompareRow>& rows);

// The column names and a row's fields as text, in the order all the formats use; a missing number
// is empty.
QStringList compareColumnNames();
QStringList compareRowFields(const CompareRow& row);
