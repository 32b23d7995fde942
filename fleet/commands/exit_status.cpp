#include "exit_status.h"

#include <algorithm>

namespace {

struct StatusMeaning {
    FleetStatus status;
    const char* meaning;
};

const StatusMeaning kMeanings[] = {
    {kStatusOk, "done; compare: no node flagged; check: healthy; idle: the node is idle"},
    {kStatusFlagged, "compare: a node flagged; check: drain the node; idle: the node is busy"},
    {kStatusUsage,
     "called wrong: an unknown or malformed option, a missing argument, an invalid "
     "name"},
    {kStatusNotFound, "run: corebench not found or not startable"},
    {kStatusCrashed, "run: corebench crashed or was killed by a signal"},
    {kStatusUnparsed, "run, import: corebench's output (the log) cannot be read or did not parse"},
    {kStatusUnwritable, "a record, log, summary or .prom file could not be written"},
    {kStatusBadInput,
     "compare, history: a record unreadable or invalid (each named, the others "
     "still count), or none"},
    {kStatusCannotDecide,
     "check: cannot decide, its evidence is missing or cannot be read, or the node's newest "
     "runs were disturbed; nothing to change; idle: the load cannot be read"},
};

}  // namespace

QString exitStatusHelp(std::initializer_list<FleetStatus> statuses) {
    QString text = QStringLiteral("Exit statuses:\n");
    for (const StatusMeaning& entry : kMeanings) {
        if (statuses.size() == 0 ||
            std::find(statuses.begin(), statuses.end(), entry.status) != statuses.end()) {
            text += QStringLiteral("  %1  %2\n")
                        .arg(static_cast<int>(entry.status))
                        .arg(QLatin1String(entry.meaning));
        }
    }
    return text;
}
