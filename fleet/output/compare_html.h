#pragma once

// The compare result as one self-contained HTML page: per group of like machines a strip plot of
// the nodes' newest scores with the group median and the floor, a small history chart for each
// flagged or drifting node, and the table of all rows (sortable by a click on a column). Styles,
// drawings (SVG) and the script are inline: the page loads nothing else. Every text from the
// records is escaped.

#include <QByteArray>
#include <map>
#include <vector>

#include "compare_drift.h"
#include "fleet_compare.h"

QByteArray formatCompareHtml(const std::vector<CompareRow>& rows,
                             const std::map<HistoryKey, HostHistory>& histories,
                             const CompareOptions& options);
