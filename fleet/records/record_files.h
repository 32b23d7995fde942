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
    QStringList notes;     // "<path>: <reason>" for each other *.json file in the folders, not read
};

// Reads the named files, whatever their names, and the records below the named folders: the
// files named as isRecordFileName says. Only regular files are read, never through a symbolic
// link, and with trust only those no one but its writers could write (writer_trust.h); links,
// other files with a record's name, unreadable folders, untrusted files and invalid records are
// named in problems. Other *.json files in the folders are named in notes, but for the summary
// (kSummaryFileName) and ownFiles, the caller's own outputs, which are passed over silently;
// files of other suffixes (logs, reports) are passed over silently.
RecordLoad loadRecords(const QStringList& paths,
                       const QDateTime& now = QDateTime::currentDateTimeUtc(),
                       const WriterTrust* trust = nullptr,
                       const QStringList& ownFiles = QStringList());

// The record files of one host, without opening any other: those named as records in its folder
// "<records>/<host>" and those of the old flat layout "<records>/<host>-<test>-<time>.json".
// What cannot be listed is named in problems. Sorted.
QStringList hostRecordPaths(const QString& records, const QString& host, QStringList* problems);
