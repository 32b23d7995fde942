#pragma once

// The commands of corebench-fleet, one file each. Each takes its own arguments (the command name
// first) and returns the process's exit status.

#include <QStringList>

#include "exit_status.h"

int runCommand(const QStringList& arguments);
int importCommand(const QStringList& arguments);
int compareCommand(const QStringList& arguments);
int checkCommand(const QStringList& arguments);
int historyCommand(const QStringList& arguments);
int weightsCommand(const QStringList& arguments);
int idleCommand(const QStringList& arguments);
