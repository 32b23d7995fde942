#pragma once

// The commands of corebench-fleet, one file each. Each takes its own arguments (the command name
// first) and returns the process's exit status.

#include <QStringList>

// Exit statuses; the Slurm recipes and the README rely on them.
enum FleetStatus {
    kStatusOk = 0,
    kStatusFlagged = 1,     // compare: at least one node flagged; check: drain the node
    kStatusUsage = 2,       // bad options; for compare also bad input; check: cannot decide
    kStatusNotFound = 3,    // corebench not found or not startable
    kStatusCrashed = 4,     // corebench killed by a signal or crashed
    kStatusUnparsed = 5,    // corebench's output did not parse
    kStatusUnwritable = 6,  // the record or the .prom file could not be written
};

int runCommand(const QStringList& arguments);
int importCommand(const QStringList& arguments);
int compareCommand(const QStringList& arguments);
int checkCommand(const QStringList& arguments);
int historyCommand(const QStringList& arguments);
int weightsCommand(const QStringList& arguments);
