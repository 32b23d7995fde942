#pragma once

// Starting a worker's thread so that a failure is seen, not waited for.

#include <QThread>

#include "fixed_string.h"

// Starts the thread with QThread::InheritPriority. False when no thread could be created (a
// process or thread limit, no memory): error then holds the system's text for why, and Qt's own
// warning about it is not printed.
bool startWorkerThread(QThread& thread, FixedString<250>& error);
