#pragma once

// What the health check does about one node, decided from the fleet's summary and the node's own
// records: healthy, or drained with the reasons; or nothing, when its newest runs were disturbed.

#include <QDateTime>
#include <QString>
#include <optional>
#include <vector>

#include "fleet_summary.h"
#include "record.h"

struct CheckRequest {
    QString host;
    QString test;                   // as the test table spells it
    std::optional<double> floorPs;  // drain below this score
    std::optional<qint64> maxAgeS;  // drain when the newest record is older, or missing
    QString maxAgeText;             // as the admin wrote it, for the reason
    QString records;                // the records folder as given, for the reason
    QDateTime now;
    // Drain when the node's own runs of the test dropped by this fraction since its configuration
    // last changed (the current drift of its newest segment, as drainsOnDrift judges it); off when
    // unset.
    std::optional<double> driftFraction;
    QString recordsCanonical;  // the records folder's canonical path, which the summary must name
};

enum class Verdict { Healthy, Drain, CannotDecide };

// A verdict line, and the drain reason Slurm gets from it, is one line of at most this many
// characters: room for every reason check gives at once, and far below what scontrol takes.
constexpr int kMaxVerdictChars = 400;

struct NodeVerdict {
    Verdict verdict = Verdict::Healthy;
    QString line;  // "healthy: ...", "drain: <reasons>" or "cannot decide: <why>", one line of at
                   // most kMaxVerdictChars
};

// Why the summary is no evidence for this check: made of another records folder than
// request.recordsCanonical, or older than request.maxAgeS. Empty when it is evidence.
QString summaryDoubt(const FleetSummary& summary, const CheckRequest& request);

// The newest undisturbed record of the host and test, from the summary or the host's own records,
// whichever is newer; one newer than the summary is judged against the summary's group of like
// machines. Disturbed runs are no evidence either way: when one is newer than every undisturbed
// run within the maximum age (of any age without one), the check cannot decide. A drain names the
// likely cause that the power settings of the run judged show. A host with records of other
// tests but none of this one cannot be decided about: the check is most likely set to another
// test than the sweep runs, and would otherwise drain every node.
NodeVerdict decideNode(const FleetSummary& summary, const std::vector<LoadedRecord>& ownRecords,
                       const CheckRequest& request);

// How far back the verdict looks into the node's own records of the test: without a drift
// setting the newest one is all it needs; with one, the runs of the node's current configuration
// back to where it began, at most this many records (four of drift's 50-run windows), so that
// years of history do not make a check slow.
constexpr int kDriftHistoryRecords = 200;

// Whether the verdict needs records older than those read so far, newest first.
bool needsOlderRecords(const std::vector<LoadedRecord>& newestFirst, const CheckRequest& request);

// Seconds of an age written as 3600, 90m, 36h or 8d, from 0 up to 3650 days; nothing for
// anything else.
std::optional<qint64> parseAge(const QString& text);
