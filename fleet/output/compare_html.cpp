#include "compare_html.h"

#include <QHash>
#include <algorithm>
#include <cmath>

#include "compare_format.h"

namespace {

// History charts beyond this many are left out (the table still lists every node), which keeps a
// page of a fleet in trouble small enough to open.
constexpr int kMaxCharts = 200;

constexpr double kStripWidth = 960;
constexpr double kStripHeight = 145;
constexpr double kStripTop = 50;  // flagged nodes' names go above the strip
constexpr double kMargin = 20;
constexpr double kChartWidth = 300;
constexpr double kChartHeight = 104;

const char kStyle[] = R"(
body{font:14px/1.4 "DejaVu Sans",sans-serif;margin:1.5em;color:#222;background:#fff}
h1{font-size:1.4em}h2{font-size:1.1em;margin:1.4em 0 .3em}
svg text{font:11px "DejaVu Sans",sans-serif;fill:#333}
.mark{fill:#3b6fb6;fill-opacity:.55}.mark.flagged{fill:#d62728;fill-opacity:1;stroke:#000;stroke-width:1}
.median{stroke:#222;stroke-width:1.5}.floor{stroke:#d62728;stroke-dasharray:4 3}
.axis{stroke:#bbb}.run{fill:none;stroke:#3b6fb6;stroke-width:1.2}
.segment{stroke:#999;stroke-dasharray:2 2}.change{stroke:#d62728;stroke-width:1.5}
.charts{display:flex;flex-wrap:wrap;gap:12px}.chart{border:1px solid #ddd;padding:4px}
table{border-collapse:collapse;font-size:12px;margin-top:1em}
th,td{border:1px solid #ddd;padding:2px 6px;text-align:left;white-space:nowrap}
th{background:#f2f2f2;cursor:pointer;position:sticky;top:0}td.num{text-align:right}
tr.flagged td{background:#fde8e8}
.mark.disturbed{fill:none;stroke:#888}tr.disturbed td{color:#888}
)";

// Counts errors from the first script on, for whoever checks the page (data-errors on <body>).
const char kHeadScript[] =
    "window.reportErrors=0;window.addEventListener('error',function(){window.reportErrors++;});";

// Sorting by a click on a column head (numbers as numbers, empty cells last), and what the page
// saw while loading, written onto <body>: errors, resources fetched, milliseconds to the load
// event.
const char kBodyScript[] = R"(
(function(){
var table=document.getElementById('rows');
var heads=table.tHead.rows[0].cells;
function key(row,i){var c=row.cells[i],t=c.textContent;
  return t===''?null:c.className==='num'?parseFloat(t):t;}
function sortBy(i){var body=table.tBodies[0];var rows=Array.prototype.slice.call(body.rows);
  var down=heads[i].getAttribute('data-sort')!=='up';
  for(var h=0;h<heads.length;h++){heads[h].removeAttribute('data-sort');}
  heads[i].setAttribute('data-sort',down?'up':'down');
  rows.sort(function(a,b){var x=key(a,i),y=key(b,i);
    if(x===null||y===null){return x===y?0:x===null?1:-1;}
    var c=(typeof x==='number'&&typeof y==='number')?x-y:String(x).localeCompare(String(y));
    return down?c:-c;});
  rows.forEach(function(r){body.appendChild(r);});}
for(var i=0;i<heads.length;i++){heads[i].addEventListener('click',sortBy.bind(null,i));}
function report(){var b=document.body;b.setAttribute('data-errors',window.reportErrors);
  b.setAttribute('data-resources',performance.getEntriesByType('resource').length);}
report();
window.addEventListener('load',function(){report();
  document.body.setAttribute('data-load-ms',Math.round(performance.now()));});
})();
)";

QString escaped(const QString& text) {
    return text.toHtmlEscaped();  // & < > " (attributes are always in double quotes)
}

QString num(double value, int decimals = 1) {
    return QString::number(value, 'f', decimals);
}

QString groupTitle(const CompareRow& row) {
    return QStringLiteral("%1 · %2 logical CPUs · %3")
        .arg(escaped(row.cpuModel.value_or(QStringLiteral("unknown CPU"))),
             row.logicalCpus ? QString::number(*row.logicalCpus) : QStringLiteral("?"),
             escaped(row.test));
}

bool sameGroup(const CompareRow& a, const CompareRow& b) {
    return a.cpuModel == b.cpuModel && a.logicalCpus == b.logicalCpus && a.test == b.test;
}

// A spread of the marks across the strip's height that stays put from one report to the next.
double jitter(const QString& host) {
    return static_cast<double>(qHash(host, 17) % 1000) / 1000.0;
}

// The strip plot of one group, rows [first, last).
QString stripPlot(const std::vector<CompareRow>& rows, size_t first, size_t last,
                  const CompareOptions& options) {
    std::vector<double> values;
    std::optional<double> median;
    for (size_t i = first; i < last; ++i) {
        if (rows[i].psResult && std::isfinite(*rows[i].psResult)) {
            values.push_back(*rows[i].psResult);
        }
        if (rows[i].groupMedian && std::isfinite(*rows[i].groupMedian)) {
            median = rows[i].groupMedian;
        }
    }
    if (median) {
        values.push_back(*median);
        values.push_back(options.floor * *median);
    }
    if (values.empty()) {
        return QStringLiteral("<p>No scores in this group.</p>\n");
    }
    double lo = *std::min_element(values.begin(), values.end());
    double hi = *std::max_element(values.begin(), values.end());
    const double pad = hi > lo ? (hi - lo) * 0.05 : std::max(std::fabs(hi) * 0.05, 1.0);
    lo -= pad;
    hi += pad;
    const auto x = [&](double value) {
        return kMargin + (value - lo) / (hi - lo) * (kStripWidth - 2 * kMargin);
    };
    const double bottom = kStripHeight - 35;  // the axis, two rows of numbers below it
    QString svg =
        QStringLiteral("<svg class=\"strip\" width=\"%1\" height=\"%2\" viewBox=\"0 0 %1 %2\">")
            .arg(kStripWidth)
            .arg(kStripHeight);
    svg += QStringLiteral("<line class=\"axis\" x1=\"%1\" y1=\"%3\" x2=\"%2\" y2=\"%3\"/>")
               .arg(num(kMargin), num(kStripWidth - kMargin), num(bottom));
    svg += QStringLiteral(
               "<text x=\"%1\" y=\"%2\">%3</text><text x=\"%4\" y=\"%2\" "
               "text-anchor=\"end\">%5 PS</text>")
               .arg(num(kMargin), num(bottom + 14), num(lo, 2), num(kStripWidth - kMargin),
                    num(hi, 2));
    if (median) {
        const double floor = options.floor * *median;
        svg += QStringLiteral(
                   "<line class=\"median\" x1=\"%1\" y1=\"%2\" x2=\"%1\" y2=\"%3\"/>"
                   "<text x=\"%1\" y=\"%4\" text-anchor=\"middle\">median %5</text>")
                   .arg(num(x(*median)), num(kStripTop - 6), num(bottom), num(bottom + 28),
                        num(*median, 2));
        svg += QStringLiteral(
                   "<line class=\"floor\" x1=\"%1\" y1=\"%2\" x2=\"%1\" y2=\"%3\"/>"
                   "<text x=\"%1\" y=\"%4\" text-anchor=\"middle\">floor %5</text>")
                   .arg(num(x(floor)), num(kStripTop - 6), num(bottom), num(bottom + 28),
                        num(floor, 2));
    }
    int labels = 0;
    QString names;
    for (size_t i = first; i < last; ++i) {
        const CompareRow& row = rows[i];
        if (!row.psResult || !std::isfinite(*row.psResult)) {
            continue;
        }
        const double cx = x(*row.psResult);
        const double cy = kStripTop + 6 + jitter(row.host) * (bottom - kStripTop - 12);
        svg += QStringLiteral(
                   "<circle class=\"mark%1\" cx=\"%2\" cy=\"%3\" r=\"%4\">"
                   "<title>%5 %6</title></circle>")
                   .arg(row.flagged     ? QStringLiteral(" flagged")
                        : row.disturbed ? QStringLiteral(" disturbed")
                                        : QString(),
                        num(cx), num(cy), row.flagged ? QStringLiteral("5") : QStringLiteral("4"),
                        escaped(row.host), num(*row.psResult, 3));
        if (row.flagged) {
            // Three rows of names, so that neighbours' names overlap less.
            const double ly = 12 + 12 * (labels++ % 3);
            names += QStringLiteral(
                         "<line class=\"axis\" x1=\"%1\" y1=\"%2\" x2=\"%1\" y2=\"%3\"/>"
                         "<text class=\"label\" x=\"%1\" y=\"%4\" "
                         "text-anchor=\"middle\">%5</text>")
                         .arg(num(cx), num(ly + 2), num(cy - 5), num(ly), escaped(row.host));
        }
    }
    return svg + names + QStringLiteral("</svg>\n");
}

// One node's scores of the test in start order, segments' starts dashed, change points red.
QString historyChart(const CompareRow& row, const HostHistory& history) {
    const std::vector<DriftRun>& runs = history.runs;
    double lo = runs.front().score;
    double hi = lo;
    for (const DriftRun& run : runs) {
        lo = std::min(lo, run.score);
        hi = std::max(hi, run.score);
    }
    const double pad = hi > lo ? (hi - lo) * 0.1 : std::max(hi * 0.05, 1.0);
    lo -= pad;
    hi += pad;
    const double top = 30;  // below the title and the change points' labels
    const double bottom = kChartHeight - 14;
    const auto x = [&](double index) {
        const double count = std::max<double>(static_cast<double>(runs.size()) - 1, 1);
        return 6 + index / count * (kChartWidth - 12);
    };
    const auto y = [&](double score) { return bottom - (score - lo) / (hi - lo) * (bottom - top); };
    QString svg = QStringLiteral(
                      "<div class=\"chart\"><svg width=\"%1\" height=\"%2\" viewBox=\"0 0 %1 %2\">"
                      "<text x=\"6\" y=\"12\">%3 · %4</text>")
                      .arg(kChartWidth)
                      .arg(kChartHeight)
                      .arg(escaped(row.host), escaped(row.test));
    QString points;
    for (size_t i = 0; i < runs.size(); ++i) {
        points += num(x(static_cast<double>(i))) + QLatin1Char(',') + num(y(runs[i].score)) +
                  QLatin1Char(' ');
    }
    svg += QStringLiteral("<polyline class=\"run\" points=\"%1\"/>").arg(points.trimmed());
    for (size_t s = 0; s < history.segments.size(); ++s) {
        const DriftSegment& segment = history.segments[s];
        if (s > 0) {
            svg +=
                QStringLiteral("<line class=\"segment\" x1=\"%1\" y1=\"%2\" x2=\"%1\" y2=\"%3\"/>")
                    .arg(num(x(segment.firstRun)), num(top), num(bottom));
        }
        for (const ChangePoint& change : segment.changePoints) {
            const double cx = x(segment.firstRun + change.index);
            const bool right = cx < kChartWidth / 2;  // the label on the roomier side
            svg +=
                QStringLiteral(
                    "<line class=\"change\" x1=\"%1\" y1=\"%2\" x2=\"%1\" y2=\"%3\"/>"
                    "<text x=\"%4\" y=\"%2\" text-anchor=\"%5\">%6% since %7 "
                    "(%8)</text>")
                    .arg(num(cx), num(top - 4), num(bottom), num(cx + (right ? 3 : -3)),
                         right ? QStringLiteral("start") : QStringLiteral("end"),
                         num(100 * (change.ratio - 1), 1),
                         change.at.toUTC().date().toString(Qt::ISODate), pValueText(change.pValue));
        }
    }
    svg += QStringLiteral("<text x=\"6\" y=\"%1\">%2 runs, %3 to %4 PS</text></svg></div>\n")
               .arg(num(kChartHeight - 2))
               .arg(runs.size())
               .arg(num(lo + pad, 2), num(hi - pad, 2));
    return svg;
}

QString table(const std::vector<CompareRow>& rows) {
    const QStringList columns = compareColumnNames();
    QString html = QStringLiteral("<table id=\"rows\"><thead><tr>");
    for (const QString& column : columns) {
        html += QStringLiteral("<th>%1</th>").arg(escaped(column));
    }
    html += QStringLiteral("</tr></thead><tbody>\n");
    for (const CompareRow& row : rows) {
        html += row.flagged     ? QStringLiteral("<tr class=\"flagged\">")
                : row.disturbed ? QStringLiteral("<tr class=\"disturbed\">")
                                : QStringLiteral("<tr>");
        for (const QString& field : compareRowFields(row)) {
            bool number = false;
            field.toDouble(&number);
            html += number ? QStringLiteral("<td class=\"num\">") : QStringLiteral("<td>");
            html += escaped(field) + QStringLiteral("</td>");
        }
        html += QStringLiteral("</tr>\n");
    }
    return html + QStringLiteral("</tbody></table>\n");
}

}  // namespace

QByteArray formatCompareHtml(const std::vector<CompareRow>& rows,
                             const std::map<HistoryKey, HostHistory>& histories,
                             const CompareOptions& options) {
    const auto flagged =
        std::count_if(rows.begin(), rows.end(), [](const CompareRow& row) { return row.flagged; });
    const auto drifting =
        std::count_if(rows.begin(), rows.end(), [](const CompareRow& row) { return row.drift; });
    QString html = QStringLiteral(
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
        // Nothing but what is inline may load, whatever a record holds.
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
        "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">"
        "<title>corebench fleet report</title>");
    html += QStringLiteral("<style>%1</style><script>%2</script></head>\n<body>\n")
                .arg(QLatin1String(kStyle), QLatin1String(kHeadScript));
    html += QStringLiteral(
                "<h1>corebench fleet report</h1>\n<p>%1 nodes, %2 flagged, %3 with a "
                "change of level since their configuration began. Floor %4 of the "
                "group median, robust z below -%5.</p>\n")
                .arg(rows.size())
                .arg(flagged)
                .arg(drifting)
                .arg(options.floor)
                .arg(options.z);
    for (size_t first = 0; first < rows.size();) {
        size_t last = first + 1;
        while (last < rows.size() && sameGroup(rows[first], rows[last])) {
            ++last;
        }
        html += QStringLiteral("<h2>%1 (%2 nodes)</h2>\n")
                    .arg(groupTitle(rows[first]), QString::number(last - first));
        html += stripPlot(rows, first, last, options);
        first = last;
    }
    QString charts;
    int shown = 0;
    int left = 0;
    for (const CompareRow& row : rows) {
        const auto found = histories.find({row.host, row.test});
        if (!(row.flagged || row.drift) || found == histories.end() || found->second.runs.empty()) {
            continue;
        }
        if (shown == kMaxCharts) {
            ++left;
            continue;
        }
        charts += historyChart(row, found->second);
        ++shown;
    }
    if (shown > 0) {
        html += QStringLiteral(
                    "<h2>History of the flagged and drifting nodes</h2>\n"
                    "<div class=\"charts\">\n%1</div>\n")
                    .arg(charts);
        if (left > 0) {
            html += QStringLiteral("<p>%1 more are in the table.</p>\n").arg(left);
        }
    }
    html += QStringLiteral("<h2>All nodes</h2>\n") + table(rows);
    html += QStringLiteral("<script>%1</script>\n</body></html>\n").arg(QLatin1String(kBodyScript));
    return html.toUtf8();
}
