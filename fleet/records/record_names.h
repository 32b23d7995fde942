#pragma once

// The names of hosts, tests, record and log files, and where a host's records are kept.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <optional>

// Whether a host or test name is one that Slurm and DNS accept: [A-Za-z0-9][A-Za-z0-9._-]{0,62}.
// Every name that enters the records (options, the machine's name, records read back) is held
// to it, so no name can leave a folder, break a CSV row or a label, or start an option.
bool isValidName(QStringView name);

// A time as records write it, "2026-11-23T17:29:41Z", and only so: UTC, to the second. Nothing
// for any other form, a time without a zone above all (it would be read in the reader's zone).
std::optional<QDateTime> utcTimeFromText(const QString& text);

// "<host>-<test>-<YYYYMMDDTHHMMSSZ>", the name of a record and its log without the suffix; host
// and test are valid names.
QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt);

// The folder of a host's records: "<records>/<host>".
QString hostFolder(const QString& records, const QString& host);

// The folder run and import write a record in: "<records>/<host>/<YYYY-MM>", the month the run
// started in (UTC). A folder per month lets a reader that wants a host's newest runs list only
// the newest months, however many years of records lie behind them; and an admin keeps or drops a
// month as one folder.
QString recordFolder(const QString& records, const QString& host, const QDateTime& startedAt);

// Months as one number, year * 12 + month - 1, which orders them.
// The month of a folder named "YYYY-MM" (years 1970 to 9999); nothing for any other name.
std::optional<int> monthOfFolderName(QStringView name);
// The month a time in seconds since 1970 (UTC) falls in.
int monthOfTime(qint64 secondsSinceEpoch);
// The first second of a month, in seconds since 1970 (UTC).
qint64 startOfMonth(int month);

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

// The same as parts of the name itself, to read a host's folder of years of records without making
// strings of them: host and test point into the name given.
struct RecordNameView {
    QStringView host;
    QStringView test;
    qint64 startedAt = 0;  // seconds since 1970, UTC
    int copy = 1;
};
std::optional<RecordNameView> viewRecordFileName(QStringView fileName);

// Whether a file name is one that run and import give a record.
inline bool isRecordFileName(const QString& fileName) {
    return viewRecordFileName(fileName).has_value();
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
