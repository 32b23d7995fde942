#include "compare_drift.h"

std::map<HistoryKey, HostHistory> hostHistories(const std::vector<LoadedRecord>& records,
                                                const DriftOptions& options) {
    std::map<HistoryKey, HostHistory> histories;
    for (const LoadedRecord& loaded : records) {
        if (isDisturbed(loaded.record)) {
            continue;
        }
        histories[{loaded.record.host, loaded.record.test}].runs.push_back(
            driftRunOf(loaded.record));
    }
    for (auto& entry : histories) {
        HostHistory& history = entry.second;
        history.runs = orderedRuns(std::move(history.runs));
        history.segments = driftSegments(history.runs, options);
    }
    return histories;
}

bool changedRecently(const HostHistory& history, const DriftOptions& options) {
    if (history.segments.empty() || history.segments.back().changePoints.empty()) {
        return false;
    }
    const DriftSegment& newest = history.segments.back();
    return newest.runs - newest.changePoints.back().index <= options.window;
}

QString pValueText(double p) {
    return p < 0.0001 ? QStringLiteral("p < 0.0001")
                      : QStringLiteral("p %1").arg(QString::number(p, 'f', 4));
}

QString driftReason(const ChangePoint& change) {
    return QStringLiteral("drift: %1% since %2 (%3)")
        .arg(QString::number(100 * (change.ratio - 1), 'f', 1),
             change.at.toUTC().date().toString(Qt::ISODate), pValueText(change.pValue));
}

void addDrift(const std::map<HistoryKey, HostHistory>& histories, std::vector<CompareRow>* rows) {
    for (CompareRow& row : *rows) {
        const auto found = histories.find({row.host, row.test});
        if (found == histories.end()) {
            continue;
        }
        row.drift = currentDrift(found->second.segments);
        if (!row.drift || row.drift->direction != DriftDirection::Down) {
            continue;
        }
        row.reasons << driftReason(*row.drift);
        row.flagged = true;
    }
}
