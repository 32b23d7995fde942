#pragma once

// The names of hosts, tests, record and log files, and where a host's records are kept.

#include <QDateTime>
#include <QString>
#include <QStringList>

// Whether a host or test name is one that Slurm and DNS accept: [A-Za-z0-9][A-Za-z0-9._-]{0,62}.
// Every name that enters the records (options, the machine's name, records read back) is held
// to it, so no name can leave a folder, break a CSV row or a label, or start an option.
bool isValidName(const QString& name);

// "<host>-<test>-<YYYYMMDDTHHMMSSZ>", the name of a record and its log without the suffix; host
// and test are valid names.
QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt);

// The folder of a host's records: "<records>/<host>".
QString hostFolder(const QString& records, const QString& host);

// Whether a file name is one that run and import give a record:
// "<host>-<test>-<YYYYMMDDTHHMMSSZ>[-N].json", host and test valid names. The records folder
// holds other files too (logs, the sweep's report and summary), which are no records.
bool isRecordFileName(const QString& fileName);

// The name of compare's summary in the records folder, where the sweep's report job writes it
// and the health check looks for it.
inline constexpr char kSummaryFileName[] = "corebench-summary.json";

// Whether a file name in the old flat layout (every record straight in the records folder) is a
// record of host: "<host>-<known test>-<time>[-N].json", so that host n1 does not take n1-a's.
bool isFlatRecordOf(const QString& fileName, const QString& host);

// The host name up to its first dot.
QString shortHostName(const QString& name);
