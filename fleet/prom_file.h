#pragma once

// The node exporter's textfile in its folder.

#include <QString>

struct Record;

// Writes the record's corebench.prom into promDir, merged with what is there; false with the
// message printed on failure.
bool writePromFile(const Record& record, const QString& promDir);
