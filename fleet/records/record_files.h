#pragma once

// Record files: the rule for their bytes, which writers and readers share, and reading them from
// files and folders, which anyone who can write there may have planted.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>
#include <vector>

#include "record.h"

struct WriterTrust;

// Real records are about 1 KB; anything larger is not one.
constexpr qint64 kMaxRecordBytes = 1 << 20;

// A record may say it started at most this far ahead of the reader's clock (clocks of a farm
// differ by seconds); one dated later would stay its host's newest for ever.
constexpr qint64 kMaxFutureSecs = 10 * 60;

// The one rule for the bytes of a record file, applied by every reader and by the writers
// before they write: a writer never leaves a record behind that the readers then refuse.
std::optional<Record> recordFromFileBytes(const QByteArray& bytes, const QDateTime& now,
                                          QString* error);

// The bytes run and import write for a record, or nothing with error when a reader would refuse
// them (larger than kMaxRecordBytes, a name, test, time or value out of range).
std::optional<QByteArray> recordFileBytes(const Record& record, const QDateTime& now,
                                          QString* error);

// Whether a started before b: by start, then, within one second, by the number the file name
// took ("…Z.json", "…Z-2.json", … "…Z-10.json"), then by file. The last is the newest.
bool startedBefore(const LoadedRecord& a, const LoadedRecord& b);

struct RecordLoad {
    std::vector<LoadedRecord> records;  // ordered by start and rerun number (startedBefore)
    QStringList problems;  // "<path>: <reason>" for each file or folder that gave no record
    QStringList notes;     // "<path>: <reason>" for each other *.json file in the folders, not read
};

// Reads the named files, whatever their names, and the records below the named folders: the
// files named as isRecordFileName says. Only regular files are read, never through a symbolic
// link, and with trust only those no one but its writers could write (writer_trust.h); links,
// other files with a record's name, unreadable folders, untrusted files and invalid records are
// named in problems. A record found in a folder below a named one is in its host's folder
// ("<records>/<host>/" or its month folder "<records>/<host>/<YYYY-MM>/"): one whose host differs
// is named in problems and left out, as is one named as a run of another month than its folder's.
// Other *.json files in the folders are named in notes, but for the summary (kSummaryFileName) and
// ownFiles, the caller's own outputs, which are passed over silently; files of other suffixes
// (logs, reports) are passed over silently.
RecordLoad loadRecords(const QStringList& paths,
                       const QDateTime& now = QDateTime::currentDateTimeUtc(),
                       const WriterTrust* trust = nullptr,
                       const QStringList& ownFiles = QStringList());

// The record files of one host, without opening any other: those named as records in its folder
// "<records>/<host>" and its month folders, and those of the old flat layout
// "<records>/<host>-<test>-<time>.json". What cannot be listed is named in problems. Sorted.
QStringList hostRecordPaths(const QString& records, const QString& host, QStringList* problems);

// Reads the record files of one host (hostRecordPaths); a record of another host is a problem.
RecordLoad loadHostRecords(const QString& records, const QString& host,
                           const QDateTime& now = QDateTime::currentDateTimeUtc());

// Whether the records older than those read so far of one host and test are needed, given those,
// newest first; asked after each record read, with one more each time.
using NeedsOlder = std::function<bool(const std::vector<LoadedRecord>& newestFirst)>;

// Reads one host's records of one test newest first, by what their file names say, for as long
// as more asks for older ones: the cost of looking at a node's newest records does not grow with
// the years of records behind them. Every file in the host's folder named as a record must be
// named as one of the host, and every record read must say what its name says (host, test and
// start to the second); reading stops at the first file that does not, or cannot be read, and
// problems name it. With trust, a month folder anyone else could write is a problem too.
RecordLoad loadNewestRecords(const QString& records, const QString& host, const QString& test,
                             const QDateTime& now, const WriterTrust* trust,
                             const NeedsOlder& more);

// Reads what loadRecords reads, but of the records in the folders only those that each host and
// test's own rule, made by rule() for it, asks for: newest first by their file names, each of
// which the record must match (host, test and start to the second). The files named are read
// whatever their names. In a host's folder a file named as a record of another host is named in
// problems and not read; a file that gives no record is named in problems and the next older one
// read in its place. A host's month folders are listed newest first, only as far back as the
// rules ask: a test the host ran only in older months than that is not read.
RecordLoad loadNewestRecords(const QStringList& paths, const QDateTime& now,
                             const QStringList& ownFiles, const std::function<NeedsOlder()>& rule);
