#pragma once

// One corebench measurement as a record (schema 1), and its JSON form.

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>
#include <optional>

struct ParsedLog;

struct Record {
    QString host;
    QString test;
    QDateTime startedAt;  // UTC
    std::optional<double> durationS;
    QVector<double> threadPs;  // worker order; its size is the record's "threads"
    std::optional<double> psResult;
    std::optional<qint64> exitValue;
    std::optional<int> status;
    std::optional<QString> cpuModel;
    std::optional<int> logicalCpus;
    std::optional<int> physicalCpus;
    std::optional<bool> hyperthreading;
    std::optional<qint64> mhzCurrent;
    std::optional<qint64> mhzMax;
    std::optional<qint64> ramGib;
    std::optional<QString> os;
    QStringList errors;
    std::optional<QString> corebenchSha256;
    QString source;  // "run" or "import"
};

// What the log does not say about a measurement.
struct RecordOrigin {
    QString host;
    QString test;  // canonical name
    QDateTime startedAt;
    std::optional<double> durationS;
    std::optional<int> status;
    std::optional<QString> corebenchSha256;
    QString source;
};

// Builds the record of a parsed log. For the repeated tests the score is the mean of the runs'
// printed scores; the quiet ones print only their last run, so their score stays null and
// warning says why.
Record recordFromLog(const ParsedLog& log, const RecordOrigin& origin, QString* warning);

QJsonObject recordToJson(const Record& record);
QByteArray recordToBytes(const Record& record);  // indented JSON, final newline

// Reads a record; on failure returns nothing and sets error to the reason.
std::optional<Record> recordFromJson(const QByteArray& bytes, QString* error);

// "<host>-<test>-<YYYYMMDDTHHMMSSZ>", the name of a record and its log without the suffix.
QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt);

// The host name up to its first dot.
QString shortHostName(const QString& name);
