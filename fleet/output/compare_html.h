#pragma once

// The compare result as one self-contained HTML page: per group of like machines a strip plot of
// the nodes' newest scores with the group median and the floor, the flagged nodes named above it
// as far as they fit and listed beside it, a small history chart for each flagged or drifting
// node, and the table of all rows, a page at a time, sortable by any column and filterable by
// host, CPU model or flagged. The rows are one JSON block that the page's own script draws and
// tabulates (report_data.h, report_page.js); styles, script and data are inline, and the page
// loads nothing else. Every text from the records is escaped.

#include <QByteArray>
#include <map>
#include <vector>

#include "compare_drift.h"
#include "fleet_compare.h"

QByteArray formatCompareHtml(const std::vector<CompareRow>& rows,
                             const std::map<HistoryKey, HostHistory>& histories,
                             const CompareOptions& options);
