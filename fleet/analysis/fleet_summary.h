#pragma once

// The fleet's verdict as one file, written by compare --summary and read by check: each group's
// median, spread and members, and each host's newest undisturbed record of each test with its
// verdict and the likely cause of slowness its power settings show (a host whose every run was
// disturbed has no entry). A node decides about itself from this and its own records, without
// reading the whole fleet.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <optional>
#include <vector>

#include "fleet_compare.h"

struct SummaryHost {
    QString host;
    QString test;
    QDateTime startedAt;
    bool flagged = false;
    QString reason;
    std::optional<double> psResult;
    QString file;
    QString likelyCause;  // of the run judged, from its power settings; empty when none shows
};

struct FleetSummary {
    QDateTime generatedAt;
    QString records;  // the canonical path of the records folder it was made of
    CompareOptions options;
    std::vector<GroupStats> groups;
    std::vector<SummaryHost> hosts;
};

// compare's reasons for one host (robust z, score, slow core) take under 200 characters.
constexpr int kMaxSummaryReasonChars = 256;

QByteArray summaryToJson(const std::vector<CompareRow>& rows, const std::vector<GroupStats>& groups,
                         const CompareOptions& options, const QString& records,
                         const QDateTime& generatedAt);

// Reads a summary, holding it to what compare writes: at least one host; host and test names as
// a record's; times in compare's UTC form and no later than a record's may be (kMaxFutureSecs
// after now); scores and CPU counts within a record's limits, a group's median and spread too;
// compare's options within their ranges; each reason one line of at most kMaxSummaryReasonChars,
// given exactly when the host is flagged, each likely cause one such line; one entry per host and
// test, and each group's members exactly the hosts of its test that have a score. On failure
// returns nothing and sets error to the reason.
std::optional<FleetSummary> summaryFromJson(const QByteArray& bytes, const QDateTime& now,
                                            QString* error);

// text as one line for a reader that splits lines (scontrol, a log): every control character
// and line or paragraph separator becomes a blank, runs of blanks one, none at either end; cut
// to maxChars, ending in "...", when longer.
QString oneLine(const QString& text, int maxChars);
