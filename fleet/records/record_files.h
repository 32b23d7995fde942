#pragma once

// Reading records from files and folders, which anyone who can write there may have planted.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <vector>

#include "record.h"

struct WriterTrust;

// Real records are about 1 KB; anything larger is not one.
constexpr qint64 kMaxRecordBytes = 1 << 20;

// A record may say it started at most this far ahead of the reader's clock (clocks of a farm
// differ by seconds); one dated later would stay its host's newest for ever.
constexpr qint64 kMaxFutureSecs = 10 * 60;

struct RecordLoad {
    std::vector<LoadedRecord> records;
    QStringList problems;  // "<path>: <reason>" for each file or folder that gave no record
};

// Reads the named files, and every *.json file below the named folders. Only regular files are
// read, never through a symbolic link, and with trust only those no one but its writers could
// write (writer_trust.h); links, other files named *.json, unreadable folders, untrusted files and
// invalid records are named in problems.
RecordLoad loadRecords(const QStringList& paths,
                       const QDateTime& now = QDateTime::currentDateTimeUtc(),
                       const WriterTrust* trust = nullptr);

// The record files of one host, without opening any other: those in its folder
// "<records>/<host>" and those of the old flat layout "<records>/<host>-<test>-<time>.json".
// What cannot be listed is named in problems. Sorted.
QStringList hostRecordPaths(const QString& records, const QString& host, QStringList* problems);
