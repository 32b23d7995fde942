#pragma once

// corebench-fleet's exit statuses, one meaning each; scripts, the Slurm recipes and the README rely
// on them. corebench's own statuses are corebench's and do not pass through (run records them).

#include <QString>
#include <initializer_list>

enum FleetStatus {
    kStatusOk = 0,
    kStatusFlagged = 1,  // compare: a node flagged; check: drain the node; idle: busy
    kStatusUsage = 2,    // called wrong: the options or arguments (nothing was read or written)
    kStatusNotFound = 3,
    kStatusCrashed = 4,
    kStatusUnparsed = 5,
    kStatusUnwritable = 6,
    kStatusBadInput = 7,      // records that cannot be read or are invalid, or none to read
    kStatusCannotDecide = 8,  // check: its evidence is missing, unreadable or disturbed; no change;
                              // idle: the load cannot be read
};

// The statuses with their meanings, one line each, for --help; every status when none is named.
QString exitStatusHelp(std::initializer_list<FleetStatus> statuses = {});
