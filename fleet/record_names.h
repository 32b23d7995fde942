#pragma once

// The names of record and log files, and of the host they are about.

#include <QDateTime>
#include <QString>

// "<host>-<test>-<YYYYMMDDTHHMMSSZ>", the name of a record and its log without the suffix.
QString recordBaseName(const QString& host, const QString& test, const QDateTime& startedAt);

// The host name up to its first dot.
QString shortHostName(const QString& name);
