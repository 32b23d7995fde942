#pragma once

// The compare result for people (an aligned table) and for scripts (CSV, JSON), all with the same
// columns in the same order.

#include <QByteArray>
#include <QStringList>
#include <vector>

#include "fleet_compare.h"

// host,test,started_at,flagged,reason,ps_result,group_median,ratio,robust_z,min_thread_ps,
// median_thread_ps,cv,records,logical_cpus,cpu_model,file
QStringList compareColumns();

QByteArray formatCompareTable(const std::vector<CompareRow>& rows);
QByteArray formatCompareCsv(const std::vector<CompareRow>& rows);
QByteArray formatCompareJson(const std::vector<CompareRow>& rows);
