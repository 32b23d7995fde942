#include "compare_html.h"

#include <algorithm>
#include <cmath>

#include "report_data.h"
#include "report_page_assets.h"

namespace {

// History charts beyond this many are left out (the table still lists every node), which keeps a
// page of a fleet in trouble small enough to open.
constexpr int kMaxCharts = 200;

constexpr double kChartWidth = 300;
constexpr double kChartHeight = 80;

// Counts errors from the first script on, for whoever checks the page (data-errors on <body>).
const char kHeadScript[] =
    "window.reportErrors=0;window.addEventListener('error',function(){window.reportErrors++;});";

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

// The groups of like machines, each a run of rows (compare sorts rows by group first).
std::vector<ReportGroup> reportGroups(const std::vector<CompareRow>& rows,
                                      const CompareOptions& options) {
    std::vector<ReportGroup> groups;
    for (size_t first = 0; first < rows.size();) {
        ReportGroup group{first, 1, std::nullopt, std::nullopt};
        while (first + group.count < rows.size() &&
               sameGroup(rows[first], rows[first + group.count])) {
            ++group.count;
        }
        for (size_t i = first; i < first + group.count; ++i) {
            if (rows[i].groupMedian && std::isfinite(*rows[i].groupMedian)) {
                group.median = rows[i].groupMedian;
                group.floor = options.floor * *group.median;
            }
        }
        groups.push_back(group);
        first += group.count;
    }
    return groups;
}

// One node's scores of the test in start order, segments' starts dashed, change points red; its
// words (title, changes, range) as text around the drawing, where they wrap rather than overlap.
QString historyChart(const CompareRow& row, const HostHistory& history) {
    const std::vector<DriftRun>& runs = history.runs;
    double lo = runs.front().score;
    double hi = lo;
    for (const DriftRun& run : runs) {
        lo = std::min(lo, run.score);
        hi = std::max(hi, run.score);
    }
    const double pad = hi > lo ? (hi - lo) * 0.1 : std::max(hi * 0.05, 1.0);
    const double top = 4;
    const double bottom = kChartHeight - 4;
    const auto x = [&](double index) {
        const double count = std::max<double>(static_cast<double>(runs.size()) - 1, 1);
        return 6 + index / count * (kChartWidth - 12);
    };
    const auto y = [&](double score) {
        return bottom - (score - lo + pad) / (hi - lo + 2 * pad) * (bottom - top);
    };
    QString svg = QStringLiteral(
                      "<div class=\"chart\">%3 · %4<br><svg width=\"%1\" height=\"%2\" "
                      "viewBox=\"0 0 %1 %2\">")
                      .arg(kChartWidth)
                      .arg(kChartHeight)
                      .arg(escaped(row.host), escaped(row.test));
    QString points;
    for (size_t i = 0; i < runs.size(); ++i) {
        points += num(x(static_cast<double>(i))) + QLatin1Char(',') + num(y(runs[i].score)) +
                  QLatin1Char(' ');
    }
    svg += QStringLiteral("<polyline class=\"run\" points=\"%1\"/>").arg(points.trimmed());
    QString changes;
    for (size_t s = 0; s < history.segments.size(); ++s) {
        const DriftSegment& segment = history.segments[s];
        if (s > 0) {
            svg +=
                QStringLiteral("<line class=\"segment\" x1=\"%1\" y1=\"%2\" x2=\"%1\" y2=\"%3\"/>")
                    .arg(num(x(segment.firstRun)), num(top), num(bottom));
        }
        for (const ChangePoint& change : segment.changePoints) {
            svg +=
                QStringLiteral("<line class=\"change\" x1=\"%1\" y1=\"%2\" x2=\"%1\" y2=\"%3\"/>")
                    .arg(num(x(segment.firstRun + change.index)), num(top), num(bottom));
            changes +=
                QStringLiteral("<li>%1% since %2 (%3)</li>")
                    .arg(num(100 * (change.ratio - 1), 1),
                         change.at.toUTC().date().toString(Qt::ISODate), pValueText(change.pValue));
        }
    }
    return svg +
           QStringLiteral("</svg><br>%1 runs, %2 to %3 PS%4</div>\n")
               .arg(QString::number(runs.size()), num(lo, 2), num(hi, 2),
                    changes.isEmpty() ? QString() : QStringLiteral("<ul>%1</ul>").arg(changes));
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
        "<meta name=\"viewport\" content=\"width=device-width\">"
        "<title>corebench fleet report</title>");
    html += QStringLiteral("<style>%1</style><script>%2</script></head>\n<body>\n")
                .arg(QLatin1String(kReportPageCss), QLatin1String(kHeadScript));
    html += QStringLiteral(
                "<h1>corebench fleet report</h1>\n<p>%1 nodes, %2 flagged, %3 off a level "
                "they held earlier in their configuration and not back since. Floor %4 of the "
                "group median, robust z below -%5. Flagged nodes are red; a click on one "
                "shows its row in the <a href=\"#nodes\">table of all nodes</a>.</p>\n"
                "<noscript><p>The plots and the table are drawn by the page's own script, "
                "which is turned off.</p></noscript>\n")
                .arg(rows.size())
                .arg(flagged)
                .arg(drifting)
                .arg(options.floor)
                .arg(options.z);
    const std::vector<ReportGroup> groups = reportGroups(rows, options);
    for (size_t g = 0; g < groups.size(); ++g) {
        const auto first = rows.begin() + static_cast<std::ptrdiff_t>(groups[g].first);
        html += QStringLiteral(
                    "<h2>%1 <small>(%2 nodes, %3 flagged)</small></h2>\n"
                    "<div class=\"plot\" data-group=\"%4\"></div>\n")
                    .arg(groupTitle(*first), QString::number(groups[g].count))
                    .arg(std::count_if(first, first + static_cast<std::ptrdiff_t>(groups[g].count),
                                       [](const CompareRow& row) { return row.flagged; }))
                    .arg(g);
    }
    QString charts;
    int shown = 0;
    int left = 0;
    for (const CompareRow& row : rows) {
        const auto found = histories.find({row.host, row.test});
        if (found == histories.end() || found->second.runs.empty() ||
            !(row.flagged || row.drift || changedRecently(found->second))) {
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
                    "<h2>History of the flagged nodes and of those whose level changed "
                    "recently</h2>\n"
                    "<div class=\"charts\">\n%1</div>\n")
                    .arg(charts);
        if (left > 0) {
            html += QStringLiteral("<p>%1 more are in the table.</p>\n").arg(left);
        }
    }
    html += QStringLiteral(
        "<h2 id=\"nodes\">All nodes</h2>\n<div class=\"controls\">"
        "<label>Host <input id=\"host-filter\" type=\"search\" placeholder=\"part of its name\">"
        "</label><label>CPU model <select id=\"cpu-filter\"><option value=\"\">every model"
        "</option></select></label><label><input id=\"flagged-filter\" type=\"checkbox\"> "
        "flagged only</label><span id=\"rows-status\"></span><span>"
        "<button id=\"page-previous\" type=\"button\">previous</button> "
        "<button id=\"page-next\" type=\"button\">next</button></span></div>\n"
        "<div class=\"table-box\"><table id=\"rows\"><thead><tr></tr></thead><tbody></tbody>"
        "</table></div>\n");
    QByteArray page = html.toUtf8();
    page += "<script type=\"application/json\" id=\"report-data\">";
    page += reportDataJson(rows, groups);
    page += "</script>\n<script>";
    page += kReportPageJs;
    page += "</script>\n</body></html>\n";
    return page;
}
