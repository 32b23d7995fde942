#include "node_verdict.h"

#include <QRegularExpression>
#include <QStringList>
#include <algorithm>

#include "compare_drift.h"
#include "record_files.h"
#include "statistics.h"
#include "test_names.h"

namespace {

// Ten years: far beyond any sweep interval, and far from overflowing anything.
constexpr qint64 kMaxAgeS = 3650LL * 86400;

// Tests are compared as the test table spells them: "all" and "All" are one test.
bool sameTest(const QString& a, const QString& b) {
    return canonicalTestName(a) == canonicalTestName(b);
}

struct Newest {
    QDateTime startedAt;
    std::optional<double> psResult;
    QStringList flags;  // compare's reasons
    QString likelyCause;
};

const GroupStats* groupFor(const FleetSummary& summary, const Record& record) {
    const GroupKey key = groupOf(record);
    for (const GroupStats& group : summary.groups) {
        if (group.key == key) {
            return &group;
        }
    }
    return nullptr;
}

// The newest of the host's own records of the test that were disturbed, or were not.
const LoadedRecord* newestOwn(const std::vector<LoadedRecord>& ownRecords,
                              const CheckRequest& request, bool disturbed) {
    const LoadedRecord* own = nullptr;
    for (const LoadedRecord& loaded : ownRecords) {
        if (loaded.record.host == request.host && sameTest(loaded.record.test, request.test) &&
            isDisturbed(loaded.record) == disturbed &&
            (own == nullptr || startedBefore(*own, loaded))) {
            own = &loaded;
        }
    }
    return own;
}

std::optional<Newest> newestOf(const FleetSummary& summary,
                               const std::vector<LoadedRecord>& ownRecords,
                               const CheckRequest& request) {
    const LoadedRecord* own = newestOwn(ownRecords, request, false);
    const SummaryHost* judged = nullptr;
    for (const SummaryHost& host : summary.hosts) {
        if (host.host == request.host && sameTest(host.test, request.test) &&
            (judged == nullptr || host.startedAt > judged->startedAt)) {
            judged = &host;
        }
    }
    // The summary's verdict had the whole fleet to go on, so it wins unless the node ran since.
    if (judged != nullptr && (own == nullptr || judged->startedAt >= own->record.startedAt)) {
        Newest newest{judged->startedAt, judged->psResult, {}, judged->likelyCause};
        if (judged->flagged) {
            newest.flags << judged->reason;
        }
        return newest;
    }
    if (own == nullptr) {
        return std::nullopt;
    }
    const CompareRow row = judgeRecord(*own, groupFor(summary, own->record), summary.options);
    return Newest{own->record.startedAt, own->record.psResult, row.reasons,
                  row.likelyCauses.join(QStringLiteral("; "))};
}

// The tests other than the request's that the host has records of, in the summary or its own.
QStringList otherTests(const FleetSummary& summary, const std::vector<LoadedRecord>& ownRecords,
                       const CheckRequest& request) {
    QStringList tests;
    const auto add = [&](const QString& host, const QString& test) {
        if (host == request.host && !sameTest(test, request.test) && !tests.contains(test)) {
            tests << test;
        }
    };
    for (const SummaryHost& host : summary.hosts) {
        add(host.host, host.test);
    }
    for (const LoadedRecord& loaded : ownRecords) {
        add(loaded.record.host, loaded.record.test);
    }
    tests.sort();
    return tests;
}

// The current drift of the newest segment of the node's own runs of the test.
std::optional<ChangePoint> ownDrift(const std::vector<LoadedRecord>& ownRecords,
                                    const CheckRequest& request) {
    std::vector<LoadedRecord> mine;
    for (const LoadedRecord& loaded : ownRecords) {
        if (loaded.record.host == request.host && loaded.record.test == request.test) {
            mine.push_back(loaded);
        }
    }
    const std::map<HistoryKey, HostHistory> histories = hostHistories(mine);
    return histories.empty() ? std::nullopt : currentDrift(histories.begin()->second.segments);
}

}  // namespace

QString summaryDoubt(const FleetSummary& summary, const CheckRequest& request) {
    if (summary.records != request.recordsCanonical) {
        return QStringLiteral("it was made of the records in %1, not of those in %2")
            .arg(summary.records, request.recordsCanonical);
    }
    if (request.maxAgeS && summary.generatedAt.secsTo(request.now) > *request.maxAgeS) {
        return QStringLiteral("it was made at %1, longer ago than %2")
            .arg(summary.generatedAt.toString(Qt::ISODate), request.maxAgeText);
    }
    return QString();
}

