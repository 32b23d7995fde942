#pragma once

// The commands of corebench-fleet. Each takes its own arguments (the command name first) and
// returns the process's exit status.

#include <QStringList>

// Exit statuses; the Slurm recipes and the README rely on them.
enum FleetStatus {
    kStatusOk = 0,
    kStatusFlagged = 1,     // compare: at least one node flagged
    kStatusUsage = 2,       // bad options; for compare also bad input
    kStatusNotFound = 3,    // corebench not found or not startable
    kStatusCrashed = 4,     // corebench killed by a signal or crashed
    kStatusUnparsed = 5,    // corebench's output did not parse
    kStatusUnwritable = 6,  // the record or the .prom file could not be written
};

int runCommand(const QStringList& arguments);
int importCommand(const QStringList& arguments);
int compareCommand(const QStringList& arguments);

// Messages of corebench-fleet itself go to standard error, standard output being corebench's
// (run) or the comparison's (compare).
void printMessage(const QString& message);

// Writes the record's .prom file into promDir, merged with what is there; false with the message
// printed on failure.
struct Record;
bool exportToProm(const Record& record, const QString& promDir);
