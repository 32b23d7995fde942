#pragma once

// Reading records from files and folders, and writing files atomically.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <vector>

#include "record.h"

// Writes the whole file or nothing (a temporary file renamed over it), readable by everyone, so
// the node exporter, which runs as another user, can read it. False with error on failure.
bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error);

struct RecordLoad {
    std::vector<LoadedRecord> records;
    QStringList problems;  // "<file>: <reason>" for each path that gave no record
};

// Reads the named files, and every *.json file below the named folders.
RecordLoad loadRecords(const QStringList& paths);
