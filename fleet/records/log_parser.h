#pragma once

// Reads a corebench log: what corebench printed on standard output, possibly with filler text.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>
#include <optional>

struct ParsedLog {
    // Set when the log holds a complete result; otherwise problem says what is missing.
    bool ok = false;
    QString problem;

    // System summary at the top of the log.
    std::optional<QString> os;
    std::optional<int> summaryThreads;
    std::optional<qint64> ramGib;

    // The result text of the last run.
    int createdThreads = 0;
    QVector<double> threadPs;
    QVector<qint64> threadMs;
    QVector<int> threadPasses;
    double psResult = 0.0;

    // Verbose tests print each run's score as it ends; empty for the quiet tests.
    bool verbose = false;
    QVector<double> verboseRunPs;

    std::optional<qint64> exitValue;  // "Returning exit code", when printed
    std::optional<qint64> timeExecS;  // "Time_Exec", seconds of the test runs

    // The CPU report of the last run.
    std::optional<QString> cpuDescription;
    std::optional<int> logicalCpus;
    std::optional<int> physicalCpus;
    std::optional<bool> hyperthreading;
    std::optional<qint64> mhzCurrent;  // null where corebench printed -1 (unknown)
    std::optional<qint64> mhzMax;
    QStringList errors;
};

// Parses everything corebench printed. Only corebench's own lines count, found from the end of
// the log backwards: the filler that stands before the test can hold look-alike lines.
ParsedLog parseCorebenchLog(const QByteArray& output);