NodeVerdict decideNode(const FleetSummary& summary, const std::vector<LoadedRecord>& ownRecords,
                       const CheckRequest& request) {
    const std::optional<Newest> newest = newestOf(summary, ownRecords, request);
    const LoadedRecord* disturbed = newestOwn(ownRecords, request, true);
    if (disturbed != nullptr && newest && disturbed->record.startedAt <= newest->startedAt) {
        disturbed = nullptr;
    }
    const bool stale =
        newest && request.maxAgeS && newest->startedAt.secsTo(request.now) > *request.maxAgeS;
    if (disturbed != nullptr && (!newest || stale)) {
        return {Verdict::CannotDecide,
                oneLine(QStringLiteral("cannot decide: the %1 run of %2 at %3 was disturbed (%4), "
                                       "and %5")
                            .arg(request.test, request.host,
                                 disturbed->record.startedAt.toUTC().toString(Qt::ISODate),
                                 disturbed->record.disturbed->join(QStringLiteral("; ")),
                                 newest ? QStringLiteral("its newest undisturbed run (%1) is "
                                                         "older than %2")
                                              .arg(newest->startedAt.toUTC().toString(Qt::ISODate),
                                                   request.maxAgeText)
                                 : request.maxAgeS
                                     ? QStringLiteral("it has no undisturbed run within %1")
                                           .arg(request.maxAgeText)
                                     : QStringLiteral("it has no undisturbed run")),
                        kMaxVerdictChars)};
    }
    QStringList reasons;
    QString state;
    bool slow = false;  // a reason is the score, which the power settings may explain
    if (!newest) {
        const QStringList others = otherTests(summary, ownRecords, request);
        if (!others.isEmpty()) {
            return {Verdict::CannotDecide,
                    QStringLiteral("cannot decide: %1 has records of %2 but none of %3; the "
                                   "check's test must be the one the sweep runs (its --test)")
                        .arg(request.host, others.join(QStringLiteral(", ")), request.test)};
        }
        state = QStringLiteral("no %1 record of %2").arg(request.test, request.host);
        if (request.maxAgeS) {
            reasons << state + QStringLiteral(" in ") + request.records;
        }
    } else {
        const QString started = newest->startedAt.toUTC().toString(Qt::ISODate);
        const QString score = newest->psResult ? QString::number(*newest->psResult, 'f', 3)
                                               : QStringLiteral("no score");
        state = QStringLiteral("%1 %2 PS at %3").arg(request.test, score, started);
        if (!newest->flags.isEmpty()) {
            slow = true;
            reasons << QStringLiteral("flagged by compare (%1)")
                           .arg(newest->flags.join(QStringLiteral("; ")));
        }
        if (request.floorPs && !newest->psResult) {
            reasons << QStringLiteral("record has no score");
        } else if (request.floorPs && *newest->psResult < *request.floorPs) {
            slow = true;
            reasons << QStringLiteral("%1 PS below floor %2").arg(score).arg(*request.floorPs);
        }
        if (disturbed != nullptr) {
            state += QStringLiteral("; the newer run at %1 was disturbed, not judged")
                         .arg(disturbed->record.startedAt.toUTC().toString(Qt::ISODate));
        }
        // Worded without the age itself, so the reason does not change from one check to the next.
        if (stale) {
            reasons << QStringLiteral("newest record (%1) older than %2")
                           .arg(started, request.maxAgeText);
        }
    }
    if (request.driftFraction) {
        const std::optional<ChangePoint> drift = ownDrift(ownRecords, request);
        if (drift && drainsOnDrift(*drift, *request.driftFraction)) {
            slow = true;
            reasons << driftReason(*drift);
        }
    }
    if (slow && newest && !newest->likelyCause.isEmpty()) {
        reasons << QStringLiteral("likely cause: ") + newest->likelyCause;
    }
    if (reasons.isEmpty()) {
        return {Verdict::Healthy, oneLine(QStringLiteral("healthy: ") + state, kMaxVerdictChars)};
    }
    return {Verdict::Drain, oneLine(QStringLiteral("drain: ") + reasons.join(QStringLiteral("; ")),
                                    kMaxVerdictChars)};
}

bool needsOlderRecords(const std::vector<LoadedRecord>& newestFirst, const CheckRequest& request) {
    const Record& last = newestFirst.back().record;
    const auto clean = [](const LoadedRecord& loaded) { return !isDisturbed(loaded.record); };
    if (std::none_of(newestFirst.begin(), newestFirst.end(), clean)) {
        // The verdict rests on the newest undisturbed run, which only the maximum age makes
        // too old to look for.
        return !request.maxAgeS || last.startedAt.secsTo(request.now) <= *request.maxAgeS;
    }
    if (!request.driftFraction || newestFirst.size() >= kDriftHistoryRecords) {
        return false;
    }
    // Drift leaves disturbed runs and runs without a score out, and a run in another
    // configuration (CPU model or count) than the newest scored one lies before the current
    // configuration began.
    const auto scored = [](const Record& record) {
        return record.psResult && isUsableScore(*record.psResult) && !isDisturbed(record);
    };
    const auto newest =
        std::find_if(newestFirst.begin(), newestFirst.end(),
                     [&](const LoadedRecord& loaded) { return scored(loaded.record); });
    return newest == newestFirst.end() || !scored(last) ||
           (last.cpuModel == newest->record.cpuModel &&
            last.logicalCpus == newest->record.logicalCpus);
}

std::optional<qint64> parseAge(const QString& text) {
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("([0-9]{1,10})([smhd]?)")));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const qint64 count = match.captured(1).toLongLong();
    const QString unit = match.captured(2);
    const qint64 scale = unit == QLatin1String("d")   ? 86400
                         : unit == QLatin1String("h") ? 3600
                         : unit == QLatin1String("m") ? 60
                                                      : 1;
    // count < 10^10 and scale <= 86400: the product stays far below 2^63.
    const qint64 seconds = count * scale;
    if (seconds > kMaxAgeS) {
        return std::nullopt;
    }
    return seconds;
}
