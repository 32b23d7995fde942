#include "result_text.h"

#include "standard_output.h"

namespace {

// A total below this is reported as this.
constexpr float kMinimumTotalPs = 2.0f;

QString groupedMagnitude(uint64_t magnitude) {
    if (magnitude <= 1000) {
        return QString::number(magnitude);
    }
    return QStringLiteral("%1 %2")
        .arg(groupedMagnitude(magnitude / 1000))
        .arg(magnitude % 1000, 3, 10, QLatin1Char('0'));
}

}  // namespace

void RunOutput::report(const ReportText& report) {
    if (verbose_) {
        // As data, not as a format: a '%' in a brand or error text must print as itself.
        printf("%s", report.text);
    } else {
        text_ += QString::fromLatin1(report.text, report.length);
    }
}

void RunOutput::flush() const {
    // A failed write is kept and reported by the driver once the run is over.
    flushStandardOutput();
}

float addWorkerResults(RunOutput& out, const std::vector<WorkerResult>& results) {
    float total = 0.0f;
    for (size_t i = 0; i < results.size(); ++i) {
        const WorkerResult& result = results[i];
        out.record(QStringLiteral("adding thread %1: %2PS (%3 ms, %4 loops)\n")
                       .arg(i)
                       .arg(result.ps, 5, 'f', 3)
                       .arg(formatGroupedNumber(result.measuredMs, false))
                       .arg(result.passCount),
                   "psTest: adding thread %d: %5.3f\n", static_cast<int>(i), result.ps);
        total = static_cast<float>(static_cast<double>(total) + result.ps);
    }
    if (total < kMinimumTotalPs) {
        total = kMinimumTotalPs;
    }
    const float average = total / static_cast<float>(results.size());
    out.record(QStringLiteral("=totalSpeed %1 PS (Average per core: %2 PS)\n")
                   .arg(static_cast<double>(total), 5, 'f', 3)
                   .arg(static_cast<double>(average), 5, 'f', 3),
               "psTest: totalSpeed %5.3f PS   (Average per core:  %5.3f PS)\n",
               static_cast<double>(total), static_cast<double>(average));
    return total;
}

void addPsResult(RunOutput& out, float ps) {
    out.record(QStringLiteral("PS_Result: %1").arg(static_cast<double>(ps), 5, 'f', 3),
               "psTest: PS_Result: %5.3f\n", static_cast<double>(ps));
}

QString formatGroupedNumber(int64_t value, bool showPlus) {
    const uint64_t magnitude =
        value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    const QString sign = value < 0 ? QStringLiteral("-") : QString(showPlus ? " " : "");
    return sign + groupedMagnitude(magnitude);
}
