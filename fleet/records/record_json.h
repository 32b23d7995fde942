#pragma once

// The JSON form of a record: schema 2, every key present, null for what is not known; schema 1
// (without "conditions" and "disturbed") is read too.

#include <QByteArray>
#include <QString>
#include <optional>

#include "record.h"

QByteArray recordToBytes(const Record& record);  // indented JSON, final newline

// Reads a record; on failure returns nothing and sets error to the reason.
std::optional<Record> recordFromJson(const QByteArray& bytes, QString* error);
