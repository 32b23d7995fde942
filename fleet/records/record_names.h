#pragma once

// The names of hosts, tests, record and log files, and where a host's records are kept.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <optional>

// Whether a host or test name is one that Slurm and DNS accept: [A-Za-z0-9][A-Za-z0-9._-]{0,62}.
// Every name that enters the records (options, the machine's name, records read back) is held
// to it, so no name can leave a folder, break a CSV row or a label, or start an option.
bool isValidName(const QString& name);

// A time as records write it, "2026-11-23T17:29:41Z", and only so: UTC, to the second. Nothing
// for any other form, a time without a zone above all (it would be read in the reader's zone).
std::optional<QDateTime> utcTimeFromText(const QString& text);

// "<host>-<test>-<YYYYMMDDTHHMMSSZ>", the name of a record and its log without the suffix; host
// and test are valid names.
QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt);

// The folder of a host's records: "<records>/<host>".
QString hostFolder(const QString& records, const QString& host);

// What the name of a record file says: "<host>-<test>-<time>[-N].json", the test spelt as the
// test table spells it. copy is N, the number publishNewFile gave a second run of the same
// second, and 1 without it.
struct RecordFileName {
    QString host;
    QString test;
    QDateTime startedAt;  // UTC
    int copy = 1;
};

// The parts of a record file's name; nothing for any other name. The records folder holds other
// files too (logs, the sweep's report and summary), which are no records.
std::optional<RecordFileName> parseRecordFileName(const QString& fileName);

// Whether a file name is one that run and import give a record.
inline bool isRecordFileName(const QString& fileName) {
    return parseRecordFileName(fileName).has_value();
}

// The name of compare's summary in the records folder, where the sweep's report job writes it
// and the health check looks for it.
inline constexpr char kSummaryFileName[] = "corebench-summary.json";

// Whether a file name in the old flat layout (every record straight in the records folder) is a
// record of host: "<host>-<known test>-<time>[-N].json", so that host n1 does not take n1-a's.
bool isFlatRecordOf(const QString& fileName, const QString& host);

// For records that started in the same second: the number publishNewFile gave the file name,
// "…Z.json" 1, "…Z-2.json" 2, "…Z-10.json" 10; 1 for a name without one. A path will do.
int copyNumberOf(const QString& fileName);

// The host name up to its first dot.
QString shortHostName(const QString& name);
